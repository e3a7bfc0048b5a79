#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vds::core {

// Whether a DER ContentInfo holds a SignedData of exactly the shape the
// signature format allows, in the parts OpenSSL parses without checking:
// SignedData and every SignerInfo of version 1, signers named by issuer and
// serial number, no CRLs, signed attributes present and unsigned ones only
// of the types in `allowedUnsigned` (whole DER OIDs; empty: none at all),
// algorithm parameters absent or NULL, and digestAlgorithms holding exactly
// the SignerInfos' digest algorithms. The bytes must already be known to
// be one DER encoding (definite lengths, nothing after the end).
bool HasStrictSignedDataShape(const std::uint8_t* der, std::size_t size,
                              const std::vector<std::string>& allowedUnsigned = {});

}  // namespace vds::core
