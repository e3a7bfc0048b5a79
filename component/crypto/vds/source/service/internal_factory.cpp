#include "service/internal_factory.h"

#include "service/exception_boundary.h"
#include "service/io_reader.h"
#include "service/log.h"
#include "service/revocation_checker_factory_impl.h"
#include "service/signature_verifier_impl.h"

namespace crypto::vds::service {
namespace {

ruk::result_t InitializeCore(const char* function) {
    const VdsResult core = VdsInitializeLibrary();
    if (core != vdsOk) {
        Log(function, "VdsInitializeLibrary() failed; VdsResult=", VdsResultText(core));
    }
    return ToFrameworkResult(core);
}

}  // namespace

InternalFactory::InternalFactory(IVdsCrlProviderPtr crlProvider,
                                 common_objects::VerificationResultHandlerImplPtr handler)
    : crlProvider_(std::move(crlProvider)), handler_(std::move(handler)) {}

ruk::result_t InternalFactory::GetCrlProvider(IVdsCrlProviderPtr* provider) {
    if (provider == nullptr) {
        return ruk::result::InvalidArgument;
    }
    if (!crlProvider_) {
        Log(__func__, "Failed to get IVdsCrlProvider service interface");
        return ruk::result::NotFound;
    }
    *provider = crlProvider_;
    return ruk::result::Success;
}

ruk::result_t InternalFactory::CreateSignatureVerifier(
    const std::vector<ByteRange>& roots, common_objects::CoreRevocationCheckerPtr checker,
    IVdsSignatureVerifierPtr* verifier) {
    return ManageExceptions(__func__, [&]() -> ruk::result_t {
        if (verifier == nullptr) {
            return ruk::result::InvalidArgument;
        }
        const ruk::result_t initialized = InitializeCore("CreateSignatureVerifier");
        if (ruk::Failed(initialized)) {
            return initialized;
        }
        std::vector<VdsBlob> blobs;
        for (const auto& root : roots) {
            blobs.push_back({root.data, root.size});
        }
        VdsVerifier* created = nullptr;
        const VdsResult core =
            VdsCreateVerifier_Ex(blobs.data(), blobs.size(), checker ? checker->Get() : nullptr,
                                 handler_.get(), &created);
        common_objects::CoreVerifier::Owned owned(created);
        if (core != vdsOk) {
            Log("CreateSignatureVerifier",
                "VdsCreateVerifier_Ex() failed; VdsResult=", VdsResultText(core));
            return ToFrameworkResult(core);
        }
        *verifier = ruk::MakeIntrusive<VdsSignatureVerifierImpl>(
            ruk::MakeIntrusive<common_objects::CoreVerifier>(std::move(owned)), handler_,
            std::move(checker));
        return ruk::result::Success;
    });
}

ruk::result_t InternalFactory::CreateRevocationCheckerFactory(
    ruk::intrusive_ptr<VdsRevocationCheckerFactoryImpl>* factory) {
    return ManageExceptions(__func__, [&]() -> ruk::result_t {
        if (factory == nullptr) {
            return ruk::result::InvalidArgument;
        }
        IVdsCrlProviderPtr provider;
        ruk::result_t code = InitializeCore("CreateRevocationCheckerFactory");
        if (ruk::Succeeded(code)) {
            code = GetCrlProvider(&provider);
        }
        if (ruk::Failed(code)) {
            return code;
        }
        ruk::intrusive_ptr<ruk::IIO> io;
        code = provider->OpenCrlContainer(&io);
        if (ruk::Failed(code)) {
            return code;
        }
        std::vector<std::uint8_t> container;
        code = IoReader(*io, ReaderContent::RevocationContainer).ReadAll(&container);
        if (ruk::Failed(code)) {
            return code;
        }
        *factory = ruk::MakeIntrusive<VdsRevocationCheckerFactoryImpl>(this, container);
        return ruk::result::Success;
    });
}

ruk::result_t InternalFactory::ValidateRevocationDatabase(
    const common_objects::CoreLoadedDatabase& database,
    const common_objects::CoreCertificate& root) {
    const VdsResult core = VdsRevocationValidateDb(database.Get(), root.Get());
    if (core != vdsOk) {
        Log(__func__, "VdsRevocationValidateDb() failed; VdsResult=", VdsResultText(core));
        return ToFrameworkResult(core);
    }
    return ruk::result::Success;
}

}  // namespace crypto::vds::service
