#include <boost/process/search_path.hpp>

#include "common/signed_file_name.h"
#include "core_fixture.h"
#include "support/host_tools.h"
#include "support/mutator.h"
#include "support/run_program.h"
#include "vds/signature_format.h"
#include "vds/signing.h"

namespace vds_core_test {
namespace {

constexpr VdsVerificationFlags kBad = vdsFlagSigned | vdsFlagEmbedded;

using CoreVerificationTest = CoreFixture;

class CoreRevocationTest : public CoreFixture {
protected:
    void TearDown() override {
        CoreFixture::TearDown();
        VdsReleaseRevocationChecker(checker_);
        VdsRevocationReleaseContainer(container_);
        for (auto* certificate : certificates_) {
            AsndReleaseCertificate(certificate);
        }
    }

    VdsResult Load(const Bytes& bytes) {
        VdsRevocationReleaseContainer(container_);
        container_ = nullptr;
        bytes_ = bytes;
        const VdsBlob blob{bytes_.data(), bytes_.size()};
        return VdsRevocationLoadContainer(&blob, &container_);
    }

    AsndCertificate* Root(const std::string& name) {
        const Bytes der = ict_test::vds::RootCertificate(name);
        AsndCertificate* certificate = nullptr;
        EXPECT_EQ(AsndParseAndValidateCertificate(der.data(), der.size(), &certificate), vdsOk);
        certificates_.push_back(certificate);
        return certificate;
    }

    VdsLoadedRevocationDb* LoadDb(std::size_t index) {
        const VdsRevocationDatabase* database = nullptr;
        EXPECT_EQ(VdsRevocationGetDatabase(container_, index, &database), vdsOk);
        VdsLoadedRevocationDb* loaded = nullptr;
        EXPECT_EQ(VdsRevocationLoadDb(database, index, &handler_, &loaded), vdsOk);
        return loaded;
    }

    // Checker over the databases of the named CRL files.
    VdsRevocationChecker* CreateChecker(const std::vector<std::string>& crls) {
        EXPECT_EQ(Load(ict_test::vds::RevocationContainer(crls)), vdsOk);
        std::size_t count = 0;
        EXPECT_EQ(VdsRevocationGetDatabaseCount(container_, &count), vdsOk);
        std::vector<VdsLoadedRevocationDb*> loaded;
        for (std::size_t index = 0; index < count; ++index) {
            loaded.push_back(LoadDb(index));
        }
        VdsReleaseRevocationChecker(checker_);
        checker_ = nullptr;
        EXPECT_EQ(VdsCreateRevocationChecker(loaded.data(), loaded.size(), &checker_), vdsOk);
        for (auto* db : loaded) {
            VdsRevocationReleaseDb(db);
        }
        return checker_;
    }

    Bytes bytes_;
    VdsRevocationContainer* container_ = nullptr;
    VdsRevocationChecker* checker_ = nullptr;
    std::vector<AsndCertificate*> certificates_;
};

TEST_F(CoreVerificationTest, GoodSignatureIsTrustedAndReportsItsLayout) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    MemoryObject object{SignedContent("signer", 3 * 1024 * 1024 + 5)};
    VdsVerificationResultData result{};
    ASSERT_EQ(Verify(object, &result), vdsOk);
    EXPECT_EQ(result.flags, kGood);
    EXPECT_EQ(result.checkedContentSize, 3u * 1024 * 1024 + 5);
    EXPECT_EQ(result.checkedContentSize + result.signatureContainerSize, object.bytes.size());
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
    ict_test::WriteBytes(scratch_ / "root.bin", Pattern(100));
    ::vds::signing::SignFile(scratch_ / "root.bin", ict_test::vds::Signer("unknown-signer", true),
                             {});
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
    const Bytes sameName = integrity_check_tool::SignedFileNameBytes("Setup.exe");
    const Bytes otherCase = integrity_check_tool::SignedFileNameBytes("setup.exe");
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
        {"without the purpose", SignedContent("signer-nopurpose"), kBad | vdsFlagInvalidPurpose,
         false},
        {"expired", SignedContent("signer-expired"), kBad | vdsFlagExpired, false},
        {"unknown chain", SignedContent("unknown-signer"), kBad | vdsFlagIncompleteChain, false},
        {"unknown root", ict_test::vds::ReadBytes(scratch_ / "root.bin"),
         kBad | vdsFlagUntrustedRoot, false},
        {"a content byte", changed(1234, 1), vdsFlagSignatureValueNotMatched, false},
        // The last byte of the CMS block is the signature value itself.
        {"the signature value", changed(trailer - 1, 0x40), vdsFlagSignatureValueNotMatched, false},
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
        {"unbound cannot vouch for a name", unbound, vdsFlagSignatureValueNotMatched, false,
         &sameName},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        const Outcome outcome = Check(test.bytes, test.fileName);
        const VdsVerificationResultData& result = outcome.data;
        EXPECT_EQ(outcome.code, (test.flags & vdsFlagTrusted) != 0 ? vdsOk : vdsErrUntrusted);
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
    MemoryObject shorter{good, UINT64_MAX, 10};
    EXPECT_EQ(Verify(shorter, &result), vdsErrCallbackRead);
}

TEST_F(CoreRevocationTest, RevokedLeafIsRefusedOnlyWithItsRootsDatabase) {
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

    // Every call refuses a missing argument; roots are required and must parse.
    const VdsReadCallback callback = object.Callback();
    VdsVerifier* verifier = nullptr;
    EXPECT_EQ(std::vector<VdsResult>(
                  {VdsVerifyObjectByCallback_Ex(nullptr, &callback, nullptr, &result),
                   VdsVerifyObjectByCallback_Ex(verifier_, nullptr, nullptr, &result),
                   VdsVerifyObjectByCallback_Ex(verifier_, &callback, nullptr, nullptr),
                   VdsVerifyObjectByCallbackWithAdditionalContent_Ex(verifier_, &callback, nullptr,
                                                                     nullptr, &result),
                   VdsCloneVerifier(nullptr, &verifier),
                   VdsCreateVerifier_Ex(nullptr, 0, nullptr, nullptr, &verifier)}),
              std::vector<VdsResult>(6, vdsErrInvalidArgument));
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
    const Bytes nested = ict_test::vds::ReadBytes(path);

    const Outcome outer = Check(nested);
    EXPECT_EQ(outer.code, vdsErrUntrusted);
    EXPECT_EQ(outer.data.flags & vdsFlagExpired, vdsFlagExpired);
    EXPECT_EQ(outer.data.checkedContentSize, innerSize);
    EXPECT_TRUE(handler_.Saw("IsNextSignedDataRequired"));

    handler_.nextSignedData = true;
    const Outcome inner = Check(nested);
    EXPECT_EQ(inner.code, vdsOk);
    EXPECT_EQ(inner.data.checkedContentSize, 1000u);
    EXPECT_EQ(inner.data.signatureContainerSize, nested.size() - 1000);
}

TEST_F(CoreRevocationTest, ContainerDatabasesNameTheirRoots) {
    ASSERT_EQ(Load(ict_test::vds::RevocationContainer({"3520p1"})), vdsOk);
    std::size_t count = 0;
    ASSERT_EQ(VdsRevocationGetDatabaseCount(container_, &count), vdsOk);
    ASSERT_EQ(count, 1u);
    const VdsRevocationDatabase* database = nullptr;
    EXPECT_EQ(VdsRevocationGetDatabase(container_, 1, &database), vdsErrNotFound);
    ASSERT_EQ(VdsRevocationGetDatabase(container_, 0, &database), vdsOk);
    AsndCertificate* root = Root("3520p1");
    VdsBlob serial{};
    ASSERT_EQ(AsndGetCertificateSerialNumber(root, &serial), vdsOk);
    VdsBlob id{};
    ASSERT_EQ(VdsRevocationGetHierarchyId(database, &id), vdsOk);
    EXPECT_EQ(Bytes(id.data, id.data + id.size), Bytes(serial.data, serial.data + serial.size));
    VdsRevocationDbInfo info{};
    ASSERT_EQ(VdsRevocationGetDbInfo(database, &info), vdsOk);
    EXPECT_GT(info.issueDate, 1700000000);  // made in the tree's lifetime
    EXPECT_GT(info.size, 200u);

    VdsLoadedRevocationDb* loaded = LoadDb(0);
    EXPECT_TRUE(handler_.Saw("OnRevocationDbLoad"));
    EXPECT_EQ(VdsRevocationMatchRoot(loaded, root), vdsOk);
    EXPECT_EQ(VdsRevocationValidateDb(loaded, root), vdsOk);
    EXPECT_EQ(VdsRevocationMatchRoot(loaded, Root("4823d1")), vdsErrNotMatched);
    EXPECT_EQ(VdsRevocationValidateDb(loaded, Root("4823d1")), vdsErrInvalidSignature);
    VdsLoadedRevocationDb* twice[] = {loaded, loaded};
    VdsRevocationChecker* checker = nullptr;
    EXPECT_EQ(VdsCreateRevocationChecker(twice, 2, &checker), vdsErrRdbAlreadyExists);
    VdsRevocationReleaseDb(loaded);
    EXPECT_EQ(VdsRevocationCheckerGetDatabaseCount(CreateChecker({"3520p1", "4823d1"})), 2u);
}

TEST_F(CoreRevocationTest, MatchesTheOpenSslReferenceProducer) {
    ICT_NEEDS_LINUX_TOOL("openssl");
    const Bytes ours = ict_test::vds::RevocationContainer({"3520p1"});
    const auto reference = scratch_ / "reference.p7b";
    const auto crl = ict_test::vds::PrivateVdsDir() / "crl" / "3520p1.crl.pem";
    const auto run = ict_test::RunTool(
        boost::process::search_path("openssl"),
        {"crl2pkcs7", "-in", crl.string(), "-outform", "DER", "-out", reference.string()});
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(ours, ict_test::vds::ReadBytes(reference));
}

TEST_F(CoreRevocationTest, DamagedContainersAndDatabasesAreRefused) {
    const Bytes good = ict_test::vds::RevocationContainer({"3520p1"});
    EXPECT_EQ(Load({}), vdsErrInvalidFormat);
    EXPECT_EQ(Load(Bytes(good.begin(), good.end() - 1)), vdsErrInvalidFormat);
    Bytes trailing = good;
    trailing.push_back(0);
    EXPECT_EQ(Load(trailing), vdsErrInvalidFormat);
    EXPECT_EQ(Load(ict_test::vds::RootCertificate("3520p1")), vdsErrInvalidFormat);

    // A CRL whose signature was altered loads but does not validate.
    Bytes forged = good;
    forged[forged.size() - 5] ^= 0x10;
    ASSERT_EQ(Load(forged), vdsOk);
    VdsLoadedRevocationDb* loaded = LoadDb(0);
    EXPECT_EQ(VdsRevocationValidateDb(loaded, Root("3520p1")), vdsErrInvalidSignature);
    VdsRevocationReleaseDb(loaded);
}

TEST_F(CoreRevocationTest, CertificatesMustParseExactlyAndSelfVerify) {
    Bytes der = ict_test::vds::RootCertificate("3020d1");
    AsndCertificate* certificate = nullptr;
    Bytes longer = der;
    longer.push_back(0);
    EXPECT_EQ(AsndParseAndValidateCertificate(longer.data(), longer.size(), &certificate),
              vdsErrInvalidFormat);
    EXPECT_EQ(AsndParseAndValidateCertificate(nullptr, 0, &certificate), vdsErrInvalidArgument);
    // The last bytes are the root's signature over itself.
    der[der.size() - 3] ^= 1;
    EXPECT_EQ(AsndParseAndValidateCertificate(der.data(), der.size(), &certificate),
              vdsErrInvalidSignature);
    EXPECT_EQ(certificate, nullptr);
}

// The offset of the CMS block, from the trailer.
std::size_t BlockStart(const Bytes& bytes) {
    vds::format::SignatureLocation location;
    vds::format::ParseTrailer(bytes.data() + bytes.size() - vds::format::kTrailerSize, bytes.size(),
                              &location);
    return static_cast<std::size_t>(location.contentSize);
}

// Every change to a signed object must cost it its trust: a single byte of
// the block that the core does not check is a byte an attacker may choose.
using CoreMutationTest = CoreFixture;

TEST_F(CoreMutationTest, NoMutantOfASignedObjectVerifies) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes name = integrity_check_tool::SignedFileNameBytes("payload.bin");
    std::uint32_t seed = 20261122;
    const auto checkMutants = [&](const char* what, const Bytes& original, const Bytes* fileName) {
        SCOPED_TRACE(what);
        const Outcome intact = Check(original, fileName);
        ASSERT_EQ(intact.code, vdsOk);
        EXPECT_EQ(intact.data.flags, kGood);
        EXPECT_EQ(intact.data.checkedContentSize, 300u);

        ict_test::Mutator mutator(seed++, original, BlockStart(original), 8);
        int accepted = 0;
        for (int index = 0; index < 800; ++index) {
            const Outcome mutant = Check(mutator.Next(), fileName);
            if (mutant.code == vdsOk) {
                ++accepted;
                ADD_FAILURE() << "mutant " << index << " verified, flags " << mutant.data.flags;
            }
        }
        EXPECT_EQ(accepted, 0);
    };
    checkMutants("our signer", SignedContent("signer", 300), nullptr);
    checkMutants("our signer, bound to the name", SignedContent("signer", 300, true), &name);

    // `openssl cms -sign` made this one; only the trailer is ours.
    ICT_NEEDS_LINUX_TOOL("openssl");
    const auto byOpenSsl = scratch_ / "openssl.bin";
    ict_test::WriteBytes(byOpenSsl, Pattern(300));
    ict_test::vds::SignWithOpenSslCommand(byOpenSsl, "signer");
    checkMutants("openssl cms", ict_test::vds::ReadBytes(byOpenSsl), nullptr);
}

// Changes that OpenSSL alone lets through, each made where it matters.
TEST_F(CoreMutationTest, UncheckedFieldsOfTheBlockAreChecked) {
    ASSERT_EQ(CreateVerifier(), vdsOk);
    const Bytes original = SignedContent("signer", 300);
    const std::size_t start = BlockStart(original);
    const auto find = [&](const Bytes& pattern, bool last) {
        const auto begin = original.begin() + static_cast<std::ptrdiff_t>(start);
        const auto found =
            last ? std::find_end(begin, original.end(), pattern.begin(), pattern.end())
                 : std::search(begin, original.end(), pattern.begin(), pattern.end());
        return found == original.end() ? std::size_t{0}
                                       : static_cast<std::size_t>(found - original.begin());
    };
    struct Case {
        const char* what;
        Bytes pattern;
        bool last;           // the SignerInfo follows the certificates
        std::size_t offset;  // of the changed byte in the pattern
        Bytes replacement;   // from there on
    };
    const Case cases[] = {
        // The SignerInfo's GOST signature algorithm relabelled as ECDSA with SHA-256.
        {"signature algorithm",
         {0x06, 0x08, 0x2A, 0x85, 0x03, 0x07, 0x01, 0x01, 0x01, 0x01},
         true,
         2,
         {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03, 0x02}},
        // The contentType attribute's SET of values re-tagged 0x11.
        {"attribute SET tag",
         {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03, 0x31},
         false,
         11,
         {0x11}},
        // The issuer name of the SignerInfo in other letter case.
        {"issuer letter case", {'I', 'C', 'T'}, true, 0, {'i'}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const std::size_t at = find(test.pattern, test.last);
        ASSERT_NE(at, 0u) << "pattern not in the block";
        Bytes mutant = original;
        std::copy(test.replacement.begin(), test.replacement.end(),
                  mutant.begin() + static_cast<std::ptrdiff_t>(at + test.offset));
        const Outcome outcome = Check(mutant);
        EXPECT_EQ(outcome.code, vdsErrUntrusted);
        EXPECT_NE(outcome.data.flags & (vdsFlagMalformedContent | vdsFlagIncompleteChain), 0u)
            << outcome.data.flags;
    }
}

}  // namespace
}  // namespace vds_core_test
