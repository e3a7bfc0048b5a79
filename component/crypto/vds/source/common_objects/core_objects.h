#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ruk/intrusive_ptr.h"
#include "vds/vds_core.h"

// Framework objects that own one handle of the core library each, so that
// the service can share them through ruk::intrusive_ptr.
namespace crypto::vds::common_objects {

template <typename Handle, void (*Release)(Handle*)>
class CoreObject : public ruk::RefCounted {
public:
    struct Releaser {
        void operator()(Handle* handle) const { Release(handle); }
    };
    // A handle owned from the moment the core hands it out. Wrap it at once
    // and pass it on as an rvalue: when allocating the framework object
    // throws, the handle is still released.
    using Owned = std::unique_ptr<Handle, Releaser>;

    explicit CoreObject(Owned&& handle) : handle_(std::move(handle)) {}
    Handle* Get() const { return handle_.get(); }

private:
    Owned handle_;
};

using CoreVerifier = CoreObject<VdsVerifier, VdsReleaseVerifier>;
using CoreRevocationChecker = CoreObject<VdsRevocationChecker, VdsReleaseRevocationChecker>;
using CoreRevocationContainer = CoreObject<VdsRevocationContainer, VdsRevocationReleaseContainer>;
using CoreCertificate = CoreObject<AsndCertificate, AsndReleaseCertificate>;

// A loaded revocation database with the facts the service logs about it.
class CoreLoadedDatabase : public CoreObject<VdsLoadedRevocationDb, VdsRevocationReleaseDb> {
public:
    CoreLoadedDatabase(Owned&& handle, std::vector<std::uint8_t>&& hierarchyId,
                       VdsRevocationDbInfo info)
        : CoreObject(std::move(handle)), hierarchyId_(std::move(hierarchyId)), info_(info) {}

    const std::vector<std::uint8_t>& GetHierarchyId() const { return hierarchyId_; }
    const VdsRevocationDbInfo& GetInfo() const { return info_; }

private:
    std::vector<std::uint8_t> hierarchyId_;
    VdsRevocationDbInfo info_;
};

using CoreVerifierPtr = ruk::intrusive_ptr<CoreVerifier>;
using CoreRevocationCheckerPtr = ruk::intrusive_ptr<CoreRevocationChecker>;
using CoreCertificatePtr = ruk::intrusive_ptr<CoreCertificate>;
using CoreLoadedDatabasePtr = ruk::intrusive_ptr<CoreLoadedDatabase>;

}  // namespace crypto::vds::common_objects
