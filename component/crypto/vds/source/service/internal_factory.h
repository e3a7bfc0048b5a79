#pragma once

#include <vector>

#include "common_objects/core_objects.h"
#include "common_objects/verification_result_handler_impl.h"
#include "crypto/vds/service/service.h"
#include "service/crl_provider.h"
#include "service/utils.h"

namespace crypto::vds::service {

class VdsRevocationCheckerFactoryImpl;

// Makes the service's objects; holds the CRL provider (if any) and the one
// result handler that every core object of this factory reports to.
class InternalFactory : public ruk::RefCounted {
public:
    explicit InternalFactory(
        IVdsCrlProviderPtr crlProvider,
        common_objects::VerificationResultHandlerImplPtr handler =
            ruk::MakeIntrusive<common_objects::VerificationResultHandlerImpl>());

    // Fails (logged "Failed to get IVdsCrlProvider service interface") when
    // the factory was made without one.
    ruk::result_t GetCrlProvider(IVdsCrlProviderPtr* provider);
    // A verifier trusting `roots`, checking revocation with `checker` (may be null).
    ruk::result_t CreateSignatureVerifier(const std::vector<ByteRange>& roots,
                                          common_objects::CoreRevocationCheckerPtr checker,
                                          IVdsSignatureVerifierPtr* verifier);
    // A revocation-checker factory over the provider's container.
    ruk::result_t CreateRevocationCheckerFactory(
        ruk::intrusive_ptr<VdsRevocationCheckerFactoryImpl>* factory);
    // Success when the database was signed by `root`.
    ruk::result_t ValidateRevocationDatabase(const common_objects::CoreLoadedDatabase& database,
                                             const common_objects::CoreCertificate& root);

    const common_objects::VerificationResultHandlerImplPtr& GetHandler() const { return handler_; }

private:
    IVdsCrlProviderPtr crlProvider_;
    common_objects::VerificationResultHandlerImplPtr handler_;
};

using InternalFactoryPtr = ruk::intrusive_ptr<InternalFactory>;

}  // namespace crypto::vds::service
