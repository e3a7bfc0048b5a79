#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "common/signed_file_name.h"
#include "core_fixture.h"
#include "support/vds/pe_programs.h"
#include "vds/pe_format.h"

namespace vds_core_test {
namespace {

namespace fs = boost::filesystem;
using vds::format::PeLayout;

PeLayout LayoutOf(const Bytes& bytes) {
    vds::format::PeStatus status = vds::format::PeStatus::NotPe;
    PeLayout layout;
    const VdsResult result = vds::format::ParsePe(
        [&](std::uint64_t offset, void* buffer, std::size_t size) {
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), size,
                        static_cast<std::uint8_t*>(buffer));
            return vdsOk;
        },
        bytes.size(), &status, &layout);
    EXPECT_EQ(result, vdsOk);
    EXPECT_EQ(status, vds::format::PeStatus::Parsed);
    return layout;
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

class CorePeSignatureTest : public CoreFixture {
protected:
    void SetUp() override {
        CoreFixture::SetUp();
        const std::string missing = ict_test::vds::MissingPeTools();
        if (!missing.empty()) {
            GTEST_SKIP() << "Skipped: " << missing;
        }
    }

    // A program of `compiler`, built once per test.
    fs::path Program(const std::string& compiler) {
        const fs::path path = scratch_ / (compiler + ".exe");
        if (!fs::exists(path)) {
            ict_test::vds::BuildProgram(compiler, path);
        }
        return path;
    }

    Bytes OsslsigncodeSigned(const std::string& compiler, const std::string& signer,
                             const std::string& digest = "sha256",
                             const std::vector<std::string>& extra = {}) {
        const fs::path output = scratch_ / "signed.exe";
        fs::remove(output);
        ict_test::vds::OsslsigncodeSign(Program(compiler), output, signer, digest, extra);
        return ict_test::vds::ReadBytes(output);
    }

    struct Outcome {
        VdsResult code = vdsErrUnknown;
        VdsVerificationResultData data{};
    };

    Outcome Check(const Bytes& bytes, const Bytes* fileName = nullptr) {
        MemoryObject object{bytes};
        Outcome outcome;
        handler_.events.clear();
        outcome.code = Verify(object, &outcome.data, fileName);
        return outcome;
    }
};

constexpr VdsVerificationFlags kTrusted =
    vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped;

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
        {"signer-ec", "sha256", vdsOk, kTrusted},
        {"signer-ec", "sha512", vdsOk, kTrusted},
        {"signer", "sha384", vdsOk, kTrusted},
        {"unknown-signer", "sha256", vdsErrUntrusted,
         vdsFlagSigned | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped | vdsFlagIncompleteChain},
    };
    for (const auto& compiler : ict_test::vds::MingwCompilers()) {
        for (const auto& test : cases) {
            SCOPED_TRACE(compiler + " " + test.signer + " " + test.digest);
            const Bytes bytes = OsslsigncodeSigned(compiler, test.signer, test.digest);
            const PeLayout layout = LayoutOf(bytes);
            const Outcome outcome = Check(bytes);
            EXPECT_EQ(outcome.code, test.code);
            EXPECT_EQ(outcome.data.flags, test.flags);
            EXPECT_EQ(outcome.data.fileFormat, compiler.find("x86_64") == 0
                                                   ? vdsFileFormatPortableExecutable64
                                                   : vdsFileFormatPortableExecutable32);
            EXPECT_EQ(outcome.data.checkedContentSize, layout.tableOffset);
            EXPECT_EQ(outcome.data.signatureContainerSize, layout.tableSize);
            EXPECT_TRUE(handler_.Saw("OnEmbeddedSignatureChecked"));
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
         kTrusted},
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
        // A table the layout refuses (see PeLayoutTest) is malformed as a whole.
        {"the entry's revision", [](Bytes& b, const PeLayout& l) { b[l.tableOffset + 5] = 1; },
         vdsFlagMalformedContent},
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
    for (const auto& compiler : ict_test::vds::MingwCompilers()) {
        const Bytes original = OsslsigncodeSigned(compiler, "signer-ec");
        const PeLayout layout = LayoutOf(original);
        for (const auto& test : cases) {
            SCOPED_TRACE(compiler + ": " + test.name);
            Bytes bytes = original;
            test.mutate(bytes, layout);
            ASSERT_NE(bytes, original);
            const Outcome outcome = Check(bytes);
            EXPECT_EQ(outcome.code, (test.flags & vdsFlagTrusted) != 0 ? vdsOk : vdsErrUntrusted);
            EXPECT_EQ(outcome.data.flags, test.flags);
        }
    }
}

TEST_F(CorePeSignatureTest, NestedSignaturesAreAskedForAndTheFirstTrustedDecides) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const std::string compiler = ict_test::vds::MingwCompilers().back();
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
        fs::remove(outer);
        ict_test::vds::OsslsigncodeSign(Program(compiler), outer, test.first);
        const Bytes first = ict_test::vds::ReadBytes(outer);
        fs::remove(scratch_ / "nested.exe");
        ict_test::vds::OsslsigncodeSign(outer, scratch_ / "nested.exe", test.nested, "sha256",
                                        {"-nest"});
        const Bytes nested = ict_test::vds::ReadBytes(scratch_ / "nested.exe");
        ASSERT_GT(nested.size(), first.size());
        handler_.nextSignedData = test.answer;
        const Outcome outcome = Check(nested);
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
         kTrusted | vdsFlagCounterSignatureUsed},
        {"expired, stamped after it lapsed", "signer-lapsed", stamped(validFrom + 2 * 86400),
         Case::Intact, kExpired},
        {"expired, stamped before its chain was valid", "signer-lapsed", stamped(validFrom - 3600),
         Case::Intact, kExpired},
        {"expired, the token's time changed", "signer-lapsed", stamped(validFrom + 43200),
         Case::TimeChanged, kExpired},
        {"expired, the token of another signature", "signer-lapsed", stamped(validFrom + 43200),
         Case::Transplanted, kExpired},
        {"valid, stamped: the timestamp is not needed", "signer-ec", stamped(validFrom + 43200),
         Case::Intact, kTrusted},
    };
    const std::string compiler = ict_test::vds::MingwCompilers().front();
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
    for (const auto& compiler : ict_test::vds::MingwCompilers()) {
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

            const Bytes rightName = integrity_check_tool::SignedFileNameBytes(program);
            const Bytes otherName = integrity_check_tool::SignedFileNameBytes(scratch_ / "b.exe");
            EXPECT_EQ(Check(bytes).data.flags, kTrusted);
            EXPECT_EQ(Check(bytes, &rightName).code, vdsOk);
            const Outcome renamed = Check(bytes, &otherName);
            EXPECT_EQ(renamed.code, vdsErrUntrusted);
            EXPECT_EQ(renamed.data.flags & vdsFlagSignatureValueNotMatched,
                      vdsFlagSignatureValueNotMatched);

            // Signing again replaces the table's one entry, and only when asked.
            vds::signing::SignOptions replace;
            EXPECT_THROW(vds::signing::SignFile(program, ict_test::vds::Signer(signer), replace),
                         vds::signing::Error);
            replace.replace = true;
            vds::signing::SignFile(program, ict_test::vds::Signer(signer), replace);
            const Bytes resigned = ict_test::vds::ReadBytes(program);
            EXPECT_EQ(LayoutOf(resigned).certificates.size(), 1u);
            EXPECT_EQ(LayoutOf(resigned).tableOffset, layout.tableOffset);
            EXPECT_EQ(Check(resigned).data.flags, kTrusted);

            const auto run = ict_test::vds::OsslsigncodeVerify(program, "3520p1");
            EXPECT_EQ(run.exitCode, 0) << run.Describe();
            EXPECT_EQ(run.out.find("invalid PE checksum"), std::string::npos) << run.out;
        }
    }
}

}  // namespace
}  // namespace vds_core_test
