#include "certificate.h"

#include <limits>

#include <openssl/err.h>

#include "check_cache.h"
#include "handles.h"
#include "library.h"
#include "text.h"

namespace vds::core {

std::shared_ptr<X509> ParseCertificate(const std::uint8_t* der, std::size_t size,
                                       VdsResult* result) {
    if (der == nullptr || size == 0 ||
        size > static_cast<std::size_t>(std::numeric_limits<long>::max())) {
        *result = vdsErrInvalidArgument;
        return nullptr;
    }
    const unsigned char* cursor = der;
    std::shared_ptr<X509> certificate(d2i_X509(nullptr, &cursor, static_cast<long>(size)),
                                      X509_free);
    if (!certificate || cursor != der + size) {
        ERR_clear_error();
        *result = vdsErrInvalidFormat;
        return nullptr;
    }
    EVP_PKEY* key = X509_get0_pubkey(certificate.get());
    if (key == nullptr) {
        ERR_clear_error();
        *result = vdsErrInvalidFormat;
        return nullptr;
    }
    const bool selfIssued = X509_NAME_cmp(X509_get_subject_name(certificate.get()),
                                          X509_get_issuer_name(certificate.get())) == 0;
    if (selfIssued && !CachedCheck("self-signed:" + std::string(der, der + size), [&] {
            const bool valid = X509_verify(certificate.get(), key) == 1;
            ERR_clear_error();
            return valid;
        })) {
        *result = vdsErrInvalidSignature;
        return nullptr;
    }
    *result = vdsOk;
    return certificate;
}

}  // namespace vds::core

VdsResult AsndParseAndValidateCertificate(const std::uint8_t* der, std::size_t size,
                                          AsndCertificate** certificate) {
    return vds::core::Guard([&]() -> VdsResult {
        if (certificate == nullptr) {
            return vdsErrInvalidArgument;
        }
        if (!vds::core::IsLibraryInitialized()) {
            return vdsErrNotInitialized;
        }
        VdsResult result = vdsOk;
        auto parsed = vds::core::ParseCertificate(der, size, &result);
        if (!parsed) {
            return result;
        }
        auto handle = std::make_unique<AsndCertificate>();
        handle->serial = vds::core::SerialBytes(X509_get0_serialNumber(parsed.get()));
        handle->certificate = std::move(parsed);
        *certificate = handle.release();
        return vdsOk;
    });
}

VdsResult AsndGetCertificateSerialNumber(const AsndCertificate* certificate, VdsBlob* serial) {
    if (certificate == nullptr || serial == nullptr) {
        return vdsErrInvalidArgument;
    }
    *serial = {certificate->serial.data(), certificate->serial.size()};
    return vdsOk;
}

void AsndReleaseCertificate(AsndCertificate* certificate) {
    delete certificate;
}
