#include <openssl/evp.h>
#include <openssl/objects.h>

#include "vds/catalog_format.h"
#include "vds/signing.h"
#include "vds/vds_core.h"

namespace vds::signing {
namespace {

void AppendLittleEndian32(std::vector<std::uint8_t>* bytes, std::uint32_t value) {
    for (int index = 0; index < 4; ++index) {
        bytes->push_back(static_cast<std::uint8_t>(value >> (8 * index)));
    }
}

}  // namespace

std::vector<std::uint8_t> MakeCatalogContent(
    const std::string& algorithm, const std::vector<std::vector<std::uint8_t>>& digests) {
    if (VdsInitializeLibrary() != vdsOk) {
        throw Error("Can't load the OpenSSL \"gost\" engine");
    }
    const EVP_MD* digest = EVP_get_digestbyname(algorithm.c_str());
    if (digest == nullptr || algorithm.empty() ||
        algorithm.size() > format::kMaxCatalogAlgorithmName) {
        throw Error("Unknown digest algorithm " + algorithm);
    }
    std::vector<std::uint8_t> content(format::kCatalogMagic.begin(), format::kCatalogMagic.end());
    AppendLittleEndian32(&content, format::kCatalogVersion);
    content.push_back(static_cast<std::uint8_t>(algorithm.size()));
    content.insert(content.end(), algorithm.begin(), algorithm.end());
    AppendLittleEndian32(&content, static_cast<std::uint32_t>(digests.size()));
    for (const auto& value : digests) {
        if (value.size() != static_cast<std::size_t>(EVP_MD_get_size(digest))) {
            throw Error("A digest of " + std::to_string(value.size()) + " bytes is not " +
                        algorithm);
        }
        content.insert(content.end(), value.begin(), value.end());
    }
    return content;
}

}  // namespace vds::signing
