#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core_fixture.h"
#include "vds/pe_format.h"

namespace vds_core_test {
namespace {

using vds::format::PeKind;
using vds::format::PeLayout;
using vds::format::PeStatus;

// A small program built field by field: DOS header, PE signature at 0x80,
// two sections of 0x200 bytes after 0x200 bytes of headers, then an
// optional certificate table.
constexpr std::uint32_t kLfanew = 0x80;
constexpr std::uint32_t kCoff = kLfanew + 4;
constexpr std::uint32_t kOptional = kCoff + 20;
constexpr std::uint32_t kHeadersSize = 0x200;
constexpr std::uint32_t kSectionSize = 0x200;
constexpr std::uint32_t kSectionsEnd = kHeadersSize + 2 * kSectionSize;

void Put16(Bytes& bytes, std::size_t offset, std::uint16_t value) {
    bytes.at(offset) = static_cast<std::uint8_t>(value);
    bytes.at(offset + 1) = static_cast<std::uint8_t>(value >> 8);
}

void Put32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    Put16(bytes, offset, static_cast<std::uint16_t>(value));
    Put16(bytes, offset + 2, static_cast<std::uint16_t>(value >> 16));
}

std::uint32_t OptionalSize(bool plus) {
    return plus ? 240 : 224;
}
std::uint32_t SecurityEntry(bool plus) {
    return kOptional + (plus ? 112 : 96) + 4 * 8;
}
std::uint32_t SectionTable(bool plus) {
    return kOptional + OptionalSize(plus);
}

// Appends one WIN_CERTIFICATE holding `contentSize` bytes, padded to 8.
void AddCertificate(Bytes& bytes, std::uint32_t contentSize) {
    const std::size_t start = bytes.size();
    bytes.resize(start + (8 + contentSize + 7) / 8 * 8, 0x30);
    Put32(bytes, start, 8 + contentSize);
    Put16(bytes, start + 4, 0x0200);
    Put16(bytes, start + 6, 0x0002);
}

Bytes MakePe(bool plus, const std::vector<std::uint32_t>& certificates = {}) {
    Bytes bytes(kSectionsEnd, 0);
    for (std::size_t index = kHeadersSize; index < bytes.size(); ++index) {
        bytes[index] = static_cast<std::uint8_t>(index * 13 + 5);
    }
    bytes[0] = 'M';
    bytes[1] = 'Z';
    Put32(bytes, 0x3C, kLfanew);
    std::memcpy(bytes.data() + kLfanew, "PE\0\0", 4);
    Put16(bytes, kCoff, plus ? 0x8664 : 0x14C);
    Put16(bytes, kCoff + 2, 2);
    Put16(bytes, kCoff + 16, static_cast<std::uint16_t>(OptionalSize(plus)));
    Put16(bytes, kOptional, plus ? 0x20B : 0x10B);
    Put32(bytes, kOptional + 60, kHeadersSize);
    Put32(bytes, kOptional + 64, 0x12345678);
    Put32(bytes, kOptional + (plus ? 108 : 92), 16);
    for (std::uint32_t index = 0; index < 2; ++index) {
        const std::uint32_t header = SectionTable(plus) + index * 40;
        std::memcpy(bytes.data() + header, index == 0 ? ".text" : ".data", 5);
        Put32(bytes, header + 16, kSectionSize);
        Put32(bytes, header + 20, kHeadersSize + index * kSectionSize);
    }
    if (!certificates.empty()) {
        for (std::uint32_t size : certificates) {
            AddCertificate(bytes, size);
        }
        Put32(bytes, SecurityEntry(plus), kSectionsEnd);
        Put32(bytes, SecurityEntry(plus) + 4,
              static_cast<std::uint32_t>(bytes.size()) - kSectionsEnd);
    }
    return bytes;
}

struct Parsed {
    VdsResult result = vdsErrUnknown;
    PeStatus status = PeStatus::Parsed;
    PeLayout layout;
};

Parsed Parse(const Bytes& bytes, std::uint64_t failFrom = UINT64_MAX) {
    Parsed parsed;
    parsed.result = vds::format::ParsePe(
        [&](std::uint64_t offset, void* buffer, std::size_t size) -> VdsResult {
            if (offset > bytes.size() || size > bytes.size() - offset) {
                ADD_FAILURE() << "read outside the file at " << offset << "+" << size;
                return vdsErrInvalidArgument;
            }
            if (offset + size > failFrom) {
                return vdsErrCallbackRead;
            }
            std::memcpy(buffer, bytes.data() + offset, size);
            return vdsOk;
        },
        bytes.size(), &parsed.status, &parsed.layout);
    return parsed;
}

TEST(PeLayoutTest, WellFormedProgramsGiveTheirKindAndCertificateEntries) {
    struct Case {
        const char* name;
        bool plus;
        std::vector<std::uint32_t> certificates;
    };
    const Case cases[] = {
        {"unsigned PE32", false, {}},
        {"unsigned PE32+", true, {}},
        {"PE32 with one aligned entry", false, {1000}},
        {"PE32+ with one unaligned entry", true, {1001}},
        {"two entries, the first padded", false, {13, 64}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const Bytes bytes = MakePe(test.plus, test.certificates);
        const Parsed parsed = Parse(bytes);
        ASSERT_EQ(parsed.result, vdsOk);
        ASSERT_EQ(parsed.status, PeStatus::Parsed);
        const PeLayout& layout = parsed.layout;
        EXPECT_EQ(layout.kind, test.plus ? PeKind::Pe32Plus : PeKind::Pe32);
        EXPECT_EQ(layout.headersSize, kHeadersSize);
        EXPECT_EQ(layout.checksumOffset, kOptional + 64);
        EXPECT_EQ(layout.securityEntryOffset, SecurityEntry(test.plus));
        ASSERT_EQ(layout.sections.size(), 2u);
        EXPECT_EQ(layout.sections[1].offset, kHeadersSize + kSectionSize);
        EXPECT_EQ(layout.sections[1].size, kSectionSize);
        ASSERT_EQ(layout.certificates.size(), test.certificates.size());
        std::uint64_t offset = kSectionsEnd;
        for (std::size_t index = 0; index < test.certificates.size(); ++index) {
            EXPECT_EQ(layout.certificates[index].offset, offset);
            EXPECT_EQ(layout.certificates[index].ContentOffset(), offset + 8);
            EXPECT_EQ(layout.certificates[index].ContentSize(), test.certificates[index]);
            offset += (8 + test.certificates[index] + 7) / 8 * 8;
        }
        EXPECT_EQ(layout.tableOffset, test.certificates.empty() ? 0 : kSectionsEnd);
        EXPECT_EQ(layout.tableSize, test.certificates.empty() ? 0 : bytes.size() - kSectionsEnd);
        std::uint64_t covered = 0;
        std::uint64_t next = 0;
        for (const auto& range : vds::format::ImageDigestRanges(layout, bytes.size())) {
            EXPECT_GE(range.offset, next) << "ranges out of file order";
            next = range.offset + range.size;
            covered += range.size;
        }
        EXPECT_EQ(next, test.certificates.empty() ? bytes.size() : kSectionsEnd);
        EXPECT_EQ(covered, next - 12);
    }
}

using Mutation = std::function<void(Bytes&)>;
Mutation Set16(std::size_t offset, std::uint16_t value) {
    return [=](Bytes& b) { Put16(b, offset, value); };
}
Mutation Set32(std::size_t offset, std::uint32_t value) {
    return [=](Bytes& b) { Put32(b, offset, value); };
}
Mutation Resize(std::size_t size) {
    return [=](Bytes& b) { b.resize(size); };
}

TEST(PeLayoutTest, HostileHeadersAndTablesAreMalformedOrNotPrograms) {
    // A PE32 (PE32+ where said) with one entry filling a table of 0x400 bytes.
    const std::uint32_t table = SecurityEntry(false);
    const std::uint32_t section1 = SectionTable(false) + 40;
    const std::vector<std::pair<const char*, Mutation>> notPe = {
        {"empty file", Resize(0)},
        {"shorter than a DOS header", Resize(63)},
        {"no MZ", [](Bytes& b) { b[1] = 'X'; }},
        {"e_lfanew beyond the file", Set32(0x3C, 0xFFFFFFF0)},
        {"e_lfanew at the last three bytes", Set32(0x3C, kSectionsEnd + 0x400 - 3)},
        {"DOS program without PE signature", [](Bytes& b) { b[kLfanew + 1] = 'X'; }},
    };
    const std::vector<std::pair<const char*, Mutation>> malformed = {
        {"truncated after the PE signature", Resize(kLfanew + 10)},
        {"truncated inside the optional header (PE32+)", Resize(kOptional + 50)},
        {"unknown optional-header magic", Set16(kOptional, 0x107)},
        {"optional header too short for its magic (PE32+)", Set16(kCoff + 16, 100)},
        {"directory count beyond the optional header", Set32(kOptional + 92, 17)},
        {"optional header size beyond the file", Set16(kCoff + 16, 0xFFFF)},
        {"65,535 sections", Set16(kCoff + 2, 0xFFFF)},
        {"97 sections", Set16(kCoff + 2, 97)},
        {"section table outside the file",
         [](Bytes& b) {
             Put16(b, kCoff + 2, 96);
             b.resize(kOptional + 224 + 95 * 40);
         }},
        {"section table past SizeOfHeaders", Set32(kOptional + 60, SectionTable(false) + 40)},
        {"SizeOfHeaders beyond the file", Set32(kOptional + 60, 0x10000)},
        {"section data beyond the file", Set32(section1 + 20, 0xFFFFFF00)},
        {"section reaching into the table", Set32(section1 + 16, kSectionSize + 8)},
        {"table at offset 0", Set32(table, 0)},
        {"table offset inside the headers", Set32(table, 0x100)},
        {"table size 0 with an offset", Set32(table + 4, 0)},
        {"table size that lies (too large)", Set32(table + 4, kSectionsEnd + 0x400)},
        {"table size that lies (short of the end)", Set32(table + 4, 0x400 - 8)},
        {"bytes appended after the table", [](Bytes& b) { b.push_back(0); }},
        {"table offset at 4 GiB", Set32(table, 0xFFFFFFF8)},
        {"table size of 4 GiB", Set32(table + 4, 0xFFFFFFF8)},
        {"table offset not 8-aligned",
         [=](Bytes& b) {
             b.insert(b.begin() + kSectionsEnd, 4, 0);
             Put32(b, table, kSectionsEnd + 4);
         }},
        {"entry length 0", Set32(kSectionsEnd, 0)},
        {"entry length of a bare header", Set32(kSectionsEnd, 8)},
        {"entry longer than the table", Set32(kSectionsEnd, 0x400 + 1)},
        {"entry length 4 GiB", Set32(kSectionsEnd, 0xFFFFFFFF)},
        {"wrong revision", Set16(kSectionsEnd + 4, 0x0100)},
        {"X.509 entry type", Set16(kSectionsEnd + 6, 0x0001)},
        {"second entry overlapping past the table end",
         [](Bytes& b) {
             Put32(b, kSectionsEnd, 0x3F0);
             Put32(b, kSectionsEnd + 0x3F0, 0x20);
             Put32(b, kSectionsEnd + 0x3F4, 0x00020200);
         }},
        {"tail too short for another entry",
         [=](Bytes& b) {
             b.resize(b.size() + 4, 0);
             Put32(b, table + 4, 0x400 + 4);
         }},
    };
    for (const auto& [cases, expected] : {std::make_pair(&notPe, PeStatus::NotPe),
                                          std::make_pair(&malformed, PeStatus::Malformed)}) {
        for (const auto& [name, mutate] : *cases) {
            SCOPED_TRACE(name);
            Bytes bytes = MakePe(std::string(name).find("PE32+") != std::string::npos, {0x400 - 8});
            ASSERT_EQ(Parse(bytes).status, PeStatus::Parsed);
            mutate(bytes);
            const Parsed parsed = Parse(bytes);
            EXPECT_EQ(parsed.result, vdsOk);
            EXPECT_EQ(parsed.status, expected);
        }
    }
}

TEST(PeLayoutTest, TooManyEntriesAndFailedReadsAreNotParsed) {
    Bytes many = MakePe(false, std::vector<std::uint32_t>(vds::format::kMaxWinCertificates, 8));
    EXPECT_EQ(Parse(many).status, PeStatus::Parsed);
    many = MakePe(false, std::vector<std::uint32_t>(vds::format::kMaxWinCertificates + 1, 8));
    EXPECT_EQ(Parse(many).status, PeStatus::Malformed);

    // A read that fails is the caller's error, never a verdict on the file.
    const Bytes signedPe = MakePe(true, {100});
    for (std::uint64_t failFrom : {std::uint64_t{10}, std::uint64_t{kLfanew + 2},
                                   std::uint64_t{kOptional + 8}, std::uint64_t{kSectionsEnd + 4}}) {
        SCOPED_TRACE(failFrom);
        EXPECT_EQ(Parse(signedPe, failFrom).result, vdsErrCallbackRead);
    }
}

class CorePeTest : public CoreFixture {};

TEST_F(CorePeTest, FormatIsReportedAndMalformedProgramsAreRefused) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    struct Case {
        const char* name;
        Bytes bytes;
        VdsFileFormat format;
        VdsVerificationFlags flags;
    };
    Bytes malformed = MakePe(false, {64});
    malformed.push_back(0);
    const Case cases[] = {
        {"plain bytes", Pattern(3000), vdsFileFormatUnspecified, vdsFlagUnsigned},
        {"unsigned PE32", MakePe(false), vdsFileFormatPortableExecutable32, vdsFlagUnsigned},
        {"unsigned PE32+", MakePe(true), vdsFileFormatPortableExecutable64, vdsFlagUnsigned},
        {"PE32 with bytes after its table", malformed, vdsFileFormatUnspecified,
         vdsFlagMalformedContent},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        MemoryObject object{test.bytes};
        VdsVerificationResultData result{};
        handler_.events.clear();
        EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
        EXPECT_EQ(handler_.lastFileFormat, test.format);
        EXPECT_EQ(result.fileFormat, test.format);
        EXPECT_EQ(result.flags, test.flags);
        EXPECT_EQ(result.checkedContentSize, 0u);
        ASSERT_FALSE(handler_.events.empty());
        EXPECT_EQ(handler_.events.front(), "OnFileFormat");
        EXPECT_EQ(handler_.Saw("OnEmbeddedSignatureChecked"), true);
    }

    // The reader's failure while recognising the format is returned as it is.
    MemoryObject failing{MakePe(true, {64})};
    failing.failFrom = kOptional;
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(failing, &result), vdsErrCallbackRead);
}

}  // namespace
}  // namespace vds_core_test
