#include "common/signed_file_name.h"
#include "core_fixture.h"
#include "support/file_helpers.h"
#include "support/host_tools.h"
#include "vds/signature_format.h"
#include "vds/signing.h"

namespace vds_core_test {
namespace {

constexpr VdsVerificationFlags kGood =
    vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped;
constexpr VdsVerificationFlags kBad = vdsFlagSigned | vdsFlagEmbedded;

using CoreVerificationTest = CoreFixture;

TEST_F(CoreVerificationTest, GoodSignatureIsTrustedAndReportsItsLayout) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    MemoryObject object{SignedContent("signer", 3 * 1024 * 1024 + 5)};
    VdsVerificationResultData result{};
    ASSERT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.flags, kGood);
    EXPECT_EQ(result.checkedContentSize, 3u * 1024 * 1024 + 5);
    EXPECT_EQ(result.checkedContentSize + result.signatureContainerSize, object.bytes.size());
    EXPECT_EQ(result.fileFormat, vdsFileFormatUnspecified);
    // The chain runs from the leaf through the issuing CA to the root.
    ASSERT_EQ(handler_.chainSubjects.size(), 3u);
    EXPECT_NE(handler_.chainSubjects[0].find("ICT Dev VDS Signer"), std::string::npos);
    EXPECT_NE(handler_.chainSubjects[2].find("ICT Dev Root 3520p1"), std::string::npos);

    const std::vector<std::string> expected = {
        "OnVerifierCreated",   "OnRevocationCheckerCreated", "OnFileFormat",
        "OnSignedDataStarted", "OnSignerInfoStarted",        "OnContentProcessed",
        "LogCertificateChain", "OnValidatedContentChain",    "OnSignerInfoChecked",
        "OnSignedDataChecked", "OnEmbeddedSignatureChecked", "OnFinalResult"};
    EXPECT_EQ(handler_.events, expected);
}

// The verdict on each object: exact flags where they are all known, else the
// fault's flag with trust withheld.
TEST_F(CoreVerificationTest, EachObjectGetsItsVerdict) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const auto signedBy = [&](const char* signer, bool withRoot) {
        ict_test::WriteBytes(scratch_ / "object.bin", Pattern(100));
        ::vds::signing::SignFile(scratch_ / "object.bin", ict_test::vds::Signer(signer, withRoot),
                                 {});
        return ict_test::vds::ReadBytes(scratch_ / "object.bin");
    };
    const Bytes good = SignedContent("signer", 3000);
    const std::size_t trailer = good.size() - ::vds::format::kTrailerSize;
    const auto changed = [&](std::size_t at, std::uint8_t mask) {
        Bytes bytes = good;
        bytes[at] ^= mask;
        return bytes;
    };
    const auto withSize = [&](std::uint32_t size) {
        Bytes bytes = good;
        for (int index = 0; index < 4; ++index) {
            bytes[trailer + 8 + index] = static_cast<std::uint8_t>(size >> (8 * index));
        }
        return bytes;
    };
    const std::uint32_t cmsSize = static_cast<std::uint32_t>(trailer - 3000);
    const Bytes bound = SignedContent("signer", 2000, true, "Setup.exe");
    const Bytes unbound = SignedContent("signer", 2000, false, "Setup.exe");
    const auto name = [](const char* text) {
        return integrity_check_tool::SignedFileNameBytes(text);
    };
    const Bytes sameName = name("Setup.exe");
    const Bytes otherCase = name("setup.exe");
    const Bytes shorter = name("Setup.ex");
    const Bytes otherName = name("Other.exe");
    struct Case {
        const char* what;
        Bytes bytes;
        VdsVerificationFlags flags;
        bool exact;
        const Bytes* fileName = nullptr;
    };
    const Case cases[] = {
        {"512-bit key", SignedContent("signer-512"), kGood, true},
        {"issued by the root itself", SignedContent("signer-direct"), kGood, true},
        {"elliptic curve key", SignedContent("signer-ec"), kGood, true},
        {"without the purpose", signedBy("signer-nopurpose", false), kBad | vdsFlagInvalidPurpose,
         false},
        {"expired", signedBy("signer-expired", false), kBad | vdsFlagExpired, false},
        {"unknown chain", signedBy("unknown-signer", false), kBad | vdsFlagIncompleteChain, false},
        {"unknown root", signedBy("unknown-signer", true), kBad | vdsFlagUntrustedRoot, false},
        {"a content byte", changed(1234, 1), vdsFlagSignatureValueNotMatched, false},
        // The last byte of the CMS block is the signature value itself.
        {"the signature value", changed(trailer - 1, 0x40), vdsFlagSignatureValueNotMatched, false},
        {"unsigned, empty", Pattern(0), vdsFlagUnsigned, true},
        {"unsigned, shorter than a trailer", Pattern(15), vdsFlagUnsigned, true},
        {"unsigned", Pattern(5000), vdsFlagUnsigned, true},
        {"size zero", withSize(0), vdsFlagMalformedContent, false},
        {"size beyond the object", withSize(static_cast<std::uint32_t>(good.size())),
         vdsFlagMalformedContent, false},
        {"size above the maximum", withSize(::vds::format::kMaxSignatureSize + 1),
         vdsFlagMalformedContent, false},
        {"size one short: CMS does not fill its block", withSize(cmsSize - 1),
         vdsFlagMalformedContent, false},
        {"size one long: block starts inside the content", withSize(cmsSize + 1),
         vdsFlagMalformedContent, false},
        {"unknown version", changed(trailer + 12, 3), vdsFlagMalformedContent, false},
        {"content cut off: the block starts before the object",
         Bytes(good.begin() + 3100, good.end()), vdsFlagMalformedContent, false},
        {"bound, same name", bound, kGood, true, &sameName},
        {"bound, no name asked", bound, kGood, true},
        {"bound, name in other case", bound, vdsFlagSignatureValueNotMatched, false, &otherCase},
        {"bound, name cut short", bound, vdsFlagSignatureValueNotMatched, false, &shorter},
        {"bound, other name", bound, vdsFlagSignatureValueNotMatched, false, &otherName},
        {"unbound cannot vouch for a name", unbound, vdsFlagSignatureValueNotMatched, false,
         &sameName},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        MemoryObject object{test.bytes};
        VdsVerificationResultData result{};
        handler_.events.clear();
        EXPECT_EQ(Verify(object, &result, test.fileName),
                  (test.flags & vdsFlagTrusted) != 0 ? vdsOk : vdsErrUntrusted);
        if (test.exact) {
            EXPECT_EQ(result.flags, test.flags);
        } else {
            EXPECT_EQ(result.flags & (test.flags | vdsFlagTrusted), test.flags);
        }
        if (test.flags == vdsFlagUnsigned) {
            EXPECT_EQ(result.checkedContentSize, 0u);
        }
        if (test.fileName == &sameName && test.exact) {
            EXPECT_TRUE(handler_.Saw("OnAdditionalContent"));
        }
    }

    // `openssl cms -sign` made this one; only the trailer is ours.
    ICT_NEEDS_LINUX_TOOL("openssl");
    const auto path = scratch_ / "cli.bin";
    ict_test::WriteBytes(path, Pattern(70000));
    ict_test::vds::SignWithOpenSslCommand(path, "signer");
    MemoryObject object{ict_test::vds::ReadBytes(path)};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.flags, kGood);
    EXPECT_EQ(result.checkedContentSize, 70000u);
}

TEST_F(CoreVerificationTest, ReadFailuresAreReportedNotGuessed) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes good = SignedContent("signer", 3 * 1024 * 1024);
    VdsVerificationResultData result{};
    for (const std::uint64_t failFrom :
         {std::uint64_t{0}, std::uint64_t{2 * 1024 * 1024}, std::uint64_t{good.size() - 100}}) {
        MemoryObject object{good, failFrom};
        EXPECT_EQ(Verify(object, &result), vdsErrCallbackRead);
        EXPECT_EQ(result.flags, 0u);
    }
    // An object that claims more bytes than it delivers.
    MemoryObject shorter{good};
    VdsReadCallback callback = shorter.Callback();
    callback.objectSize += 10;
    const Bytes purpose = ict_test::vds::Purpose();
    const VdsBlob purposeBlob{purpose.data(), purpose.size()};
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(verifier_, &callback, &purposeBlob, &result),
              vdsErrCallbackRead);
}

TEST_F(CoreVerificationTest, RevokedLeafIsRefusedOnlyWithItsRootsDatabase) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    MemoryObject revoked{SignedContent("signer-revoked")};
    VdsVerificationResultData result{};
    // No checker: nothing says it is revoked.
    EXPECT_EQ(Verify(revoked, &result), vdsOk);
    EXPECT_EQ(result.flags, kGood);

    ASSERT_EQ(CreateVerifier(AllRoots(), CreateChecker({"3520p1", "4823d1"})), vdsOk);
    MemoryObject good{SignedContent("signer")};
    EXPECT_EQ(Verify(good, &result), vdsOk);
    EXPECT_EQ(result.flags, vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded);
    // A clone verifies alone, after the original and its checker are gone.
    VdsVerifier* clone = nullptr;
    ASSERT_EQ(VdsCloneVerifier(verifier_, &clone), vdsOk);
    VdsReleaseVerifier(verifier_);
    verifier_ = clone;
    VdsReleaseRevocationChecker(checker_);
    checker_ = nullptr;
    EXPECT_EQ(Verify(revoked, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & (vdsFlagRevoked | vdsFlagRevocationCheckSkipped), vdsFlagRevoked);

    // A database of another hierarchy leaves this one unchecked.
    ASSERT_EQ(CreateVerifier(AllRoots(), CreateChecker({"3020d1"})), vdsOk);
    EXPECT_EQ(Verify(revoked, &result), vdsOk);
    EXPECT_EQ(result.flags & vdsFlagRevocationCheckSkipped, vdsFlagRevocationCheckSkipped);
}

TEST_F(CoreVerificationTest, OnlyTheGivenRootsAreTrustedAndArgumentsAreChecked) {
    ASSERT_EQ(CreateVerifier({ict_test::vds::RootCertificate("3020d1")}), vdsOk);
    MemoryObject object{SignedContent("signer")};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagIncompleteChain, vdsFlagIncompleteChain);

    const VdsReadCallback callback = object.Callback();
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(nullptr, &callback, nullptr, &result),
              vdsErrInvalidArgument);
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(verifier_, nullptr, nullptr, &result),
              vdsErrInvalidArgument);
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(verifier_, &callback, nullptr, nullptr),
              vdsErrInvalidArgument);
    EXPECT_EQ(VdsVerifyObjectByCallbackWithAdditionalContent_Ex(verifier_, &callback, nullptr,
                                                                nullptr, &result),
              vdsErrInvalidArgument);
    VdsVerifier* verifier = nullptr;
    EXPECT_EQ(VdsCloneVerifier(nullptr, &verifier), vdsErrInvalidArgument);

    // Roots are required and must parse.
    EXPECT_EQ(VdsCreateVerifier_Ex(nullptr, 0, nullptr, nullptr, &verifier), vdsErrInvalidArgument);
    Bytes broken = ict_test::vds::RootCertificate("3520p1");
    broken.pop_back();
    EXPECT_EQ(CreateVerifier({ict_test::vds::RootCertificate("3020d1"), broken}),
              vdsErrInvalidFormat);
    EXPECT_TRUE(handler_.Saw("OnCertificateParsingFailed"));
    EXPECT_EQ(verifier_, nullptr);
}

TEST_F(CoreVerificationTest, NestedSignaturesAreCheckedWhenTheHandlerAsks) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    // Inner good signature, outer expired one over it.
    const auto path = scratch_ / "nested.bin";
    ict_test::WriteBytes(path, Pattern(1000));
    ict_test::vds::Sign(path, "signer");
    const std::uint64_t innerSize = boost::filesystem::file_size(path);
    ::vds::signing::SignOptions nest;
    nest.nest = true;
    ::vds::signing::SignFile(path, ict_test::vds::Signer("signer-expired"), nest);
    MemoryObject object{ict_test::vds::ReadBytes(path)};

    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagExpired, vdsFlagExpired);
    EXPECT_EQ(result.checkedContentSize, innerSize);
    EXPECT_TRUE(handler_.Saw("IsNextSignedDataRequired"));

    handler_.nextSignedData = true;
    EXPECT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.checkedContentSize, 1000u);
    EXPECT_EQ(result.signatureContainerSize, object.bytes.size() - 1000);
}

}  // namespace
}  // namespace vds_core_test
