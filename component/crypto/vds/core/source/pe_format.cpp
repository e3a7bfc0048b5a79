#include "vds/pe_format.h"

#include <array>
#include <utility>

namespace vds::format {
namespace {

constexpr std::size_t kDosHeaderSize = 64;
constexpr std::size_t kLfanewOffset = 0x3C;
constexpr std::size_t kPeSignatureSize = 4;
constexpr std::size_t kCoffHeaderSize = 20;
constexpr std::size_t kSectionHeaderSize = 40;
constexpr std::uint16_t kMagicPe32 = 0x10B;
constexpr std::uint16_t kMagicPe32Plus = 0x20B;
// Offsets inside the optional header.
constexpr std::size_t kSizeOfHeadersOffset = 60;
constexpr std::size_t kCheckSumOffset = 64;
constexpr std::size_t kSecurityDirectoryIndex = 4;
constexpr std::size_t kDirectoryEntrySize = 8;

std::uint16_t Load16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

std::uint32_t Load32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

// True when [offset, offset + size) lies inside a file of `fileSize` bytes;
// written so that no sum can wrap.
bool Inside(std::uint64_t offset, std::uint64_t size, std::uint64_t fileSize) {
    return offset <= fileSize && size <= fileSize - offset;
}

class PeParser {
public:
    PeParser(const PeRead& read, std::uint64_t fileSize, PeLayout* layout)
        : read_(read), fileSize_(fileSize), layout_(*layout) {}

    VdsResult Run(PeStatus* status) {
        *status = PeStatus::NotPe;
        std::uint64_t peOffset = 0;
        VdsResult result = FindPeSignature(&peOffset, status);
        if (result != vdsOk || *status == PeStatus::NotPe) {
            return result;
        }
        *status = PeStatus::Malformed;
        bool valid = false;
        result = ReadHeaders(peOffset, &valid);
        if (result != vdsOk || !valid) {
            return result;
        }
        result = ReadCertificateTable(&valid);
        if (result != vdsOk || !valid) {
            return result;
        }
        *status = PeStatus::Parsed;
        return vdsOk;
    }

private:
    VdsResult FindPeSignature(std::uint64_t* peOffset, PeStatus* status) {
        std::array<std::uint8_t, kDosHeaderSize> dos{};
        if (fileSize_ < dos.size()) {
            return vdsOk;
        }
        VdsResult result = read_(0, dos.data(), dos.size());
        if (result != vdsOk || dos[0] != 'M' || dos[1] != 'Z') {
            return result;
        }
        // A DOS program whose e_lfanew leads nowhere is no PE program: it is
        // checked like any other file.
        const std::uint64_t lfanew = Load32(dos.data() + kLfanewOffset);
        if (!Inside(lfanew, kPeSignatureSize, fileSize_)) {
            return vdsOk;
        }
        std::array<std::uint8_t, kPeSignatureSize> signature{};
        result = read_(lfanew, signature.data(), signature.size());
        if (result != vdsOk) {
            return result;
        }
        if (signature == std::array<std::uint8_t, kPeSignatureSize>{'P', 'E', 0, 0}) {
            *peOffset = lfanew;
            *status = PeStatus::Parsed;
        }
        return vdsOk;
    }

    VdsResult ReadHeaders(std::uint64_t peOffset, bool* valid) {
        const std::uint64_t coffOffset = peOffset + kPeSignatureSize;
        std::array<std::uint8_t, kCoffHeaderSize> coff{};
        if (!Inside(coffOffset, coff.size() + 2, fileSize_)) {
            return vdsOk;
        }
        VdsResult result = read_(coffOffset, coff.data(), coff.size());
        if (result != vdsOk) {
            return result;
        }
        const std::uint16_t sectionCount = Load16(coff.data() + 2);
        const std::uint16_t optionalSize = Load16(coff.data() + 16);
        const std::uint64_t optionalOffset = coffOffset + coff.size();
        if (sectionCount > kMaxPeSections || !Inside(optionalOffset, optionalSize, fileSize_)) {
            return vdsOk;
        }
        std::vector<std::uint8_t> optional(optionalSize);
        if (optionalSize < 2) {
            return vdsOk;
        }
        result = read_(optionalOffset, optional.data(), optional.size());
        if (result != vdsOk) {
            return result;
        }
        const std::uint16_t magic = Load16(optional.data());
        std::size_t directoryCountOffset = 0;
        if (magic == kMagicPe32) {
            layout_.kind = PeKind::Pe32;
            directoryCountOffset = 92;
        } else if (magic == kMagicPe32Plus) {
            layout_.kind = PeKind::Pe32Plus;
            directoryCountOffset = 108;
        } else {
            return vdsOk;
        }
        const std::size_t directoriesOffset = directoryCountOffset + 4;
        if (optional.size() < directoriesOffset) {
            return vdsOk;
        }
        // The directory count may not claim more entries than the optional
        // header holds.
        const std::uint64_t directoryCount = Load32(optional.data() + directoryCountOffset);
        if (directoryCount > (optional.size() - directoriesOffset) / kDirectoryEntrySize) {
            return vdsOk;
        }
        layout_.headersSize = Load32(optional.data() + kSizeOfHeadersOffset);
        layout_.checksumOffset = optionalOffset + kCheckSumOffset;

        const std::uint64_t sectionTableOffset = optionalOffset + optionalSize;
        const std::uint64_t sectionTableSize =
            static_cast<std::uint64_t>(sectionCount) * kSectionHeaderSize;
        if (!Inside(sectionTableOffset, sectionTableSize, fileSize_) ||
            layout_.headersSize < sectionTableOffset + sectionTableSize ||
            layout_.headersSize > fileSize_) {
            return vdsOk;
        }
        std::vector<std::uint8_t> sectionTable(static_cast<std::size_t>(sectionTableSize));
        // A program without sections has no table to read; an empty read
        // would hand the callback no buffer at all.
        if (!sectionTable.empty()) {
            result = read_(sectionTableOffset, sectionTable.data(), sectionTable.size());
            if (result != vdsOk) {
                return result;
            }
        }
        for (std::size_t index = 0; index < sectionCount; ++index) {
            const std::uint8_t* header = sectionTable.data() + index * kSectionHeaderSize;
            PeSection section{Load32(header + 20), Load32(header + 16)};
            if (section.size == 0) {
                continue;
            }
            if (!Inside(section.offset, section.size, fileSize_)) {
                return vdsOk;
            }
            layout_.sections.push_back(section);
        }

        if (directoryCount > kSecurityDirectoryIndex) {
            const std::size_t entry =
                directoriesOffset + kSecurityDirectoryIndex * kDirectoryEntrySize;
            layout_.securityEntryOffset = optionalOffset + entry;
            layout_.tableOffset = Load32(optional.data() + entry);
            layout_.tableSize = Load32(optional.data() + entry + 4);
        }
        *valid = true;
        return vdsOk;
    }

    VdsResult ReadCertificateTable(bool* valid) {
        *valid = false;
        const std::uint64_t tableOffset = layout_.tableOffset;
        const std::uint64_t tableSize = layout_.tableSize;
        if (tableOffset == 0 && tableSize == 0) {
            *valid = true;
            return vdsOk;
        }
        // The table closes the file, starts after the headers on an 8-byte
        // boundary, and no section's data reaches into it; a size that says
        // otherwise lies.
        if (tableOffset < layout_.headersSize || tableOffset % 8 != 0 ||
            tableSize < kWinCertificateHeaderSize || tableSize > kMaxCertificateTableSize ||
            !Inside(tableOffset, tableSize, fileSize_) || tableOffset + tableSize != fileSize_) {
            return vdsOk;
        }
        for (const PeSection& section : layout_.sections) {
            if (section.offset + section.size > tableOffset) {
                return vdsOk;
            }
        }
        const std::uint64_t tableEnd = tableOffset + tableSize;
        std::uint64_t offset = tableOffset;
        while (offset < tableEnd) {
            std::array<std::uint8_t, kWinCertificateHeaderSize> header{};
            if (layout_.certificates.size() == kMaxWinCertificates ||
                !Inside(offset, header.size(), tableEnd)) {
                return vdsOk;
            }
            const VdsResult result = read_(offset, header.data(), header.size());
            if (result != vdsOk) {
                return result;
            }
            const std::uint32_t length = Load32(header.data());
            if (length <= kWinCertificateHeaderSize || length > tableEnd - offset ||
                Load16(header.data() + 4) != kWinCertificateRevision ||
                Load16(header.data() + 6) != kWinCertificateTypePkcsSignedData) {
                return vdsOk;
            }
            layout_.certificates.push_back({offset, length});
            // The next entry starts on the next 8-byte boundary; the padding
            // of the last one may be left out.
            offset += (static_cast<std::uint64_t>(length) + 7) / 8 * 8;
        }
        *valid = true;
        return vdsOk;
    }

    const PeRead& read_;
    std::uint64_t fileSize_;
    PeLayout& layout_;
};

}  // namespace

VdsResult ParsePe(const PeRead& read, std::uint64_t fileSize, PeStatus* status, PeLayout* layout) {
    PeLayout parsed;
    PeParser parser(read, fileSize, &parsed);
    const VdsResult result = parser.Run(status);
    if (result == vdsOk && *status == PeStatus::Parsed) {
        *layout = std::move(parsed);
    }
    return result;
}

std::vector<ByteRange> ImageDigestRanges(const PeLayout& layout, std::uint64_t fileSize) {
    const std::uint64_t end = layout.tableSize != 0 ? layout.tableOffset : fileSize;
    std::vector<ByteRange> ranges;
    std::uint64_t next = 0;
    const auto skip = [&](std::uint64_t offset, std::uint64_t size) {
        ranges.push_back({next, offset - next});
        next = offset + size;
    };
    skip(layout.checksumOffset, 4);
    if (layout.securityEntryOffset != 0) {
        skip(layout.securityEntryOffset, 8);
    }
    ranges.push_back({next, end - next});
    return ranges;
}

std::uint32_t PeChecksum(const std::uint8_t* bytes, std::size_t size,
                         std::uint64_t checksumOffset) {
    // The field counts as zero wherever it lies.
    const auto byte = [&](std::size_t offset) -> std::uint32_t {
        const bool inField = offset >= checksumOffset && offset - checksumOffset < 4;
        return offset < size && !inField ? bytes[offset] : 0u;
    };
    std::uint64_t sum = 0;
    for (std::size_t offset = 0; offset < size; offset += 2) {
        sum += byte(offset) | byte(offset + 1) << 8;
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<std::uint32_t>(sum + size);
}

}  // namespace vds::format
