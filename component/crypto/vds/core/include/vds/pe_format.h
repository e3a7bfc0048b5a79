#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "vds/vds_types.h"

// Where a signature sits in a PE32 / PE32+ program: the certificate table
// named by the security data directory, a run of 8-byte aligned
// WIN_CERTIFICATE entries at the end of the file.
namespace vds::format {

constexpr std::uint16_t kWinCertificateRevision = 0x0200;
constexpr std::uint16_t kWinCertificateTypePkcsSignedData = 0x0002;
constexpr std::size_t kWinCertificateHeaderSize = 8;
// The loader refuses more sections than this; more is corrupt or hostile.
constexpr std::uint16_t kMaxPeSections = 96;
// Room for a nested signature or two with their chains; more is corrupt.
constexpr std::uint32_t kMaxCertificateTableSize = 4 * 1024 * 1024;
constexpr std::size_t kMaxWinCertificates = 8;

enum class PeStatus {
    NotPe,      // no DOS header or no PE signature: not a program
    Malformed,  // a program whose headers or certificate table cannot be trusted
    Parsed,
};

enum class PeKind { Pe32, Pe32Plus };

struct PeSection {
    std::uint64_t offset = 0;  // PointerToRawData
    std::uint64_t size = 0;    // SizeOfRawData
};

struct WinCertificate {
    std::uint64_t offset = 0;  // of the entry's header
    std::uint32_t length = 0;  // dwLength, header included
    // The PKCS#7 SignedData follows the header.
    std::uint64_t ContentOffset() const { return offset + kWinCertificateHeaderSize; }
    std::uint32_t ContentSize() const {
        return length - static_cast<std::uint32_t>(kWinCertificateHeaderSize);
    }
};

struct PeLayout {
    PeKind kind = PeKind::Pe32;
    std::uint64_t headersSize = 0;     // SizeOfHeaders
    std::uint64_t checksumOffset = 0;  // the 4-byte CheckSum field
    // The 8-byte security directory entry; 0 when the directory list is
    // too short to have one.
    std::uint64_t securityEntryOffset = 0;
    std::vector<PeSection> sections;  // those with raw data, in table order
    // The certificate table; both 0 for an unsigned program.
    std::uint64_t tableOffset = 0;
    std::uint64_t tableSize = 0;
    std::vector<WinCertificate> certificates;
};

// Reads exactly `size` bytes at `offset` of the file; vdsOk or the reason.
using PeRead = std::function<VdsResult(std::uint64_t offset, void* buffer, std::size_t size)>;

// Parses the headers of a file of `fileSize` bytes. A failed read is
// returned as it is; anything the bytes say that does not hold together is
// PeStatus::Malformed. `layout` is filled only when Parsed.
VdsResult ParsePe(const PeRead& read, std::uint64_t fileSize, PeStatus* status, PeLayout* layout);

struct ByteRange {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

// The bytes the Authenticode image digest covers, in file order: everything
// before the certificate table except the CheckSum field and the security
// directory entry, which signing changes.
std::vector<ByteRange> ImageDigestRanges(const PeLayout& layout, std::uint64_t fileSize);

// The CheckSum field's value for a program of these bytes: the 16-bit
// one's-complement-style sum of the file, the field itself left out, plus
// the file size.
std::uint32_t PeChecksum(const std::uint8_t* bytes, std::size_t size, std::uint64_t checksumOffset);

}  // namespace vds::format
