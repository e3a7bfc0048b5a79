#pragma once

#include <map>
#include <vector>

#include "common_objects/core_objects.h"
#include "service/internal_factory.h"

namespace crypto::vds::service {

// Selects and validates the revocation databases of one container and
// makes revocation checkers from them.
class VdsRevocationCheckerFactoryImpl : public ruk::RefCounted {
public:
    using DatabaseMap = std::map<std::vector<std::uint8_t>, common_objects::CoreLoadedDatabasePtr>;

    // Loads every database of the container; throws ruk::ResultException
    // when the container or one of its databases cannot be loaded.
    VdsRevocationCheckerFactoryImpl(InternalFactoryPtr factory,
                                    const std::vector<std::uint8_t>& container);

    // Chooses the databases for the roots: every trusted root (and with
    // CrlMustExist every test root) needs its database; each database used
    // must match and be signed by its root. Then makes the checker.
    ruk::result_t Setup(const std::vector<ByteRange>& trustedRoots,
                        const std::vector<ByteRange>& testRoots,
                        TestRootHandlingPolicyFlags policy);
    // The checker made by the last successful Setup.
    ruk::result_t CreateRevocationChecker(common_objects::CoreRevocationCheckerPtr* checker);

    std::size_t GetLoadedDatabaseCount() const { return loaded_.size(); }

    // The steps of Setup.
    ruk::result_t GetRequiredAndOptionalRoots(const std::vector<ByteRange>& trustedRoots,
                                              const std::vector<ByteRange>& testRoots,
                                              TestRootHandlingPolicyFlags policy,
                                              std::vector<ByteRange>* required,
                                              std::vector<ByteRange>* optional) const;
    ruk::result_t BuildUnverifiedDatabaseMap(DatabaseMap* map) const;
    ruk::result_t CheckAllRequiredRootsArePresent(const std::vector<ByteRange>& required,
                                                  const DatabaseMap& map) const;
    ruk::result_t ValidateWithRoot(const std::vector<ByteRange>& roots, const DatabaseMap& map,
                                   std::vector<common_objects::CoreLoadedDatabasePtr>* validated);
    ruk::result_t UpdateRevocationChecker(
        const std::vector<common_objects::CoreLoadedDatabasePtr>& databases);

private:
    void LoadDatabasesFromContainer(const std::vector<std::uint8_t>& container);

    InternalFactoryPtr factory_;
    std::vector<common_objects::CoreLoadedDatabasePtr> loaded_;
    common_objects::CoreRevocationCheckerPtr checker_;
};

using VdsRevocationCheckerFactoryImplPtr = ruk::intrusive_ptr<VdsRevocationCheckerFactoryImpl>;

// Parses a DER root certificate; failures are logged with its size and body.
ruk::result_t ParseRootCertificate(const char* function, ByteRange der,
                                   common_objects::CoreCertificatePtr* certificate);

}  // namespace crypto::vds::service
