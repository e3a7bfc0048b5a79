#include "signature/without_signature_verifier.h"

#include "utils/file_utils.h"

namespace integrity_check_tool {

std::string WithoutSignatureVerifier::GetName() const {
    return "WithoutSignatureVerifier";
}

void WithoutSignatureVerifier::Verify(const boost::filesystem::path& path,
                                      std::vector<std::uint8_t>* content) const {
    if (content != nullptr) {
        *content = ReadWholeFile(path);
    }
}

}  // namespace integrity_check_tool
