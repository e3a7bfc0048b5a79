#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The Authenticode signature of a PE program: a PKCS#7 SignedData whose
// content is an SpcIndirectDataContent holding the image digest.
namespace vds::format {

constexpr const char* kSpcIndirectDataOid = "1.3.6.1.4.1.311.2.1.4";
constexpr const char* kSpcPeImageDataOid = "1.3.6.1.4.1.311.2.1.15";
// Unsigned attributes a program's signature may carry: further signatures
// of the same image, and timestamps.
constexpr const char* kSpcNestedSignatureOid = "1.3.6.1.4.1.311.2.4.1";
constexpr const char* kRfc3161TimestampOid = "1.3.6.1.4.1.311.3.3.1";
constexpr const char* kCounterSignatureOid = "1.2.840.113549.1.9.6";

// Authenticode carries the SpcIndirectDataContent as a bare SEQUENCE where
// CMS has an OCTET STRING; both have the same length, and the content
// octets are what the messageDigest attribute covers. Changes the tag of the
// encapsulated content of a DER ContentInfo from `from` to `to` in place;
// false when the bytes hold no such content.
bool RetagEncapsulatedContent(std::vector<std::uint8_t>* der, std::uint8_t from, std::uint8_t to);

// Turns what OpenSSL's CMS writes for a SignedData with that content into
// Authenticode: the content as a SEQUENCE, and SignedData version 1 where
// CMS writes 3 for any content type but id-data. Neither is covered by the
// signature. False when the bytes are not such a SignedData.
bool CmsToAuthenticode(std::vector<std::uint8_t>* der);

struct IndirectDataDigest {
    std::vector<std::uint8_t> algorithm;  // the DigestInfo's algorithm OID, DER
    std::vector<std::uint8_t> digest;
};

// Reads the content octets of an SpcIndirectDataContent whose data is
// SpcPeImageData; false for anything else.
bool ParseIndirectData(const std::uint8_t* content, std::size_t size, IndirectDataDigest* parsed);

// The content octets of an SpcIndirectDataContent for a PE image digest.
std::vector<std::uint8_t> MakeIndirectData(const IndirectDataDigest& digest);

// The DER OID element of a dotted OID; empty when it does not parse.
std::vector<std::uint8_t> EncodeOid(const char* dotted);

}  // namespace vds::format
