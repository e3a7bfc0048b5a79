#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ruk/intrusive_ptr.h"
#include "ruk/io.h"
#include "ruk/result.h"
#include "vds/vds_types.h"

// The signature-verification service: framework objects over the VDS core.
// Every operation returns a framework result code (negative means failure)
// and never lets an exception out.
namespace crypto::vds::service {

// A byte range owned by the caller.
struct ByteRange {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

// What one verification found.
class IVdsVerificationResult : public ruk::RefCounted {
public:
    virtual ruk::result_t GetVerificationFlags(VdsVerificationFlags* flags) const = 0;
    // Bytes from the start of the object that the signature covers.
    virtual ruk::result_t GetCheckedContentSize(std::uint64_t* size) const = 0;
    virtual ruk::result_t GetSignatureContainerSize(std::uint64_t* size) const = 0;
    virtual ruk::result_t GetFileFormat(VdsFileFormat* format) const = 0;
};

using IVdsVerificationResultPtr = ruk::intrusive_ptr<IVdsVerificationResult>;

class IVdsSignatureVerifier : public ruk::RefCounted {
public:
    // Success with a result object when the object is trusted;
    // ruk::result::ObjectUntrusted with a result object (for its flags) when
    // it is not; any other failure without one.
    virtual ruk::result_t VerifyObject(ruk::IIO* io, ByteRange purpose,
                                       IVdsVerificationResultPtr* result) = 0;
    // The same, with the signature bound to the additional content.
    virtual ruk::result_t VerifyObjectWithAdditionalContent(ruk::IIO* io,
                                                            ByteRange additionalContent,
                                                            ByteRange purpose,
                                                            IVdsVerificationResultPtr* result) = 0;
    virtual ruk::result_t Clone(ruk::intrusive_ptr<IVdsSignatureVerifier>* copy) = 0;
    // Adds a signed catalog of object digests.
    virtual ruk::result_t LoadExternalSignaturesCatalog(ruk::IIO* io) = 0;
};

using IVdsSignatureVerifierPtr = ruk::intrusive_ptr<IVdsSignatureVerifier>;

// A verifier trusting `trustedRoots` and `optCrlRoots` (DER certificates).
// Every root of `trustedRoots` needs its revocation database in the CRL
// container (a degenerate PKCS#7 of CRLs): without a container, or with one
// that lacks it, no verifier is made (ruk::result::NotFound). The databases
// of `optCrlRoots` are used when present; a chain ending at such a root
// without one is checked without revocation (`RevocationCheckSkipped`). A
// non-empty container that holds no database at all is refused too. Both
// root lists empty is ruk::result::InvalidArgument.
ruk::result_t VdsCreateVerifierWithOptionalCrls(const std::vector<ByteRange>& trustedRoots,
                                                const std::vector<ByteRange>& optCrlRoots,
                                                ByteRange crlContainer,
                                                IVdsSignatureVerifierPtr* verifier);

// The service's text of verification flags: every set bit by name,
// "Unsigned" and "UntrustedRoot" included, the rest as "UNKNOWN=0x...";
// "None" for no bit.
std::string VerificationFlagsText(VdsVerificationFlags flags);

}  // namespace crypto::vds::service
