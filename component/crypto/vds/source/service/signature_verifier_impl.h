#pragma once

#include "common_objects/core_objects.h"
#include "common_objects/verification_result_handler_impl.h"
#include "crypto/vds/service/service.h"

namespace crypto::vds::service {

// What the core reported for one verification.
class VdsVerificationResultImpl : public IVdsVerificationResult {
public:
    explicit VdsVerificationResultImpl(const VdsVerificationResultData& data) : data_(data) {}

    ruk::result_t GetVerificationFlags(VdsVerificationFlags* flags) const override;
    ruk::result_t GetCheckedContentSize(std::uint64_t* size) const override;
    ruk::result_t GetSignatureContainerSize(std::uint64_t* size) const override;
    ruk::result_t GetFileFormat(VdsFileFormat* format) const override;

private:
    VdsVerificationResultData data_;
};

// A service verifier over one core verifier. It keeps the result handler
// and the revocation checker that the core verifier refers to alive.
class VdsSignatureVerifierImpl : public IVdsSignatureVerifier {
public:
    VdsSignatureVerifierImpl(common_objects::CoreVerifierPtr verifier,
                             common_objects::VerificationResultHandlerImplPtr handler,
                             common_objects::CoreRevocationCheckerPtr revocationChecker);

    ruk::result_t VerifyObject(ruk::IIO* io, ByteRange purpose,
                               IVdsVerificationResultPtr* result) override;
    ruk::result_t VerifyObjectWithAdditionalContent(ruk::IIO* io, ByteRange additionalContent,
                                                    ByteRange purpose,
                                                    IVdsVerificationResultPtr* result) override;
    ruk::result_t Clone(IVdsSignatureVerifierPtr* copy) override;
    ruk::result_t LoadExternalSignaturesCatalog(ruk::IIO* io) override;

private:
    ruk::result_t Verify(const char* function, ruk::IIO* io, const ByteRange* additionalContent,
                         ByteRange purpose, IVdsVerificationResultPtr* result);

    common_objects::CoreVerifierPtr verifier_;
    common_objects::VerificationResultHandlerImplPtr handler_;
    common_objects::CoreRevocationCheckerPtr revocationChecker_;
};

}  // namespace crypto::vds::service
