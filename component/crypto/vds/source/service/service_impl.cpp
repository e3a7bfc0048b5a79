#include "service/exception_boundary.h"
#include "service/internal_factory.h"
#include "service/log.h"
#include "service/revocation_checker_factory_impl.h"
#include "service/utils.h"

namespace crypto::vds::service {
namespace {

ruk::result_t CreateVerifier(const std::vector<ByteRange>& trustedRoots,
                             const std::vector<ByteRange>& optCrlRoots, ByteRange crlContainer,
                             IVdsSignatureVerifierPtr* verifier) {
    const char* function = "VdsCreateVerifierWithOptionalCrls";
    if (verifier == nullptr || (crlContainer.data == nullptr && crlContainer.size != 0)) {
        return ruk::result::InvalidArgument;
    }
    if (trustedRoots.empty() && optCrlRoots.empty()) {
        Log(function, "no trusted roots are provided");
        return ToFrameworkResult(vdsErrInvalidArgument);
    }
    const VdsResult core = VdsInitializeLibrary();
    if (core != vdsOk) {
        Log(function, "VdsInitializeLibrary() failed; VdsResult=", VdsResultText(core));
        return ToFrameworkResult(core);
    }
    if (crlContainer.size == 0 && !trustedRoots.empty()) {
        // Revocation is only ever skipped for roots that allow it.
        Log(function, "no revocation container, but ", trustedRoots.size(),
            " trusted root(s) require a revocation database");
        return ruk::result::NotFound;
    }
    IVdsCrlProviderPtr provider;
    if (crlContainer.size != 0) {
        provider = ruk::MakeIntrusive<MemoryCrlProvider>(
            std::vector<std::uint8_t>(crlContainer.data, crlContainer.data + crlContainer.size));
    }
    const auto factory = ruk::MakeIntrusive<InternalFactory>(provider);
    common_objects::CoreRevocationCheckerPtr checker;
    if (provider) {
        VdsRevocationCheckerFactoryImplPtr revocation;
        ruk::result_t code = factory->CreateRevocationCheckerFactory(&revocation);
        if (ruk::Succeeded(code)) {
            code = revocation->Setup(trustedRoots, optCrlRoots, testRootPolicyNone);
        }
        if (ruk::Succeeded(code)) {
            code = revocation->CreateRevocationChecker(&checker);
        }
        if (ruk::Failed(code)) {
            return code;
        }
    }
    std::vector<ByteRange> roots = trustedRoots;
    roots.insert(roots.end(), optCrlRoots.begin(), optCrlRoots.end());
    return factory->CreateSignatureVerifier(roots, checker, verifier);
}

}  // namespace

std::string VerificationFlagsText(VdsVerificationFlags flags) {
    return VerificationFlagsToString(flags);
}

ruk::result_t VdsCreateVerifierWithOptionalCrls(const std::vector<ByteRange>& trustedRoots,
                                                const std::vector<ByteRange>& optCrlRoots,
                                                ByteRange crlContainer,
                                                IVdsSignatureVerifierPtr* verifier) {
    const char* function = "VdsCreateVerifierWithOptionalCrls";
    return ManageExceptions(function, [&] {
        Log(function, "BEGIN rootsCount=", trustedRoots.size(),
            ", optCrlRootsCount=", optCrlRoots.size(), ", crlContainerSize=", crlContainer.size);
        const ruk::result_t code = ManageExceptions(function, [&] {
            return CreateVerifier(trustedRoots, optCrlRoots, crlContainer, verifier);
        });
        Log(function, "END: ", code);
        return code;
    });
}

}  // namespace crypto::vds::service
