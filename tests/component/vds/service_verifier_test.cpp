#include <cstdio>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <boost/process/search_path.hpp>

#include "common/signed_file_name.h"
#include "service_fixture.h"
#include "support/host_tools.h"
#include "support/run_program.h"
#include "vds/signing.h"

namespace vds_service_test {
namespace {

using crypto::vds::service::IVdsVerificationResultPtr;

std::string SerialHex(const std::string& root) {
    const Bytes der = ict_test::vds::RootCertificate(root);
    const unsigned char* cursor = der.data();
    X509* certificate = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate);
    std::string hex;
    char digits[3];
    for (int index = 0; index < ASN1_STRING_length(serial); ++index) {
        std::snprintf(digits, sizeof(digits), "%02X", ASN1_STRING_get0_data(serial)[index]);
        hex += digits;
    }
    X509_free(certificate);
    return hex;
}

// A stream whose reads fail.
class BrokenIo : public ruk::MemoryIO {
public:
    using MemoryIO::MemoryIO;
    ruk::result_t Read(void*, std::size_t, std::size_t*) override { return ruk::result::IoError; }
};

using ServiceVerifierTest = ServiceFixture;

TEST_F(ServiceVerifierTest, TrustedAndUntrustedObjectsBothGiveTheirFlags) {
    ASSERT_EQ(Create(), ruk::result::Success);
    EXPECT_TRUE(
        sink_->Has("VdsCreateVerifierWithOptionalCrls: BEGIN rootsCount=0, optCrlRootsCount=4, "
                   "crlContainerSize=0"))
        << sink_->All();
    EXPECT_TRUE(sink_->Has("VdsCreateVerifierWithOptionalCrls: END: 0"));
    EXPECT_TRUE(sink_->Has("trustAnchorsCount=<nullptr>"));

    IVdsVerificationResultPtr result;
    auto good = SignedIo("signer");
    ASSERT_EQ(Verify(good.get(), &result), ruk::result::Success);
    EXPECT_EQ(FlagsOf(result),
              vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped);
    std::uint64_t size = 0;
    ASSERT_EQ(result->GetCheckedContentSize(&size), ruk::result::Success);
    EXPECT_EQ(size, 4096u);
    ASSERT_EQ(result->GetSignatureContainerSize(&size), ruk::result::Success);
    std::uint64_t whole = 0;
    good->GetSize(&whole);
    EXPECT_EQ(size, whole - 4096);
    VdsFileFormat format = 99;
    ASSERT_EQ(result->GetFileFormat(&format), ruk::result::Success);
    EXPECT_EQ(format, vdsFileFormatUnspecified);
    EXPECT_TRUE(sink_->Has("VerifyObject: verifier=0x"));
    EXPECT_TRUE(sink_->Has("purpose='PurposeCodeSign'"));
    EXPECT_TRUE(sink_->Has("OnFinalResult: finalResult=0 (vdsOk), trusted"));

    // An untrusted object still has its result; which faults a signer may
    // have is the core's table.
    result.reset();
    auto unsignedIo = ruk::CreateMemoryIO(Bytes(100, 1));
    ASSERT_EQ(Verify(unsignedIo.get(), &result), ruk::result::ObjectUntrusted);
    ASSERT_TRUE(result);
    EXPECT_EQ(FlagsOf(result), vdsFlagUnsigned);
    EXPECT_TRUE(sink_->Has("OnFinalResult: finalResult=-17 (vdsErrUntrusted), untrusted"));
}

TEST_F(ServiceVerifierTest, CoreFailuresComeBackWithoutAResult) {
    ASSERT_EQ(Create(), ruk::result::Success);
    const auto path = scratch_ / "signed";
    ict_test::WriteBytes(path, Bytes(100, 1));
    ict_test::vds::Sign(path, "signer");
    auto broken = ruk::MakeIntrusive<BrokenIo>(ict_test::vds::ReadBytes(path));
    IVdsVerificationResultPtr result;
    EXPECT_EQ(Verify(broken.get(), &result), ruk::result::IoError);
    EXPECT_FALSE(result);
    EXPECT_TRUE(sink_->Has(
        "VerifyObject: VdsVerifyObjectByCallback_Ex failed. VdsResult=-16 (vdsErrCallbackRead)"))
        << sink_->All();

    const Bytes name = integrity_check_tool::SignedFileNameBytes("signed");
    EXPECT_EQ(verifier_->VerifyObjectWithAdditionalContent(broken.get(), Range(name),
                                                           Range(purpose_), &result),
              ruk::result::IoError);
    EXPECT_TRUE(sink_->Has("VdsVerifyObjectByCallbackWithAdditionalContent_Ex failed. VdsResult="));
    EXPECT_EQ(verifier_->VerifyObject(nullptr, Range(purpose_), &result),
              ruk::result::InvalidArgument);
}

// The name reaches the core (which decides on it) and a clone verifies alone.
TEST_F(ServiceVerifierTest, FileNameCloneAndCatalog) {
    ASSERT_EQ(Create(), ruk::result::Success);
    auto bound = SignedIo("signer", true, "Tool.dll");
    IVdsVerificationResultPtr result;
    const Bytes name = integrity_check_tool::SignedFileNameBytes("Tool.dll");
    crypto::vds::service::IVdsSignatureVerifierPtr clone;
    ASSERT_EQ(verifier_->Clone(&clone), ruk::result::Success);
    verifier_.reset();
    EXPECT_EQ(clone->VerifyObjectWithAdditionalContent(bound.get(), Range(name), Range(purpose_),
                                                       &result),
              ruk::result::Success);
    EXPECT_TRUE(sink_->Has("OnAdditionalContent: AdditionalContent='Tool.dll', digests: "));

    // A catalog signed by the signer vouches for an unsigned object.
    const Bytes listed(321, 0x11);
    Bytes digest(32);
    unsigned int length = 0;
    EVP_Digest(listed.data(), listed.size(), digest.data(), &length,
               EVP_get_digestbyname("md_gost12_256"), nullptr);
    const auto catalog = scratch_ / "list.cat";
    ict_test::WriteBytes(catalog, ::vds::signing::MakeCatalogContent("md_gost12_256", {digest}));
    ict_test::vds::Sign(catalog, "signer");
    auto catalogIo = ruk::CreateMemoryIO(ict_test::vds::ReadBytes(catalog));
    ASSERT_EQ(clone->LoadExternalSignaturesCatalog(catalogIo.get()), ruk::result::Success);
    auto listedIo = ruk::CreateMemoryIO(listed);
    EXPECT_EQ(clone->VerifyObject(listedIo.get(), Range(purpose_), &result), ruk::result::Success);
    EXPECT_EQ(FlagsOf(result) & vdsFlagCatalog, vdsFlagCatalog);
    EXPECT_TRUE(sink_->Has("OnHashContainer: digestAlgorithm=md_gost12_256, hashItemsSize=1"));
    EXPECT_TRUE(sink_->Has("OnHashFound: leafSerial="));
    // A file of the wrong kind is no catalog.
    auto notCatalog = SignedIo("signer");
    EXPECT_EQ(clone->LoadExternalSignaturesCatalog(notCatalog.get()), ruk::result::InvalidFormat);
}

TEST_F(ServiceVerifierTest, NoRootsAreRefused) {
    verifier_.reset();
    EXPECT_EQ(crypto::vds::service::VdsCreateVerifierWithOptionalCrls({}, {}, {}, &verifier_),
              ruk::result::InvalidArgument);
    EXPECT_FALSE(verifier_);
    EXPECT_TRUE(sink_->Has("VdsCreateVerifierWithOptionalCrls: no trusted roots are provided"));
    EXPECT_TRUE(sink_->Has("VdsCreateVerifierWithOptionalCrls: END: " +
                           std::to_string(ruk::result::InvalidArgument)));

    Bytes broken = rootBytes_[0];
    broken.resize(100);
    EXPECT_EQ(Create({}, {}, {Range(broken)}), ruk::result::InvalidFormat);
    EXPECT_TRUE(
        sink_->Has("OnCertificateParsingFailed: Failed to parse certificate #0, size=100, Data="));
    EXPECT_TRUE(sink_->Has("VdsCreateVerifier_Ex() failed; VdsResult=-4 (vdsErrInvalidFormat)"));
}

TEST_F(ServiceVerifierTest, RevocationContainerCoversEveryTrustedRoot) {
    const Bytes all = ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"});
    ASSERT_EQ(Create(all), ruk::result::Success) << sink_->All();
    EXPECT_TRUE(sink_->Has("VdsRevocationCheckerFactoryImpl: 4 database(s) loaded"));
    EXPECT_TRUE(sink_->Has("Setup: TestRootHandlingPolicyFlags: None"));
    EXPECT_TRUE(
        sink_->Has("LoadDatabasesFromContainer: Loaded revocation database with hierarchy=" +
                   SerialHex("3520p1") + ", issuedDate="));
    EXPECT_TRUE(sink_->Has("ValidateWithRoot: Validated revocation database with hierarchy=" +
                           SerialHex("4823d1")));
    EXPECT_TRUE(
        sink_->Has("UpdateRevocationChecker: Created new revocation checker: Hierarchy Id "
                   "(Root Serial)="));
    EXPECT_TRUE(sink_->Has("Revocation Checker Object=0x"));
    EXPECT_TRUE(
        sink_->Has("OnRevocationCheckerCreated: Created New Revocation Checker, "
                   "trustAnchorsCount=4"));

    // The checker reaches the core: revocation was looked up.
    IVdsVerificationResultPtr result;
    auto good = SignedIo("signer");
    EXPECT_EQ(Verify(good.get(), &result), ruk::result::Success);
    EXPECT_EQ(FlagsOf(result), vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded);
}

TEST_F(ServiceVerifierTest, RevocationIsOnlySkippedForRootsThatAllowIt) {
    // Trusted roots need their databases: no container, no verifier.
    EXPECT_EQ(Create({}, Roots()), ruk::result::NotFound);
    EXPECT_FALSE(verifier_);
    EXPECT_TRUE(
        sink_->Has("no revocation container, but 4 trusted root(s) require a "
                   "revocation database"));
    // Roots given as optional may go without: the check is skipped and the flag says so.
    ASSERT_EQ(Create({}, {}, Roots()), ruk::result::Success);
    IVdsVerificationResultPtr result;
    auto good = SignedIo("signer");
    EXPECT_EQ(Verify(good.get(), &result), ruk::result::Success);
    EXPECT_EQ(FlagsOf(result) & vdsFlagRevocationCheckSkipped, vdsFlagRevocationCheckSkipped);
    // A list without a single CRL revokes nothing for anyone: refused even
    // when every root is optional.
    EXPECT_EQ(Create(ict_test::vds::RevocationContainer({}), {}, Roots()), ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has("Setup: the revocation container holds no revocation database"));
    // The service's flag text names what the checker's leaves out.
    EXPECT_EQ(crypto::vds::service::VerificationFlagsText(vdsFlagUnsigned), "Unsigned");
    EXPECT_EQ(crypto::vds::service::VerificationFlagsText(vdsFlagSigned | vdsFlagEmbedded |
                                                          vdsFlagUntrustedRoot),
              "Signed|Embedded|UntrustedRoot");
    EXPECT_EQ(crypto::vds::service::VerificationFlagsText(0), "None");
}

TEST_F(ServiceVerifierTest, ContainerProblemsStopTheVerifier) {
    // 3020d1 has no database.
    EXPECT_EQ(Create(ict_test::vds::RevocationContainer({"3520p1", "4820d1", "4823d1"})),
              ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has("Required revocation database with hierarchy=" + SerialHex("3020d1") +
                           " not found"));
    EXPECT_FALSE(verifier_);

    // ... unless it is only an optional root.
    EXPECT_EQ(Create(ict_test::vds::RevocationContainer({"3520p1"}), {Range(rootBytes_[0])},
                     {Range(rootBytes_[1])}),
              ruk::result::Success);

    EXPECT_EQ(Create(ict_test::vds::RevocationContainer({"3520p1", "3520p1-second"})),
              ruk::result::AlreadyExists);
    EXPECT_TRUE(
        sink_->Has("More than one revocation database with hierarchy=" + SerialHex("3520p1")));

    Bytes forged = ict_test::vds::RevocationContainer({"3520p1"});
    forged[forged.size() - 3] ^= 0x01;  // inside the CRL's signature
    EXPECT_EQ(Create(forged, {Range(rootBytes_[0])}), ruk::result::ObjectUntrusted);
    EXPECT_TRUE(
        sink_->Has("ValidateRevocationDatabase(hierarchy=" + SerialHex("3520p1") + ") failed"));

    EXPECT_EQ(Create(Bytes{0x30, 0x03, 0x02, 0x01, 0x00}), ruk::result::InvalidFormat);
    EXPECT_TRUE(
        sink_->Has("VdsRevocationLoadContainer failed; VdsResult=-4 (vdsErrInvalidFormat)"));
    EXPECT_TRUE(sink_->Has("Exception managed!"));

    // A database of a root we do not trust is left aside.
    EXPECT_EQ(Create(ict_test::vds::RevocationContainer({"3520p1", "unknown-root"}),
                     {Range(rootBytes_[0])}),
              ruk::result::Success);
    EXPECT_TRUE(sink_->Has("has no trusted root; skipped"));
}

TEST_F(ServiceVerifierTest, ARootWithTheSerialButNotTheNameIsNotMatched) {
    ICT_NEEDS_LINUX_TOOL("openssl");
    // A self-signed impostor carrying the serial number of 3520p1.
    const auto key = scratch_ / "impostor.key";
    const auto certificate = scratch_ / "impostor.der";
    const auto openssl = boost::process::search_path("openssl");
    ict_test::RunOptions options;
    options.arguments = {"genpkey",  "-engine",    "gost", "-algorithm", "gost2012_256",
                         "-pkeyopt", "paramset:A", "-out", key.string()};
    ASSERT_EQ(ict_test::RunProgram(openssl, options).exitCode, 0);
    options.arguments = {"req",      "-engine",      "gost",        "-new",
                         "-x509",    "-key",         key.string(),  "-md_gost12_256",
                         "-subj",    "/CN=Impostor", "-set_serial", "0x" + SerialHex("3520p1"),
                         "-outform", "DER",          "-out",        certificate.string()};
    const auto run = ict_test::RunProgram(openssl, options);
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    const Bytes impostor = ict_test::vds::ReadBytes(certificate);

    EXPECT_EQ(Create(ict_test::vds::RevocationContainer({"3520p1"}), {Range(impostor)}),
              ruk::result::ObjectUntrusted);
    EXPECT_TRUE(sink_->Has("Certificate for revocation database with hierarchy=" +
                           SerialHex("3520p1") + " not matched"))
        << sink_->All();
}

TEST_F(ServiceVerifierTest, ExceptionsStopAtTheServiceBoundary) {
    sink_->throwOn = "BEGIN";
    EXPECT_EQ(Create(), ruk::result::Fail);
    EXPECT_FALSE(verifier_);
    EXPECT_TRUE(
        sink_->Has("VdsCreateVerifierWithOptionalCrls: Exception managed! (sink refused the line)"))
        << sink_->All();
}

}  // namespace
}  // namespace vds_service_test
