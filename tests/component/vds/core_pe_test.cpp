#include <algorithm>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <boost/process/search_path.hpp>

#include "common/signed_file_name.h"
#include "core_fixture.h"
#include "support/host_tools.h"
#include "support/run_program.h"
#include "vds/pe_format.h"

namespace vds_core_test {
namespace {

namespace fs = boost::filesystem;

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
        // Each a WIN_CERTIFICATE of `size` content bytes, padded to 8.
        for (std::uint32_t size : certificates) {
            const std::size_t start = bytes.size();
            bytes.resize(start + (8 + size + 7) / 8 * 8, 0x30);
            Put32(bytes, start, 8 + size);
            Put32(bytes, start + 4, 0x00020200);
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
        const bool none = test.certificates.empty();
        EXPECT_EQ(std::make_tuple(layout.kind, layout.headersSize, layout.checksumOffset,
                                  layout.securityEntryOffset, layout.tableOffset, layout.tableSize),
                  std::make_tuple(test.plus ? PeKind::Pe32Plus : PeKind::Pe32, kHeadersSize,
                                  kOptional + 64, SecurityEntry(test.plus), none ? 0 : kSectionsEnd,
                                  none ? 0 : bytes.size() - kSectionsEnd));
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
        {"e_lfanew at the last three bytes", Set32(0x3C, kSectionsEnd + 0x400 - 3)},
        {"DOS program without PE signature", [](Bytes& b) { b[kLfanew + 1] = 'X'; }},
    };
    const std::vector<std::pair<const char*, Mutation>> malformed = {
        {"truncated after the PE signature", Resize(kLfanew + 10)},
        {"truncated inside the optional header (PE32+)", Resize(kOptional + 50)},
        {"unknown optional-header magic", Set16(kOptional, 0x107)},
        {"optional header too short for its magic (PE32+)", Set16(kCoff + 16, 100)},
        {"directory count beyond the optional header", Set32(kOptional + 92, 17)},
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
        {"table offset inside the headers", Set32(table, 0x100)},
        {"table size 0 with an offset", Set32(table + 4, 0)},
        {"table size that lies (too large)", Set32(table + 4, kSectionsEnd + 0x400)},
        {"table size that lies (short of the end)", Set32(table + 4, 0x400 - 8)},
        {"table size of 4 GiB", Set32(table + 4, 0xFFFFFFF8)},
        {"table offset not 8-aligned",
         [=](Bytes& b) {
             b.insert(b.begin() + kSectionsEnd, 4, 0);
             Put32(b, table, kSectionsEnd + 4);
         }},
        {"entry length of a bare header", Set32(kSectionsEnd, 8)},
        {"entry longer than the table", Set32(kSectionsEnd, 0x400 + 1)},
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

using CorePeTest = CoreFixture;

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
        const Outcome outcome = Check(test.bytes);
        const VdsVerificationResultData& result = outcome.data;
        EXPECT_EQ(std::make_tuple(outcome.code, handler_.lastFileFormat, result.fileFormat,
                                  result.flags, result.checkedContentSize, handler_.events.at(0)),
                  std::make_tuple(vdsErrUntrusted, test.format, test.format, test.flags, 0u,
                                  "OnFileFormat"));
        EXPECT_TRUE(handler_.Saw("OnEmbeddedSignatureChecked"));
    }

    // The reader's failure while recognising the format is returned as it is.
    MemoryObject failing{MakePe(true, {64})};
    failing.failFrom = kOptional;
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(failing, &result), vdsErrCallbackRead);
}

PeLayout LayoutOf(const Bytes& bytes) {
    const Parsed parsed = Parse(bytes);
    EXPECT_EQ(parsed.result, vdsOk);
    EXPECT_EQ(parsed.status, PeStatus::Parsed);
    return parsed.layout;
}

Bytes ImageSha256(const Bytes& bytes) {
    Bytes digest(32);
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
    for (const auto& range : vds::format::ImageDigestRanges(LayoutOf(bytes), bytes.size())) {
        EVP_DigestUpdate(context, bytes.data() + range.offset, range.size);
    }
    unsigned int length = 0;
    EVP_DigestFinal_ex(context, digest.data(), &length);
    EVP_MD_CTX_free(context);
    return digest;
}

// Offset of the first occurrence of `needle` at or after `from`.
std::size_t Find(const Bytes& haystack, const Bytes& needle, std::size_t from = 0) {
    const auto found = std::search(haystack.begin() + static_cast<std::ptrdiff_t>(from),
                                   haystack.end(), needle.begin(), needle.end());
    EXPECT_NE(found, haystack.end());
    return static_cast<std::size_t>(found - haystack.begin());
}

// i686 (PE32) and x86_64 (PE32+).
const std::vector<std::string> kCompilers = {"i686-w64-mingw32-gcc", "x86_64-w64-mingw32-gcc"};

// Tiny programs of the MinGW compilers, signed by the independent Authenticode
// tool osslsigncode.
class CorePeSignatureTest : public CoreFixture {
protected:
    void SetUp() override {
        CoreFixture::SetUp();
        for (const auto& tool : {kCompilers[0], kCompilers[1], std::string("osslsigncode")}) {
            const std::string missing = ict_test::LinuxToolUnavailable(tool);
            if (!missing.empty()) {
                GTEST_SKIP() << "Skipped: " << missing;
            }
        }
        ict_test::WriteText(scratch_ / "gost.cnf",
                            "openssl_conf = openssl_init\n[openssl_init]\nengines = engines\n"
                            "[engines]\ngost = gost\n"
                            "[gost]\nengine_id = gost\ndefault_algorithms = ALL\n");
    }

    // Runs `program` with OpenSSL's GOST engine loaded (osslsigncode needs it
    // for the GOST keys of the development chain); throws when it fails and
    // `mustSucceed`.
    ict_test::RunResult Run(const std::string& program, std::vector<std::string> arguments,
                            bool mustSucceed = true) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.environment["OPENSSL_CONF"] = (scratch_ / "gost.cnf").string();
        const auto run = ict_test::RunProgram(boost::process::search_path(program), options);
        if (mustSucceed && run.exitCode != 0) {
            throw std::runtime_error(program + " failed: " + run.Describe());
        }
        return run;
    }

    // A program of `compiler`, built once per test.
    fs::path Program(const std::string& compiler) {
        const fs::path path = scratch_ / (compiler + ".exe");
        if (!fs::exists(path)) {
            ict_test::WriteText(scratch_ / "tiny.c", "int main(void) { return 7; }\n");
            Run(compiler, {"-O2", "-s", "-o", path.string(), (scratch_ / "tiny.c").string()});
        }
        return path;
    }

    // Signs with a development signer (its issuing CA included); `extra`
    // adds options ("-nest").
    void OsslsigncodeSign(const fs::path& input, const fs::path& output, const std::string& signer,
                          const std::string& digest = "sha256",
                          const std::vector<std::string>& extra = {}) {
        const auto pem = [](const std::string& name) {
            return (ict_test::vds::PrivateVdsDir() / (name + ".pem")).string();
        };
        std::vector<std::string> arguments = {
            "sign", "-certs", pem(signer), "-key", pem(signer + ".key"), "-h", digest};
        if (signer != "signer-direct" && signer != "unknown-signer") {
            arguments.insert(arguments.end(), {"-ac", pem("signing-ca")});
        }
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        arguments.insert(arguments.end(), {"-in", input.string(), "-out", output.string()});
        fs::remove(output);
        Run("osslsigncode", arguments);
    }

    Bytes OsslsigncodeSigned(const std::string& compiler, const std::string& signer,
                             const std::string& digest = "sha256",
                             const std::vector<std::string>& extra = {}) {
        OsslsigncodeSign(Program(compiler), scratch_ / "signed.exe", signer, digest, extra);
        return ict_test::vds::ReadBytes(scratch_ / "signed.exe");
    }
};

// Which signer faults are found does not depend on where the signature lies
// (the appended-signature tests have the whole table); one stands for them.
TEST_F(CorePeSignatureTest, OsslsigncodeSignaturesAreCheckedLikeAppendedOnes) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    struct Case {
        const char* signer;
        const char* digest;
        VdsResult code;
        VdsVerificationFlags flags;
    };
    const Case cases[] = {
        {"signer-ec", "sha256", vdsOk, kGood},
        {"signer-ec", "sha512", vdsOk, kGood},
        {"signer", "sha384", vdsOk, kGood},
        {"unknown-signer", "sha256", vdsErrUntrusted,
         vdsFlagSigned | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped | vdsFlagIncompleteChain},
    };
    for (const auto& compiler : kCompilers) {
        for (const auto& test : cases) {
            SCOPED_TRACE(compiler + " " + test.signer + " " + test.digest);
            const Bytes bytes = OsslsigncodeSigned(compiler, test.signer, test.digest);
            const PeLayout layout = LayoutOf(bytes);
            const Outcome outcome = Check(bytes);
            const VdsFileFormat format = compiler == kCompilers[1]
                                             ? vdsFileFormatPortableExecutable64
                                             : vdsFileFormatPortableExecutable32;
            const auto& data = outcome.data;
            EXPECT_EQ(std::make_tuple(outcome.code, data.flags, data.fileFormat,
                                      data.checkedContentSize, data.signatureContainerSize),
                      std::make_tuple(test.code, test.flags, format, layout.tableOffset,
                                      layout.tableSize));
        }
    }
}

TEST_F(CorePeSignatureTest, ChangesToASignedProgramAreCaught) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    using Mutation = std::function<void(Bytes&, const PeLayout&)>;
    struct Case {
        const char* name;
        Mutation mutate;
        VdsVerificationFlags flags;
    };
    const Case cases[] = {
        {"the checksum field alone", [](Bytes& b, const PeLayout& l) { b[l.checksumOffset] ^= 1; },
         kGood},
        {"the last byte of the last section",
         [](Bytes& b, const PeLayout& l) {
             b[l.sections.back().offset + l.sections.back().size - 1] ^= 1;
         },
         vdsFlagSigned | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped |
             vdsFlagSignatureValueNotMatched},
        {"the image digest inside the signature",
         [](Bytes& b, const PeLayout&) { b[Find(b, ImageSha256(b))] ^= 1; },
         vdsFlagSigned | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped |
             vdsFlagSignatureValueNotMatched},
        {"the SignedData's outer tag",
         [](Bytes& b, const PeLayout& l) { b[l.tableOffset + 8] = 0x31; },
         vdsFlagEmbedded | vdsFlagMalformedContent},
        {"the content type of the SignedData",
         [](Bytes& b, const PeLayout& l) {
             const Bytes spcIndirectData = {0x2B, 6, 1, 4, 1, 0x82, 0x37, 2, 1, 4};
             b[Find(b, spcIndirectData, l.tableOffset) + 9] = 5;
         },
         vdsFlagEmbedded | vdsFlagMalformedContent},
    };
    for (const auto& compiler : kCompilers) {
        const Bytes original = OsslsigncodeSigned(compiler, "signer-ec");
        const PeLayout layout = LayoutOf(original);
        for (const auto& test : cases) {
            SCOPED_TRACE(compiler + ": " + test.name);
            Bytes bytes = original;
            test.mutate(bytes, layout);
            const Outcome outcome = Check(bytes);
            EXPECT_EQ(outcome.code, (test.flags & vdsFlagTrusted) != 0 ? vdsOk : vdsErrUntrusted);
            EXPECT_EQ(outcome.data.flags, test.flags);
        }
    }
}

TEST_F(CorePeSignatureTest, NestedSignaturesAreAskedForAndTheFirstTrustedDecides) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const std::string compiler = kCompilers.back();
    const fs::path outer = scratch_ / "outer.exe";
    struct Case {
        const char* first;
        const char* nested;
        bool answer;  // to IsNextSignedDataRequired
        bool asked;
        VdsResult code;
    };
    const Case cases[] = {
        {"unknown-signer", "signer-ec", true, true, vdsOk},
        {"unknown-signer", "signer-ec", false, true, vdsErrUntrusted},
        {"signer-ec", "unknown-signer", true, false, vdsOk},
        {"unknown-signer", "signer-nopurpose", true, true, vdsErrUntrusted},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.first) + " then " + test.nested);
        OsslsigncodeSign(Program(compiler), outer, test.first);
        OsslsigncodeSign(outer, scratch_ / "nested.exe", test.nested, "sha256", {"-nest"});
        handler_.nextSignedData = test.answer;
        const Outcome outcome = Check(ict_test::vds::ReadBytes(scratch_ / "nested.exe"));
        EXPECT_EQ(outcome.code, test.code);
        EXPECT_EQ(handler_.Saw("IsNextSignedDataRequired"), test.asked);
        EXPECT_EQ(std::count(handler_.events.begin(), handler_.events.end(), "OnSignedDataStarted"),
                  test.asked && test.answer ? 2 : 1);
    }
}

// Seconds since 1970 of a development certificate's notBefore.
std::int64_t NotBefore(const std::string& name) {
    ASN1_TIME* epoch = ASN1_TIME_set(nullptr, 0);
    int days = 0;
    int seconds = 0;
    const auto certificate = ict_test::vds::Signer(name).certificate;
    EXPECT_EQ(ASN1_TIME_diff(&days, &seconds, epoch, X509_get0_notBefore(certificate.get())), 1);
    ASN1_TIME_free(epoch);
    return std::int64_t{days} * 86400 + seconds;
}

TEST_F(CorePeSignatureTest, ATimestampMakesAnExpiredSignerAcceptableAtItsTime) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const fs::path tsaChain = scratch_ / "tsa-chain.pem";
    ict_test::WriteText(tsaChain,
                        ict_test::ReadText(ict_test::vds::PrivateVdsDir() / "tsa.pem") +
                            ict_test::ReadText(ict_test::vds::PrivateVdsDir() / "signing-ca.pem"));
    // The lapsed signer was valid for one day from this time.
    const std::int64_t validFrom = NotBefore("signer-lapsed");
    // osslsigncode's own authority answers with the given time.
    const auto stamped = [&](std::int64_t time) {
        return std::vector<std::string>{
            "-TSA-certs", tsaChain.string(),
            "-TSA-key",   (ict_test::vds::PrivateVdsDir() / "tsa.key.pem").string(),
            "-TSA-time",  std::to_string(time)};
    };
    constexpr VdsVerificationFlags kExpired =
        vdsFlagSigned | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped | vdsFlagExpired;
    struct Case {
        const char* name;
        const char* signer;
        std::vector<std::string> timestamp;
        enum { Intact, TimeChanged, Transplanted } token;
        VdsVerificationFlags flags;
    };
    const Case cases[] = {
        {"expired, no timestamp", "signer-lapsed", {}, Case::Intact, kExpired},
        {"expired, stamped while valid", "signer-lapsed", stamped(validFrom + 43200), Case::Intact,
         kGood | vdsFlagCounterSignatureUsed},
        {"expired, stamped after it lapsed", "signer-lapsed", stamped(validFrom + 2 * 86400),
         Case::Intact, kExpired},
        {"expired, stamped before its chain was valid", "signer-lapsed", stamped(validFrom - 3600),
         Case::Intact, kExpired},
        {"expired, the token's time changed", "signer-lapsed", stamped(validFrom + 43200),
         Case::TimeChanged, kExpired},
        {"expired, the token of another signature", "signer-lapsed", stamped(validFrom + 43200),
         Case::Transplanted, kExpired},
        {"valid, stamped: the timestamp is not needed", "signer-ec", stamped(validFrom + 43200),
         Case::Intact, kGood},
    };
    const std::string compiler = kCompilers.front();
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        Bytes bytes = OsslsigncodeSigned(compiler, test.signer, "sha256", test.timestamp);
        if (test.token == Case::Transplanted) {
            // Two signatures of the same program, stamped alike: the token
            // of one covers its own signature, not the other's. The unsigned
            // attribute ends the SignedData, so two SignedData of one length
            // (their headers after the entry's) put it at the same offset.
            const Bytes timestampOid = {0x2B, 6, 1, 4, 1, 0x82, 0x37, 3, 3, 1};
            const std::size_t der = LayoutOf(bytes).tableOffset + 8;
            std::map<Bytes, Bytes> byHeader;
            Bytes other;
            for (int attempt = 0; attempt < 40 && other.empty(); ++attempt) {
                Bytes next = OsslsigncodeSigned(compiler, test.signer, "sha256", test.timestamp);
                Bytes header(next.begin() + static_cast<std::ptrdiff_t>(der),
                             next.begin() + static_cast<std::ptrdiff_t>(der + 4));
                header.push_back(static_cast<std::uint8_t>(next.size()));
                const auto found = byHeader.find(header);
                if (found != byHeader.end()) {
                    bytes = found->second;
                    other = std::move(next);
                } else {
                    byHeader.emplace(std::move(header), std::move(next));
                }
            }
            ASSERT_FALSE(other.empty()) << "no two signatures of one length";
            const std::size_t at = Find(bytes, timestampOid);
            ASSERT_EQ(Find(other, timestampOid), at);
            ASSERT_NE(Bytes(other.begin() + static_cast<std::ptrdiff_t>(at), other.end()),
                      Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end()));
            std::copy(other.begin() + static_cast<std::ptrdiff_t>(at), other.end(),
                      bytes.begin() + static_cast<std::ptrdiff_t>(at));
        }
        if (test.token == Case::TimeChanged) {
            // The token's genTime, a GeneralizedTime of 15 characters.
            std::time_t time = static_cast<std::time_t>(validFrom + 43200);
            char text[16];
            std::strftime(text, sizeof(text), "%Y%m%d%H%M%S", std::gmtime(&time));
            const Bytes genTime(text, text + 14);
            bytes[Find(bytes, genTime) + 9] ^= 0x01;
        }
        const Outcome outcome = Check(bytes);
        EXPECT_EQ(outcome.data.flags, test.flags);
        EXPECT_EQ(outcome.code, (test.flags & vdsFlagTrusted) != 0 ? vdsOk : vdsErrUntrusted);
        EXPECT_EQ(handler_.Saw("OnValidatedTimestampChain"),
                  !test.timestamp.empty() && std::string(test.signer) == "signer-lapsed" &&
                      test.token == Case::Intact);
    }
}

TEST_F(CorePeSignatureTest, OurSignerWritesTheTableThatOsslsigncodeAndWeAccept) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const fs::path root = ict_test::vds::PrivateVdsDir() / "roots" / "3520p1.pem";
    for (const auto& compiler : kCompilers) {
        for (const char* signer : {"signer-ec", "signer", "signer-512"}) {
            SCOPED_TRACE(compiler + " " + signer);
            const fs::path program = scratch_ / "a.exe";
            fs::copy_file(Program(compiler), program, fs::copy_options::overwrite_existing);
            const Bytes unsigned_ = ict_test::vds::ReadBytes(program);
            ict_test::vds::Sign(program, signer, true);
            const Bytes bytes = ict_test::vds::ReadBytes(program);
            const PeLayout layout = LayoutOf(bytes);
            ASSERT_EQ(layout.certificates.size(), 1u);
            EXPECT_EQ(layout.tableOffset, (unsigned_.size() + 7) / 8 * 8);
            EXPECT_EQ(layout.tableSize % 8, 0u);
            EXPECT_EQ(layout.tableOffset + layout.tableSize, bytes.size());
            // Only the checksum and the directory entry changed before the table.
            Bytes image(bytes.begin(),
                        bytes.begin() + static_cast<std::ptrdiff_t>(unsigned_.size()));
            Bytes original = unsigned_;
            for (Bytes* copy : {&image, &original}) {
                std::fill_n(copy->begin() + static_cast<std::ptrdiff_t>(layout.checksumOffset), 4,
                            0);
                std::fill_n(copy->begin() + static_cast<std::ptrdiff_t>(layout.securityEntryOffset),
                            8, 0);
            }
            EXPECT_EQ(image, original);
            EXPECT_TRUE(std::all_of(bytes.begin() + static_cast<std::ptrdiff_t>(unsigned_.size()),
                                    bytes.begin() + static_cast<std::ptrdiff_t>(layout.tableOffset),
                                    [](std::uint8_t byte) { return byte == 0; }));

            // Bound to its name: an unbound signature could not vouch for it.
            const Bytes name = integrity_check_tool::SignedFileNameBytes(program);
            EXPECT_EQ(Check(bytes).data.flags, kGood);
            EXPECT_EQ(Check(bytes, &name).code, vdsOk);

            // Signing again replaces the table's one entry, and only when asked.
            vds::signing::SignOptions replace;
            EXPECT_THROW(vds::signing::SignFile(program, ict_test::vds::Signer(signer), replace),
                         vds::signing::Error);
            replace.replace = true;
            vds::signing::SignFile(program, ict_test::vds::Signer(signer), replace);
            const Bytes resigned = ict_test::vds::ReadBytes(program);
            EXPECT_EQ(LayoutOf(resigned).certificates.size(), 1u);
            EXPECT_EQ(LayoutOf(resigned).tableOffset, layout.tableOffset);
            EXPECT_EQ(Check(resigned).data.flags, kGood);

            const auto run =
                Run("osslsigncode", {"verify", "-CAfile", root.string(), "-in", program.string()},
                    false);
            EXPECT_EQ(run.exitCode, 0) << run.Describe();
            EXPECT_EQ(run.out.find("invalid PE checksum"), std::string::npos) << run.out;
        }
    }
}

}  // namespace
}  // namespace vds_core_test
