#pragma once

#include <cstdint>
#include <vector>

#include "chain_validation.h"
#include "handles.h"
#include "object_reader.h"
#include "vds/pe_format.h"

namespace vds::core {

struct VerificationRequest {
    const VdsVerifier* verifier = nullptr;
    const ObjectReader* reader = nullptr;
    VdsBlob purpose{nullptr, 0};
    const VdsBlob* additionalContent = nullptr;  // null: no file-name binding
};

struct SignatureOutcome {
    VdsVerificationFlags flags = 0;
    bool trusted = false;
    std::uint64_t checkedContentSize = 0;
    ChainOutcome chain;  // of the decisive signer
};

// Verifies the signatures appended to the object, the outermost first: each
// is a CMS SignedData over the bytes before it. Returns vdsOk with the outcome
// (trusted or not), or the failure that kept the object from being read.
VdsResult VerifyEmbeddedSignatures(const VerificationRequest& request, SignatureOutcome* outcome);

// Verifies the signatures in a program's certificate table: each entry's
// SignedData over the image digest, and those nested in it, in that order,
// until one is trusted. The layout must have a certificate table.
VdsResult VerifyProgramSignatures(const VerificationRequest& request,
                                  const format::PeLayout& layout, SignatureOutcome* outcome);

}  // namespace vds::core
