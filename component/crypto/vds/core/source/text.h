#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "vds/vds_types.h"

// Readable forms of certificate fields for the result handler and lookups.
namespace vds::core {

// Serial number as upper-case hex of its bytes without leading zero bytes
// ("0" for zero).
std::string SerialText(const ASN1_INTEGER* serial);
std::vector<std::uint8_t> SerialBytes(const ASN1_INTEGER* serial);
// RFC 2253 form, UTF-8 kept as is.
std::string NameText(const X509_NAME* name);
// "YYYY-MM-DD hh:mm:ss UTC"; "<invalid>" when the time does not parse.
std::string TimeText(const ASN1_TIME* time);
// Seconds since 1970-01-01 UTC; false when the time does not parse.
bool ToUnixTime(const ASN1_TIME* time, std::int64_t* seconds);
// The extended-key-usage OIDs in dotted form, joined with ", ".
std::string PurposesText(X509* certificate);
// True when the extended key usage holds the OID with these content bytes.
bool HasPurpose(X509* certificate, const VdsBlob& purpose);

// Owns the texts behind a VdsCertificateInfo.
class CertificateText {
public:
    explicit CertificateText(X509* certificate);
    VdsCertificateInfo View() const;
    const std::string& Serial() const { return serial_; }
    const std::string& Subject() const { return subject_; }

private:
    std::string serial_, notBefore_, notAfter_, subject_, issuer_, purposes_;
};

}  // namespace vds::core
