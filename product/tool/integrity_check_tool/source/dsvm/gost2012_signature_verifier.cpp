#include "dsvm/gost2012_signature_verifier.h"

#include "trust/trust_material.h"

namespace integrity_check_tool::dsvm {

Gost2012SignatureVerifier::Gost2012SignatureVerifier(TracerPtr tracer, bool release)
    : gost_(std::move(tracer)), keys_(trust::GetDsvmKeyPair(release)) {
    keys_.resize(2);
}

std::string Gost2012SignatureVerifier::GetName() const {
    return "Gost2012SignatureVerifier";
}

void Gost2012SignatureVerifier::Verify(const boost::filesystem::path& path,
                                       std::vector<std::uint8_t>* content) const {
    gost_.VerifySignature(path, keys_[0], keys_[1], requireBothKeys_, content);
}

}  // namespace integrity_check_tool::dsvm
