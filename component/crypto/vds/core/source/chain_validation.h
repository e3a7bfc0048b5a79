#pragma once

#include <cstdint>
#include <string>

#include <openssl/x509.h>

#include "handles.h"

namespace vds::core {

struct ChainOutcome {
    VdsVerificationFlags flags = 0;
    std::string leafSerial;
    std::string rootSerial;  // empty unless the chain ends at a trusted root
    std::string purposes;    // of the leaf
    std::vector<std::vector<std::uint8_t>> purposeOids;
};

// Builds and checks the chain from `leaf` through `untrusted` to one of the
// verifier's roots (at the given time), then the leaf's purpose and usage and revocation in the
// root's database. Every problem becomes a flag; the chain and the outcome
// are reported to the verifier's handler.
struct ChainOptions {
    std::int64_t atTime = 0;  // seconds since 1970; 0: now
    bool timestamp = false;   // a time-stamping authority's chain (reported as such)
};

ChainOutcome ValidateChain(const VdsVerifier& verifier, X509* leaf, STACK_OF(X509) * untrusted,
                           const VdsBlob& purpose, const ChainOptions& options = {});

}  // namespace vds::core
