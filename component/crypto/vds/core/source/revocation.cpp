#include <limits>

#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>

#include "check_cache.h"
#include "handles.h"
#include "library.h"
#include "openssl_handles.h"
#include "ruk/hex.h"
#include "text.h"

namespace vds::core {
namespace {

std::vector<std::uint8_t> HierarchyIdOf(X509_CRL* crl) {
    OpenSslPtr<AUTHORITY_KEYID> keyId(static_cast<AUTHORITY_KEYID*>(
        X509_CRL_get_ext_d2i(crl, NID_authority_key_identifier, nullptr, nullptr)));
    ERR_clear_error();
    if (!keyId || keyId->serial == nullptr) {
        return {};
    }
    return SerialBytes(keyId->serial);
}

VdsResult LoadDatabase(const VdsRevocationDatabase& database,
                       std::shared_ptr<const LoadedDatabase>* loaded) {
    if (database.hierarchyId.empty()) {
        return vdsErrInvalidFormat;
    }
    // Version 2 (value 1): only v2 CRLs carry the extension that names the root.
    if (X509_CRL_get_version(database.crl.get()) != 1) {
        return vdsErrInvalidFormat;
    }
    auto result = std::make_shared<LoadedDatabase>();
    result->crl = database.crl;
    result->hierarchyId = database.hierarchyId;
    result->issueDate = database.info.issueDate;
    STACK_OF(X509_REVOKED)* revoked = X509_CRL_get_REVOKED(database.crl.get());
    for (int index = 0; index < sk_X509_REVOKED_num(revoked); ++index) {
        result->revokedSerials.insert(
            SerialText(X509_REVOKED_get0_serialNumber(sk_X509_REVOKED_value(revoked, index))));
    }
    *loaded = std::move(result);
    return vdsOk;
}

template <typename Object, int (*Encode)(const Object*, unsigned char**)>
std::string Der(const Object* object) {
    unsigned char* der = nullptr;
    const int length = Encode(object, &der);
    const OpenSslBytes owned(der);
    if (length <= 0) {
        ERR_clear_error();
        throw std::bad_alloc();
    }
    return std::string(reinterpret_cast<const char*>(der), static_cast<std::size_t>(length));
}

std::string DerOf(const X509_CRL* crl) {
    return Der<X509_CRL, i2d_X509_CRL>(crl);
}
std::string DerOf(const X509* certificate) {
    return Der<X509, i2d_X509>(certificate);
}

}  // namespace
}  // namespace vds::core

using vds::core::Guard;

VdsResult VdsRevocationLoadContainer(const VdsBlob* container, VdsRevocationContainer** handle) {
    return Guard([&]() -> VdsResult {
        if (container == nullptr || handle == nullptr ||
            (container->data == nullptr && container->size != 0)) {
            return vdsErrInvalidArgument;
        }
        if (!vds::core::IsLibraryInitialized()) {
            return vdsErrNotInitialized;
        }
        if (container->size == 0 ||
            container->size > static_cast<std::size_t>(std::numeric_limits<long>::max())) {
            return vdsErrInvalidFormat;
        }
        const unsigned char* cursor = container->data;
        vds::core::OpenSslPtr<PKCS7> pkcs7(
            d2i_PKCS7(nullptr, &cursor, static_cast<long>(container->size)));
        if (!pkcs7 || cursor != container->data + container->size ||
            !PKCS7_type_is_signed(pkcs7.get()) || pkcs7->d.sign == nullptr) {
            ERR_clear_error();
            return vdsErrInvalidFormat;
        }
        auto loaded = std::make_unique<VdsRevocationContainer>();
        STACK_OF(X509_CRL)* crls = pkcs7->d.sign->crl;
        for (int index = 0; index < sk_X509_CRL_num(crls); ++index) {
            auto database = std::make_unique<VdsRevocationDatabase>();
            database->crl = vds::core::ShareCrl(sk_X509_CRL_value(crls, index));
            database->hierarchyId = vds::core::HierarchyIdOf(database->crl.get());
            std::int64_t issueDate = 0;
            vds::core::ToUnixTime(X509_CRL_get0_lastUpdate(database->crl.get()), &issueDate);
            const int size = i2d_X509_CRL(database->crl.get(), nullptr);
            database->info = {issueDate, size > 0 ? static_cast<std::uint64_t>(size) : 0};
            loaded->databases.push_back(std::move(database));
        }
        *handle = loaded.release();
        return vdsOk;
    });
}

void VdsRevocationReleaseContainer(VdsRevocationContainer* handle) {
    delete handle;
}

VdsResult VdsRevocationGetDatabaseCount(const VdsRevocationContainer* handle, std::size_t* count) {
    if (handle == nullptr || count == nullptr) {
        return vdsErrInvalidArgument;
    }
    *count = handle->databases.size();
    return vdsOk;
}

VdsResult VdsRevocationGetDatabase(const VdsRevocationContainer* handle, std::size_t index,
                                   const VdsRevocationDatabase** database) {
    if (handle == nullptr || database == nullptr) {
        return vdsErrInvalidArgument;
    }
    if (index >= handle->databases.size()) {
        return vdsErrNotFound;
    }
    *database = handle->databases[index].get();
    return vdsOk;
}

VdsResult VdsRevocationGetHierarchyId(const VdsRevocationDatabase* database, VdsBlob* id) {
    if (database == nullptr || id == nullptr) {
        return vdsErrInvalidArgument;
    }
    if (database->hierarchyId.empty()) {
        return vdsErrInvalidFormat;
    }
    *id = {database->hierarchyId.data(), database->hierarchyId.size()};
    return vdsOk;
}

VdsResult VdsRevocationGetDbInfo(const VdsRevocationDatabase* database, VdsRevocationDbInfo* info) {
    if (database == nullptr || info == nullptr) {
        return vdsErrInvalidArgument;
    }
    *info = database->info;
    return vdsOk;
}

VdsResult VdsRevocationLoadDb(const VdsRevocationDatabase* database, std::size_t index,
                              IVdsVerificationResultHandler* handler,
                              VdsLoadedRevocationDb** loaded) {
    return Guard([&]() -> VdsResult {
        if (database == nullptr || loaded == nullptr) {
            return vdsErrInvalidArgument;
        }
        std::shared_ptr<const vds::core::LoadedDatabase> result;
        const VdsResult code = vds::core::LoadDatabase(*database, &result);
        const std::string id = ruk::HexText(database->hierarchyId.data(),
                                            database->hierarchyId.size(), ruk::HexCase::Upper);
        if (code != vdsOk) {
            if (handler != nullptr) {
                handler->OnRdbLoadFailed(id.c_str(), index, code);
            }
            return code;
        }
        if (handler != nullptr) {
            handler->OnRevocationDbLoad(id.c_str(), result->issueDate);
        }
        *loaded = new VdsLoadedRevocationDb{std::move(result)};
        return vdsOk;
    });
}

void VdsRevocationReleaseDb(VdsLoadedRevocationDb* loaded) {
    delete loaded;
}

VdsResult VdsRevocationMatchRoot(const VdsLoadedRevocationDb* loaded, const AsndCertificate* root) {
    return Guard([&]() -> VdsResult {
        if (loaded == nullptr || root == nullptr) {
            return vdsErrInvalidArgument;
        }
        X509_CRL* crl = loaded->database->crl.get();
        X509* certificate = root->certificate.get();
        if (loaded->database->hierarchyId != root->serial ||
            X509_NAME_cmp(X509_CRL_get_issuer(crl), X509_get_subject_name(certificate)) != 0) {
            return vdsErrNotMatched;
        }
        vds::core::OpenSslPtr<AUTHORITY_KEYID> keyId(static_cast<AUTHORITY_KEYID*>(
            X509_CRL_get_ext_d2i(crl, NID_authority_key_identifier, nullptr, nullptr)));
        const ASN1_OCTET_STRING* subjectKeyId = X509_get0_subject_key_id(certificate);
        ERR_clear_error();
        if (keyId && keyId->keyid != nullptr && subjectKeyId != nullptr &&
            ASN1_OCTET_STRING_cmp(keyId->keyid, subjectKeyId) != 0) {
            return vdsErrNotMatched;
        }
        return vdsOk;
    });
}

VdsResult VdsRevocationValidateDb(const VdsLoadedRevocationDb* loaded,
                                  const AsndCertificate* root) {
    return Guard([&]() -> VdsResult {
        if (loaded == nullptr || root == nullptr) {
            return vdsErrInvalidArgument;
        }
        if (!vds::core::IsLibraryInitialized()) {
            return vdsErrNotInitialized;
        }
        X509_CRL* crl = loaded->database->crl.get();
        X509* certificate = root->certificate.get();
        const std::string key =
            "crl:" + vds::core::DerOf(crl) + "root:" + vds::core::DerOf(certificate);
        const bool valid = vds::core::CachedCheck(key, [&] {
            EVP_PKEY* rootKey = X509_get0_pubkey(certificate);
            const bool verified = rootKey != nullptr && X509_CRL_verify(crl, rootKey) == 1;
            ERR_clear_error();
            return verified;
        });
        return valid ? vdsOk : vdsErrInvalidSignature;
    });
}

VdsResult VdsCreateRevocationChecker(const VdsLoadedRevocationDb* const* databases,
                                     std::size_t count, VdsRevocationChecker** checker) {
    return Guard([&]() -> VdsResult {
        if (checker == nullptr || (databases == nullptr && count != 0)) {
            return vdsErrInvalidArgument;
        }
        auto data = std::make_shared<vds::core::RevocationCheckerData>();
        for (std::size_t index = 0; index < count; ++index) {
            if (databases[index] == nullptr) {
                return vdsErrInvalidArgument;
            }
            const auto& database = databases[index]->database;
            if (!data->byHierarchy.emplace(database->hierarchyId, database).second) {
                return vdsErrRdbAlreadyExists;
            }
        }
        *checker = new VdsRevocationChecker{std::move(data)};
        return vdsOk;
    });
}

std::size_t VdsRevocationCheckerGetDatabaseCount(const VdsRevocationChecker* checker) {
    return checker == nullptr ? 0 : checker->data->byHierarchy.size();
}

void VdsReleaseRevocationChecker(VdsRevocationChecker* checker) {
    delete checker;
}
