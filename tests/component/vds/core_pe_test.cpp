#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <boost/process/search_path.hpp>

#include "core_fixture.h"
#include "support/host_tools.h"
#include "support/run_program.h"
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

TEST(PeLayoutTest, HostileHeadersAndTablesAreMalformedOrNotPrograms) {
    using Mutation = std::function<void(Bytes&)>;
    struct Case {
        const char* name;
        bool plus;
        Mutation mutate;
        PeStatus expected;
    };
    const std::uint32_t table32 = SecurityEntry(false);
    const Case cases[] = {
        {"empty file", false, [](Bytes& b) { b.clear(); }, PeStatus::NotPe},
        {"shorter than a DOS header", false, [](Bytes& b) { b.resize(63); }, PeStatus::NotPe},
        {"no MZ", false, [](Bytes& b) { b[1] = 'X'; }, PeStatus::NotPe},
        {"e_lfanew beyond the file", false, [](Bytes& b) { Put32(b, 0x3C, 0xFFFFFFF0); },
         PeStatus::NotPe},
        {"e_lfanew at the last three bytes", false,
         [](Bytes& b) { Put32(b, 0x3C, static_cast<std::uint32_t>(b.size() - 3)); },
         PeStatus::NotPe},
        {"DOS program without PE signature", false, [](Bytes& b) { b[kLfanew + 1] = 'X'; },
         PeStatus::NotPe},
        {"truncated after the PE signature", false, [](Bytes& b) { b.resize(kLfanew + 10); },
         PeStatus::Malformed},
        {"truncated inside the optional header", true, [](Bytes& b) { b.resize(kOptional + 50); },
         PeStatus::Malformed},
        {"unknown optional-header magic", false, [](Bytes& b) { Put16(b, kOptional, 0x107); },
         PeStatus::Malformed},
        {"optional header too short for its magic", true,
         [](Bytes& b) { Put16(b, kCoff + 16, 100); }, PeStatus::Malformed},
        {"directory count beyond the optional header", false,
         [](Bytes& b) { Put32(b, kOptional + 92, 17); }, PeStatus::Malformed},
        {"optional header size beyond the file", false,
         [](Bytes& b) { Put16(b, kCoff + 16, 0xFFFF); }, PeStatus::Malformed},
        {"65,535 sections", false, [](Bytes& b) { Put16(b, kCoff + 2, 0xFFFF); },
         PeStatus::Malformed},
        {"97 sections", false, [](Bytes& b) { Put16(b, kCoff + 2, 97); }, PeStatus::Malformed},
        {"section table outside the file", false,
         [](Bytes& b) {
             Put16(b, kCoff + 2, 96);
             b.resize(kOptional + 224 + 95 * 40);
         },
         PeStatus::Malformed},
        {"section table past SizeOfHeaders", false,
         [](Bytes& b) { Put32(b, kOptional + 60, SectionTable(false) + 40); }, PeStatus::Malformed},
        {"SizeOfHeaders beyond the file", false,
         [](Bytes& b) { Put32(b, kOptional + 60, 0x10000); }, PeStatus::Malformed},
        {"section data beyond the file", false,
         [](Bytes& b) { Put32(b, SectionTable(false) + 40 + 20, 0xFFFFFF00); },
         PeStatus::Malformed},
        {"table at offset 0", false, [=](Bytes& b) { Put32(b, table32, 0); }, PeStatus::Malformed},
        {"table offset inside the headers", false, [=](Bytes& b) { Put32(b, table32, 0x100); },
         PeStatus::Malformed},
        {"table size 0 with an offset", false, [=](Bytes& b) { Put32(b, table32 + 4, 0); },
         PeStatus::Malformed},
        {"table size that lies (too large)", false,
         [=](Bytes& b) { Put32(b, table32 + 4, static_cast<std::uint32_t>(b.size())); },
         PeStatus::Malformed},
        {"table size that lies (short of the end)", false,
         [=](Bytes& b) { Put32(b, table32 + 4, 0x400 - 8); }, PeStatus::Malformed},
        {"bytes appended after the table", false, [](Bytes& b) { b.push_back(0); },
         PeStatus::Malformed},
        {"table offset at 4 GiB", false, [=](Bytes& b) { Put32(b, table32, 0xFFFFFFF8); },
         PeStatus::Malformed},
        {"table size of 4 GiB", false, [=](Bytes& b) { Put32(b, table32 + 4, 0xFFFFFFF8); },
         PeStatus::Malformed},
        {"table offset not 8-aligned", false,
         [=](Bytes& b) {
             b.insert(b.begin() + kSectionsEnd, 4, 0);
             Put32(b, table32, kSectionsEnd + 4);
         },
         PeStatus::Malformed},
        {"section reaching into the table", false,
         [](Bytes& b) { Put32(b, SectionTable(false) + 40 + 16, kSectionSize + 8); },
         PeStatus::Malformed},
        {"entry length 0", false, [](Bytes& b) { Put32(b, kSectionsEnd, 0); }, PeStatus::Malformed},
        {"entry length of a bare header", false, [](Bytes& b) { Put32(b, kSectionsEnd, 8); },
         PeStatus::Malformed},
        {"entry longer than the table", false, [](Bytes& b) { Put32(b, kSectionsEnd, 0x400 + 1); },
         PeStatus::Malformed},
        {"entry length 4 GiB", false, [](Bytes& b) { Put32(b, kSectionsEnd, 0xFFFFFFFF); },
         PeStatus::Malformed},
        {"wrong revision", false, [](Bytes& b) { Put16(b, kSectionsEnd + 4, 0x0100); },
         PeStatus::Malformed},
        {"X.509 entry type", false, [](Bytes& b) { Put16(b, kSectionsEnd + 6, 0x0001); },
         PeStatus::Malformed},
        {"second entry overlapping past the table end", false,
         [](Bytes& b) {
             Put32(b, kSectionsEnd, 0x3F0);
             Put32(b, kSectionsEnd + 0x3F0, 0x20);
             Put16(b, kSectionsEnd + 0x3F4, 0x0200);
             Put16(b, kSectionsEnd + 0x3F6, 0x0002);
         },
         PeStatus::Malformed},
        {"tail too short for another entry", false,
         [=](Bytes& b) {
             b.resize(b.size() + 4, 0);
             Put32(b, table32 + 4, 0x400 + 4);
         },
         PeStatus::Malformed},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        Bytes bytes = MakePe(test.plus, {0x400 - 8});
        ASSERT_EQ(Parse(bytes).status, PeStatus::Parsed);
        test.mutate(bytes);
        const Parsed parsed = Parse(bytes);
        EXPECT_EQ(parsed.result, vdsOk);
        EXPECT_EQ(parsed.status, test.expected);
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

Bytes Sha256Over(const Bytes& bytes, const std::vector<vds::format::ByteRange>& ranges) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EXPECT_EQ(EVP_DigestInit_ex(context, EVP_sha256(), nullptr), 1);
    for (const auto& range : ranges) {
        EXPECT_LE(range.offset + range.size, bytes.size());
        EVP_DigestUpdate(context, bytes.data() + range.offset, range.size);
    }
    Bytes digest(32);
    unsigned int length = 0;
    EVP_DigestFinal_ex(context, digest.data(), &length);
    EVP_MD_CTX_free(context);
    return digest;
}

bool Contains(const Bytes& haystack, const Bytes& needle) {
    return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
           haystack.end();
}

void RunTool(const std::string& name, const std::vector<std::string>& arguments,
             const boost::filesystem::path& directory) {
    const auto program = boost::process::search_path(name);
    ASSERT_FALSE(program.empty()) << name << " is not installed (scripts/install-deps.sh)";
    ict_test::RunOptions options;
    options.arguments = arguments;
    options.workingDirectory = directory;
    const auto run = ict_test::RunProgram(program, options);
    ASSERT_EQ(run.exitCode, 0) << name << ": " << run.Describe();
}

TEST(PeLayoutTest, ImageDigestMatchesTheOneOsslsigncodeSigned) {
    ICT_NEEDS_LINUX_TOOL("osslsigncode");
    ict_test::TempDir scratch;
    const auto& dir = scratch.Path();
    ict_test::WriteText(dir / "tiny.c", "int main(void) { return 7; }\n");
    ASSERT_NO_FATAL_FAILURE(RunTool(
        "openssl",
        {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
         "-keyout", "key.pem", "-out", "cert.pem", "-subj", "/CN=pe-digest", "-days", "2"},
        dir));
    for (const char* compiler : {"i686-w64-mingw32-gcc", "x86_64-w64-mingw32-gcc"}) {
        SCOPED_TRACE(compiler);
        ASSERT_NO_FATAL_FAILURE(RunTool(compiler, {"-O2", "-s", "-o", "tiny.exe", "tiny.c"}, dir));
        ASSERT_NO_FATAL_FAILURE(RunTool("osslsigncode",
                                        {"sign", "-certs", "cert.pem", "-key", "key.pem", "-h",
                                         "sha256", "-in", "tiny.exe", "-out", "signed.exe"},
                                        dir));
        Bytes bytes = ict_test::vds::ReadBytes(dir / "signed.exe");
        boost::filesystem::remove(dir / "signed.exe");
        const Parsed parsed = Parse(bytes);
        ASSERT_EQ(parsed.status, PeStatus::Parsed);
        const PeLayout& layout = parsed.layout;
        EXPECT_EQ(layout.kind,
                  std::string(compiler).find("x86_64") == 0 ? PeKind::Pe32Plus : PeKind::Pe32);
        ASSERT_EQ(layout.certificates.size(), 1u);

        const auto ranges = vds::format::ImageDigestRanges(layout, bytes.size());
        std::uint64_t covered = 0;
        for (const auto& range : ranges) {
            covered += range.size;
        }
        // Everything before the table but the 4 checksum and 8 entry bytes.
        EXPECT_EQ(covered, layout.tableOffset - 12);
        const Bytes digest = Sha256Over(bytes, ranges);
        const auto& entry = layout.certificates[0];
        const Bytes signature(bytes.begin() + static_cast<std::ptrdiff_t>(entry.ContentOffset()),
                              bytes.begin() + static_cast<std::ptrdiff_t>(entry.ContentOffset() +
                                                                          entry.ContentSize()));
        EXPECT_TRUE(Contains(signature, digest)) << "our image digest is not the signed one";

        // The checksum is left out; any byte of a section is not.
        Bytes changed = bytes;
        changed[layout.checksumOffset] ^= 0xFF;
        EXPECT_EQ(Sha256Over(changed, ranges), digest);
        changed = bytes;
        changed[layout.sections.back().offset] ^= 0x01;
        EXPECT_NE(Sha256Over(changed, ranges), digest);
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
