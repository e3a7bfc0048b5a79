#pragma once

#include <cstdint>

#include <openssl/cms.h>

#include "handles.h"

namespace vds::core {

// The time vouched for by the RFC 3161 token in the SignerInfo's unsigned
// attributes: the token is intact (its own signature and content digest),
// its message imprint is the digest of this SignerInfo's signature, and its
// authority's chain, at that time, ends at one of the verifier's roots with
// the time-stamping purpose and nothing revoked. False when any of that does
// not hold or there is no token.
bool TimestampedAt(const VdsVerifier& verifier, CMS_SignerInfo* signerInfo, std::int64_t* time);

}  // namespace vds::core
