#pragma once

#include <vector>

#include "dsvm/gost2012.h"
#include "signature/i_signature_verifier.h"
#include "tracer.h"

namespace integrity_check_tool::dsvm {

// "Gost2012SignatureVerifier": files signed with one key of the compiled-in
// release pair (release = true) or test pair.
class Gost2012SignatureVerifier : public ISignatureVerifier {
public:
    Gost2012SignatureVerifier(TracerPtr tracer, bool release);

    std::string GetName() const override;
    void Verify(const boost::filesystem::path& path,
                std::vector<std::uint8_t>* content) const override;

private:
    Gost2012 gost_;
    std::vector<Gost2012::Blob> keys_;
    // Both keys of the pair are required: a trust set with a missing key is a
    // broken build, not a reason to accept fewer signers quietly.
    bool requireBothKeys_ = true;
};

}  // namespace integrity_check_tool::dsvm
