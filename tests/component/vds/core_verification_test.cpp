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

TEST_F(CoreVerificationTest, OtherKeySizesRootsAndAnIndependentProducerVerify) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    for (const char* signer : {"signer-512", "signer-direct", "signer-ec"}) {
        SCOPED_TRACE(signer);
        MemoryObject object{SignedContent(signer)};
        VdsVerificationResultData result{};
        EXPECT_EQ(Verify(object, &result), vdsOk);
        EXPECT_EQ(result.flags, kGood);
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

TEST_F(CoreVerificationTest, EachBadSignatureNamesItsFault) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    struct Case {
        const char* signer;
        bool withRoot;
        VdsVerificationFlags expected;
    };
    const Case cases[] = {
        {"signer-nopurpose", false, vdsFlagInvalidPurpose},
        {"signer-expired", false, vdsFlagExpired},
        {"unknown-signer", false, vdsFlagIncompleteChain},
        {"unknown-signer", true, vdsFlagUntrustedRoot},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.signer) + (test.withRoot ? " with its root" : ""));
        const auto path = scratch_ / "bad.bin";
        ict_test::WriteBytes(path, Pattern(100));
        ::vds::signing::SignFile(path, ict_test::vds::Signer(test.signer, test.withRoot), {});
        MemoryObject object{ict_test::vds::ReadBytes(path)};
        VdsVerificationResultData result{};
        EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
        EXPECT_EQ(result.flags & test.expected, test.expected);
        EXPECT_EQ(result.flags & vdsFlagTrusted, 0u);
        EXPECT_EQ(result.flags & (vdsFlagSigned | vdsFlagEmbedded),
                  vdsFlagSigned | vdsFlagEmbedded);
    }
}

TEST_F(CoreVerificationTest, TamperingAnywhereIsCaught) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes good = SignedContent("signer", 4000);
    // A content byte: the digest no longer matches.
    MemoryObject content{good};
    content.bytes[1234] ^= 1;
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(content, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagSignatureValueNotMatched, vdsFlagSignatureValueNotMatched);

    // The last byte of the CMS block is the signature value itself.
    MemoryObject signature{good};
    signature.bytes[good.size() - ::vds::format::kTrailerSize - 1] ^= 0x40;
    EXPECT_EQ(Verify(signature, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagSignatureValueNotMatched, vdsFlagSignatureValueNotMatched);
}

TEST_F(CoreVerificationTest, UnsignedAndMalformedObjectsAreUntrusted) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    VdsVerificationResultData result{};
    for (const std::size_t size : {std::size_t{0}, std::size_t{15}, std::size_t{5000}}) {
        MemoryObject unsigned_{Pattern(size)};
        EXPECT_EQ(Verify(unsigned_, &result), vdsErrUntrusted);
        EXPECT_EQ(result.flags, vdsFlagUnsigned);
        EXPECT_EQ(result.checkedContentSize, 0u);
    }

    const Bytes good = SignedContent("signer", 3000);
    const std::size_t trailer = good.size() - ::vds::format::kTrailerSize;
    auto withSize = [&](std::uint32_t size) {
        Bytes bytes = good;
        for (int index = 0; index < 4; ++index) {
            bytes[trailer + 8 + index] = static_cast<std::uint8_t>(size >> (8 * index));
        }
        return bytes;
    };
    const std::uint32_t cmsSize = static_cast<std::uint32_t>(trailer - 3000);
    Bytes wrongVersion = good;
    wrongVersion[trailer + 12] = 2;
    Bytes truncated(good.begin() + 3000 + 100, good.end());  // trailer points before the start
    const std::vector<std::pair<const char*, Bytes>> malformed = {
        {"size zero", withSize(0)},
        {"size beyond the object", withSize(static_cast<std::uint32_t>(good.size()))},
        {"size above the maximum", withSize(::vds::format::kMaxSignatureSize + 1)},
        {"size one short: CMS does not fill its block", withSize(cmsSize - 1)},
        {"size one long: block starts inside the content", withSize(cmsSize + 1)},
        {"unknown version", wrongVersion},
        {"content cut off", truncated},
    };
    for (const auto& [what, bytes] : malformed) {
        SCOPED_TRACE(what);
        MemoryObject object{bytes};
        EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
        EXPECT_EQ(result.flags & vdsFlagMalformedContent, vdsFlagMalformedContent);
        EXPECT_EQ(result.flags & vdsFlagTrusted, 0u);
    }
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

TEST_F(CoreVerificationTest, FileNameBindingNeedsTheSameName) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes bound = SignedContent("signer", 2000, true, "Setup.exe");
    const Bytes sameName = integrity_check_tool::SignedFileNameBytes("Setup.exe");
    VdsVerificationResultData result{};
    MemoryObject object{bound};
    EXPECT_EQ(Verify(object, &result, &sameName), vdsOk);
    EXPECT_EQ(result.flags, kGood);
    EXPECT_TRUE(handler_.Saw("OnAdditionalContent"));
    // Without binding the extra attribute is simply not asked for.
    EXPECT_EQ(Verify(object, &result), vdsOk);

    for (const char* other : {"setup.exe", "Setup.ex", "Other.exe"}) {
        SCOPED_TRACE(other);
        const Bytes name = integrity_check_tool::SignedFileNameBytes(other);
        EXPECT_EQ(Verify(object, &result, &name), vdsErrUntrusted);
        EXPECT_EQ(result.flags & vdsFlagSignatureValueNotMatched, vdsFlagSignatureValueNotMatched);
    }
    // A signature made without a name cannot vouch for one.
    MemoryObject unbound{SignedContent("signer", 2000, false, "Setup.exe")};
    EXPECT_EQ(Verify(unbound, &result, &sameName), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagSignatureValueNotMatched, vdsFlagSignatureValueNotMatched);
}

TEST_F(CoreVerificationTest, RevokedLeafIsRefusedOnlyWithItsRootsDatabase) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes revoked = SignedContent("signer-revoked");
    MemoryObject object{revoked};
    VdsVerificationResultData result{};
    // No checker: nothing says it is revoked.
    EXPECT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.flags, kGood);

    ASSERT_EQ(CreateVerifier(AllRoots(), CreateChecker({"3520p1", "4823d1"})), vdsOk);
    EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagRevoked, vdsFlagRevoked);
    EXPECT_EQ(result.flags & vdsFlagRevocationCheckSkipped, 0u);

    MemoryObject good{SignedContent("signer")};
    EXPECT_EQ(Verify(good, &result), vdsOk);
    EXPECT_EQ(result.flags, vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded);

    // A database of another hierarchy leaves this one unchecked.
    ASSERT_EQ(CreateVerifier(AllRoots(), CreateChecker({"3020d1"})), vdsOk);
    EXPECT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.flags & vdsFlagRevocationCheckSkipped, vdsFlagRevocationCheckSkipped);
}

TEST_F(CoreVerificationTest, OnlyTheGivenRootsAreTrusted) {
    ASSERT_EQ(CreateVerifier({ict_test::vds::RootCertificate("3020d1")}), vdsOk);
    MemoryObject object{SignedContent("signer")};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(object, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagIncompleteChain, vdsFlagIncompleteChain);

    // Roots are required and must parse.
    VdsVerifier* verifier = nullptr;
    EXPECT_EQ(VdsCreateVerifier_Ex(nullptr, 0, nullptr, nullptr, &verifier), vdsErrInvalidArgument);
    Bytes broken = ict_test::vds::RootCertificate("3520p1");
    broken.pop_back();
    EXPECT_EQ(CreateVerifier({ict_test::vds::RootCertificate("3020d1"), broken}),
              vdsErrInvalidFormat);
    EXPECT_TRUE(handler_.Saw("OnCertificateParsingFailed"));
    EXPECT_EQ(verifier_, nullptr);
}

TEST_F(CoreVerificationTest, CloneVerifiesAloneAfterTheOriginalIsGone) {
    ASSERT_EQ(CreateVerifier(AllRoots(), CreateChecker({"3520p1"})), vdsOk);
    VdsVerifier* clone = nullptr;
    ASSERT_EQ(VdsCloneVerifier(verifier_, &clone), vdsOk);
    VdsReleaseVerifier(verifier_);
    verifier_ = clone;
    VdsReleaseRevocationChecker(checker_);
    checker_ = nullptr;
    MemoryObject revoked{SignedContent("signer-revoked")};
    VdsVerificationResultData result{};
    EXPECT_EQ(Verify(revoked, &result), vdsErrUntrusted);
    EXPECT_EQ(result.flags & vdsFlagRevoked, vdsFlagRevoked);
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

TEST_F(CoreVerificationTest, ArgumentsAreChecked) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    MemoryObject object{Pattern(10)};
    const VdsReadCallback callback = object.Callback();
    VdsVerificationResultData result{};
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(nullptr, &callback, nullptr, &result),
              vdsErrInvalidArgument);
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(verifier_, nullptr, nullptr, &result),
              vdsErrInvalidArgument);
    EXPECT_EQ(VdsVerifyObjectByCallback_Ex(verifier_, &callback, nullptr, nullptr),
              vdsErrInvalidArgument);
    EXPECT_EQ(VdsVerifyObjectByCallbackWithAdditionalContent_Ex(verifier_, &callback, nullptr,
                                                                nullptr, &result),
              vdsErrInvalidArgument);
    VdsVerifier* copy = nullptr;
    EXPECT_EQ(VdsCloneVerifier(nullptr, &copy), vdsErrInvalidArgument);
}

}  // namespace
}  // namespace vds_core_test
