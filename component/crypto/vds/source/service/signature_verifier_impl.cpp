#include "service/signature_verifier_impl.h"

#include "service/exception_boundary.h"
#include "service/io_reader.h"
#include "service/log.h"
#include "service/utils.h"

namespace crypto::vds::service {

ruk::result_t VdsVerificationResultImpl::GetVerificationFlags(VdsVerificationFlags* flags) const {
    if (flags == nullptr) {
        return ruk::result::InvalidArgument;
    }
    *flags = data_.flags;
    return ruk::result::Success;
}

ruk::result_t VdsVerificationResultImpl::GetCheckedContentSize(std::uint64_t* size) const {
    if (size == nullptr) {
        return ruk::result::InvalidArgument;
    }
    *size = data_.checkedContentSize;
    return ruk::result::Success;
}

ruk::result_t VdsVerificationResultImpl::GetSignatureContainerSize(std::uint64_t* size) const {
    if (size == nullptr) {
        return ruk::result::InvalidArgument;
    }
    *size = data_.signatureContainerSize;
    return ruk::result::Success;
}

ruk::result_t VdsVerificationResultImpl::GetFileFormat(VdsFileFormat* format) const {
    if (format == nullptr) {
        return ruk::result::InvalidArgument;
    }
    *format = data_.fileFormat;
    return ruk::result::Success;
}

VdsSignatureVerifierImpl::VdsSignatureVerifierImpl(
    common_objects::CoreVerifierPtr verifier,
    common_objects::VerificationResultHandlerImplPtr handler,
    common_objects::CoreRevocationCheckerPtr revocationChecker)
    : verifier_(std::move(verifier)),
      handler_(std::move(handler)),
      revocationChecker_(std::move(revocationChecker)) {}

ruk::result_t VdsSignatureVerifierImpl::Verify(const char* function, ruk::IIO* io,
                                               const ByteRange* additionalContent,
                                               ByteRange purpose,
                                               IVdsVerificationResultPtr* result) {
    if (io == nullptr || result == nullptr) {
        return ruk::result::InvalidArgument;
    }
    Log(function, "verifier=", PointerText(this), ", purpose='", PurposeText(purpose), "'");
    IoReader reader(*io, ReaderContent::Object);
    ruk::result_t code = reader.Prepare();
    if (ruk::Failed(code)) {
        return code;
    }
    const VdsReadCallback callback = reader.Callback();
    Log(function, "File to be checked: size=", callback.objectSize);

    const VdsBlob purposeBlob{purpose.data, purpose.size};
    VdsVerificationResultData data{};
    VdsResult core = vdsOk;
    const char* call = nullptr;
    if (additionalContent == nullptr) {
        call = "VdsVerifyObjectByCallback_Ex";
        core = VdsVerifyObjectByCallback_Ex(verifier_->Get(), &callback, &purposeBlob, &data);
    } else {
        call = "VdsVerifyObjectByCallbackWithAdditionalContent_Ex";
        const VdsBlob content{additionalContent->data, additionalContent->size};
        core = VdsVerifyObjectByCallbackWithAdditionalContent_Ex(verifier_->Get(), &callback,
                                                                 &content, &purposeBlob, &data);
    }
    if (core >= 0) {
        *result = ruk::MakeIntrusive<VdsVerificationResultImpl>(data);
        code = ruk::result::Success;
    } else if (core == vdsErrUntrusted) {
        // The flags of an untrusted object explain why.
        *result = ruk::MakeIntrusive<VdsVerificationResultImpl>(data);
        code = ruk::result::ObjectUntrusted;
    } else {
        Log(function, call, " failed. VdsResult=", VdsResultText(core));
        code = core == vdsErrCallbackRead && ruk::Failed(reader.GetLastError())
                   ? reader.GetLastError()
                   : ToFrameworkResult(core);
    }
    Log(function, "verificationResult=", code, " (", ruk::GetResultText(code), ")");
    return code;
}

ruk::result_t VdsSignatureVerifierImpl::VerifyObject(ruk::IIO* io, ByteRange purpose,
                                                     IVdsVerificationResultPtr* result) {
    return ManageExceptions(__func__,
                            [&] { return Verify("VerifyObject", io, nullptr, purpose, result); });
}

ruk::result_t VdsSignatureVerifierImpl::VerifyObjectWithAdditionalContent(
    ruk::IIO* io, ByteRange additionalContent, ByteRange purpose,
    IVdsVerificationResultPtr* result) {
    return ManageExceptions(__func__, [&] {
        return Verify("VerifyObjectWithAdditionalContent", io, &additionalContent, purpose, result);
    });
}

ruk::result_t VdsSignatureVerifierImpl::Clone(IVdsSignatureVerifierPtr* copy) {
    return ManageExceptions(__func__, [&]() -> ruk::result_t {
        if (copy == nullptr) {
            return ruk::result::InvalidArgument;
        }
        VdsVerifier* cloned = nullptr;
        const VdsResult core = VdsCloneVerifier(verifier_->Get(), &cloned);
        common_objects::CoreVerifier::Owned owned(cloned);
        if (core != vdsOk) {
            Log("Clone", "VdsCloneVerifier() failed; VdsResult=", VdsResultText(core));
            return ToFrameworkResult(core);
        }
        *copy = ruk::MakeIntrusive<VdsSignatureVerifierImpl>(
            ruk::MakeIntrusive<common_objects::CoreVerifier>(std::move(owned)), handler_,
            revocationChecker_);
        return ruk::result::Success;
    });
}

ruk::result_t VdsSignatureVerifierImpl::LoadExternalSignaturesCatalog(ruk::IIO* io) {
    return ManageExceptions(__func__, [&]() -> ruk::result_t {
        if (io == nullptr) {
            return ruk::result::InvalidArgument;
        }
        IoReader reader(*io, ReaderContent::Object);
        const ruk::result_t code = reader.Prepare();
        if (ruk::Failed(code)) {
            return code;
        }
        const VdsReadCallback callback = reader.Callback();
        const VdsResult core = VdsLoadSignaturesCatalogByCallback(verifier_->Get(), &callback);
        if (core != vdsOk) {
            Log("LoadExternalSignaturesCatalog",
                "VdsLoadSignaturesCatalogByCallback() failed; VdsResult=", VdsResultText(core));
            return ToFrameworkResult(core);
        }
        return ruk::result::Success;
    });
}

}  // namespace crypto::vds::service
