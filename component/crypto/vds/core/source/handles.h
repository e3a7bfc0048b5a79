#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "catalog.h"
#include "vds/vds_core.h"

// What the opaque handles of the core interface hold.

struct AsndCertificate {
    std::shared_ptr<X509> certificate;
    std::vector<std::uint8_t> serial;
};

struct VdsRevocationDatabase {
    std::shared_ptr<X509_CRL> crl;
    std::vector<std::uint8_t> hierarchyId;  // empty when the CRL does not name its root
    VdsRevocationDbInfo info{};
};

struct VdsRevocationContainer {
    std::vector<std::unique_ptr<VdsRevocationDatabase>> databases;
};

namespace vds::core {

struct LoadedDatabase {
    std::shared_ptr<X509_CRL> crl;
    std::vector<std::uint8_t> hierarchyId;
    std::int64_t issueDate = 0;
    std::set<std::string> revokedSerials;  // upper-case hex, as SerialText writes them
};

struct RevocationCheckerData {
    std::map<std::vector<std::uint8_t>, std::shared_ptr<const LoadedDatabase>> byHierarchy;
};

}  // namespace vds::core

struct VdsLoadedRevocationDb {
    std::shared_ptr<const vds::core::LoadedDatabase> database;
};

struct VdsRevocationChecker {
    std::shared_ptr<const vds::core::RevocationCheckerData> data;
};

struct VdsVerifier {
    std::shared_ptr<X509_STORE> store;
    std::vector<std::shared_ptr<X509>> roots;
    std::shared_ptr<const vds::core::RevocationCheckerData> revocation;  // may be null
    IVdsVerificationResultHandler* handler = nullptr;                    // may be null
    std::vector<std::shared_ptr<const vds::core::Catalog>> catalogs;
};
