#pragma once

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
// verifier's roots, then the leaf's purpose and usage and revocation in the
// root's database. Every problem becomes a flag; the chain and the outcome
// are reported to the verifier's handler.
ChainOutcome ValidateChain(const VdsVerifier& verifier, X509* leaf, STACK_OF(X509) * untrusted,
                           const VdsBlob& purpose);

}  // namespace vds::core
