#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool {

// Confirms a file's digital signature or throws. Given a content buffer, it
// fills it with the bytes that the signature covers.
class ISignatureVerifier {
public:
    virtual ~ISignatureVerifier() = default;
    virtual std::string GetName() const = 0;
    virtual void Verify(const boost::filesystem::path& path,
                        std::vector<std::uint8_t>* content) const = 0;
};

using ISignatureVerifierPtr = std::shared_ptr<ISignatureVerifier>;

}  // namespace integrity_check_tool
