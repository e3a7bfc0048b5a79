#pragma once

#include <cstddef>
#include <cstdint>

namespace vds::core {

// Whether a DER ContentInfo holds a SignedData of exactly the shape the
// signature format allows, in the parts OpenSSL parses without checking:
// SignedData and every SignerInfo of version 1, signers named by issuer and
// serial number, no CRLs, signed attributes present and no unsigned ones,
// algorithm parameters absent or NULL, and digestAlgorithms holding exactly
// the SignerInfos' digest algorithms. The bytes must already be known to
// be one DER encoding (definite lengths, nothing after the end).
bool HasStrictSignedDataShape(const std::uint8_t* der, std::size_t size);

}  // namespace vds::core
