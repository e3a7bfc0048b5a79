#pragma once

#include "signature/i_signature_verifier.h"

namespace integrity_check_tool {

// "WithoutSignatureVerifier": signatures are not checked. Every file is
// accepted unopened; asked for content, it reads the whole file.
class WithoutSignatureVerifier : public ISignatureVerifier {
public:
    std::string GetName() const override;
    void Verify(const boost::filesystem::path& path,
                std::vector<std::uint8_t>* content) const override;
};

}  // namespace integrity_check_tool
