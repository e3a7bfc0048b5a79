#include "text.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/buffer.h>
#include <openssl/err.h>

#include "openssl_handles.h"
#include "ruk/hex.h"

namespace vds::core {

std::vector<std::uint8_t> SerialBytes(const ASN1_INTEGER* serial) {
    if (serial == nullptr) {
        return {};
    }
    const unsigned char* data = ASN1_STRING_get0_data(serial);
    const int length = ASN1_STRING_length(serial);
    std::vector<std::uint8_t> bytes(data, data + length);
    // Leading zero octets carry no value.
    std::size_t first = 0;
    while (first + 1 < bytes.size() && bytes[first] == 0) {
        ++first;
    }
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(first));
    return bytes;
}

std::string SerialText(const ASN1_INTEGER* serial) {
    const auto bytes = SerialBytes(serial);
    if (bytes.empty()) {
        return "0";
    }
    const std::string text = ruk::HexText(bytes.data(), bytes.size(), ruk::HexCase::Upper);
    const bool negative = serial != nullptr && ASN1_STRING_type(serial) == V_ASN1_NEG_INTEGER;
    return negative ? "-" + text : text;
}

std::string NameText(const X509_NAME* name) {
    if (name == nullptr) {
        return {};
    }
    OpenSslPtr<BIO> bio(BIO_new(BIO_s_mem()));
    if (!bio ||
        X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0) {
        ERR_clear_error();
        return {};
    }
    BUF_MEM* memory = nullptr;
    BIO_get_mem_ptr(bio.get(), &memory);
    return std::string(memory->data, memory->length);
}

std::string TimeText(const ASN1_TIME* time) {
    std::tm parts{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) {
        ERR_clear_error();
        return "<invalid>";
    }
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d UTC", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

bool ToUnixTime(const ASN1_TIME* time, std::int64_t* seconds) {
    OpenSslPtr<ASN1_TIME> epoch(ASN1_TIME_set(nullptr, 0));
    int days = 0;
    int rest = 0;
    if (time == nullptr || !epoch || ASN1_TIME_diff(&days, &rest, epoch.get(), time) != 1) {
        ERR_clear_error();
        return false;
    }
    *seconds = static_cast<std::int64_t>(days) * 86400 + rest;
    return true;
}

namespace {

OpenSslPtr<EXTENDED_KEY_USAGE> GetExtendedKeyUsage(X509* certificate) {
    auto* usage = static_cast<EXTENDED_KEY_USAGE*>(
        X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr));
    ERR_clear_error();
    return OpenSslPtr<EXTENDED_KEY_USAGE>(usage);
}

}  // namespace

std::string PurposesText(X509* certificate) {
    const auto usage = GetExtendedKeyUsage(certificate);
    std::string text;
    for (int index = 0; usage && index < sk_ASN1_OBJECT_num(usage.get()); ++index) {
        char oid[128];
        if (OBJ_obj2txt(oid, sizeof(oid), sk_ASN1_OBJECT_value(usage.get(), index), 1) <= 0) {
            continue;
        }
        if (!text.empty()) {
            text += ", ";
        }
        text += oid;
    }
    return text;
}

bool HasPurpose(X509* certificate, const VdsBlob& purpose) {
    const auto usage = GetExtendedKeyUsage(certificate);
    for (int index = 0; usage && index < sk_ASN1_OBJECT_num(usage.get()); ++index) {
        const ASN1_OBJECT* object = sk_ASN1_OBJECT_value(usage.get(), index);
        const std::size_t length = OBJ_length(object);
        if (length == purpose.size && length != 0 &&
            std::memcmp(OBJ_get0_data(object), purpose.data, length) == 0) {
            return true;
        }
    }
    return false;
}

CertificateText::CertificateText(X509* certificate)
    : serial_(SerialText(X509_get0_serialNumber(certificate))),
      notBefore_(TimeText(X509_get0_notBefore(certificate))),
      notAfter_(TimeText(X509_get0_notAfter(certificate))),
      subject_(NameText(X509_get_subject_name(certificate))),
      issuer_(NameText(X509_get_issuer_name(certificate))),
      purposes_(PurposesText(certificate)) {}

VdsCertificateInfo CertificateText::View() const {
    return {serial_.c_str(),  notBefore_.c_str(), notAfter_.c_str(),
            subject_.c_str(), issuer_.c_str(),    purposes_.c_str()};
}

}  // namespace vds::core
