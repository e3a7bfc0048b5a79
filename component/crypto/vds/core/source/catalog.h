#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <openssl/evp.h>

#include "vds/vds_types.h"

namespace vds::core {

// A loaded signature catalog: the digests it lists and who signed it.
struct Catalog {
    const EVP_MD* algorithm = nullptr;
    std::string algorithmName;
    std::vector<std::vector<std::uint8_t>> digests;  // sorted
    std::string leafSerial;
    std::string rootSerial;
    std::string purposesText;
    VdsVerificationFlags signatureFlags = 0;          // of the catalog's own signature
    std::vector<std::vector<std::uint8_t>> purposes;  // OID content bytes of the signer's EKU

    bool Contains(const std::vector<std::uint8_t>& digest) const;
    // An empty purpose is always granted.
    bool Grants(const VdsBlob& purpose) const;
};

// Reads catalog content (vds/catalog_format.h); vdsErrInvalidFormat for
// anything that is not exactly one well-formed catalog.
VdsResult ParseCatalog(const std::uint8_t* data, std::size_t size, Catalog* catalog);

}  // namespace vds::core
