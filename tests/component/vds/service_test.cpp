#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/process/search_path.hpp>

#include "common/signed_file_name.h"
#include "common_objects/verification_result_handler_impl.h"
#include "crypto/vds/service/log_sink.h"
#include "crypto/vds/service/service.h"
#include "ruk/hex.h"
#include "service/utils.h"
#include "support/file_helpers.h"
#include "support/host_tools.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"

// What the service adds to the core: its result codes, its choice of
// revocation databases and its log lines. Which signatures are trusted is the
// core's own truth table.
namespace vds_service_test {
namespace {

namespace service = crypto::vds::service;
namespace common_objects = crypto::vds::common_objects;
using ict_test::vds::Bytes;
using service::ByteRange;
using service::IVdsVerificationResultPtr;

// Keeps the service's lines; can throw on a line that holds `throwOn`.
class RecordingSink : public service::ILogSink {
public:
    std::vector<std::string> lines;
    std::string throwOn;

    bool IsEnabled() const override { return true; }
    void Write(const std::string& line) override {
        if (!throwOn.empty() && line.find(throwOn) != std::string::npos) {
            throw std::runtime_error("sink refused the line");
        }
        lines.push_back(line);
    }
    bool Has(const std::string& text) const {
        return std::any_of(lines.begin(), lines.end(),
                           [&](const auto& line) { return line.find(text) != std::string::npos; });
    }
};

ByteRange Range(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

std::string SerialHex(const std::string& root) {
    const Bytes der = ict_test::vds::RootCertificate(root);
    const unsigned char* cursor = der.data();
    X509* certificate = d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate);
    const std::string hex =
        ruk::HexText(ASN1_STRING_get0_data(serial),
                     static_cast<std::size_t>(ASN1_STRING_length(serial)), ruk::HexCase::Upper);
    X509_free(certificate);
    return hex;
}

Bytes Crls(const std::vector<std::string>& names) {
    return ict_test::vds::RevocationContainer(names);
}

class BrokenIo : public ruk::MemoryIO {
public:
    using MemoryIO::MemoryIO;
    ruk::result_t Read(void*, std::size_t, std::size_t*) override { return ruk::result::IoError; }
};

class ServiceTest : public ::testing::Test {
protected:
    ServiceTest() : scope_(sink_), purpose_(ict_test::vds::Purpose()) {
        rootBytes_.reserve(4);  // roots_ points into it
        for (const char* name : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
            roots_.push_back(Range(rootBytes_.emplace_back(ict_test::vds::RootCertificate(name))));
        }
    }

    // By default every root needs its database when there is a list, and
    // none does without one.
    ruk::result_t Create(const Bytes& crl = {}, std::vector<ByteRange> roots = {},
                         std::vector<ByteRange> optional = {}) {
        if (roots.empty() && optional.empty()) {
            (crl.empty() ? optional : roots) = roots_;
        }
        verifier_.reset();
        return service::VdsCreateVerifierWithOptionalCrls(roots, optional, Range(crl), &verifier_);
    }

    ruk::intrusive_ptr<ruk::IIO> SignedIo(const std::string& signer, bool bindName = false,
                                          const std::string& name = "file.bin") {
        const auto path = scratch_ / name;
        ict_test::WriteBytes(path, Bytes(4096, 0x5A));
        ict_test::vds::Sign(path, signer, bindName);
        return ruk::CreateMemoryIO(ict_test::vds::ReadBytes(path));
    }

    // The flags of a verification, or `failure` when it gave no result.
    VdsVerificationFlags Verify(ruk::IIO* io, ruk::result_t code,
                                VdsVerificationFlags failure = 0) {
        IVdsVerificationResultPtr result;
        EXPECT_EQ(verifier_->VerifyObject(io, Range(purpose_), &result), code);
        VdsVerificationFlags flags = failure;
        if (result) {
            EXPECT_EQ(result->GetVerificationFlags(&flags), ruk::result::Success);
        }
        return flags;
    }

    std::shared_ptr<RecordingSink> sink_ = std::make_shared<RecordingSink>();
    service::ScopedLogSink scope_;
    ict_test::TempDir scratch_;
    Bytes purpose_;
    std::vector<Bytes> rootBytes_;
    std::vector<ByteRange> roots_;
    service::IVdsSignatureVerifierPtr verifier_;
};

constexpr VdsVerificationFlags kGood =
    vdsFlagSigned | vdsFlagTrusted | vdsFlagEmbedded | vdsFlagRevocationCheckSkipped;

TEST_F(ServiceTest, TrustedUntrustedAndFailedVerificationsAreToldApart) {
    ASSERT_EQ(Create(), ruk::result::Success);
    EXPECT_TRUE(
        sink_->Has("VdsCreateVerifierWithOptionalCrls: BEGIN rootsCount=0, "
                   "optCrlRootsCount=4, crlContainerSize=0"));
    EXPECT_TRUE(sink_->Has("VdsCreateVerifierWithOptionalCrls: END: 0"));

    auto good = SignedIo("signer");
    IVdsVerificationResultPtr result;
    ASSERT_EQ(verifier_->VerifyObject(good.get(), Range(purpose_), &result), ruk::result::Success);
    VdsVerificationFlags flags = 0;
    std::uint64_t checked = 0, container = 0, whole = 0;
    VdsFileFormat format = 99;
    good->GetSize(&whole);
    EXPECT_EQ(std::vector<ruk::result_t>(
                  {result->GetVerificationFlags(&flags), result->GetCheckedContentSize(&checked),
                   result->GetSignatureContainerSize(&container), result->GetFileFormat(&format)}),
              std::vector<ruk::result_t>(4, ruk::result::Success));
    EXPECT_EQ(std::make_tuple(flags, checked, container, format),
              std::make_tuple(kGood, std::uint64_t{4096}, whole - 4096, vdsFileFormatUnspecified));
    EXPECT_TRUE(sink_->Has("VerifyObject: verifier=0x"));

    // An untrusted object still has its result, for its flags.
    auto unsignedIo = ruk::CreateMemoryIO(Bytes(100, 1));
    EXPECT_EQ(Verify(unsignedIo.get(), ruk::result::ObjectUntrusted), vdsFlagUnsigned);

    // The name reaches the core, which decides on it.
    auto bound = SignedIo("signer", true, "Tool.dll");
    const Bytes name = integrity_check_tool::SignedFileNameBytes("Tool.dll");
    EXPECT_EQ(verifier_->VerifyObjectWithAdditionalContent(bound.get(), Range(name),
                                                           Range(purpose_), &result),
              ruk::result::Success);
    EXPECT_TRUE(sink_->Has("OnAdditionalContent: AdditionalContent='Tool.dll', digests: "));

    // Any other failure of the core comes back without a result.
    auto broken = ruk::MakeIntrusive<BrokenIo>(ict_test::vds::ReadBytes(scratch_ / "file.bin"));
    EXPECT_EQ(Verify(broken.get(), ruk::result::IoError, 1), 1u);
    EXPECT_TRUE(sink_->Has(
        "VerifyObject: VdsVerifyObjectByCallback_Ex failed. VdsResult=-16 (vdsErrCallbackRead)"));
    result.reset();
    EXPECT_EQ(verifier_->VerifyObjectWithAdditionalContent(broken.get(), Range(name),
                                                           Range(purpose_), &result),
              ruk::result::IoError);
    EXPECT_FALSE(result);
    EXPECT_TRUE(sink_->Has("VdsVerifyObjectByCallbackWithAdditionalContent_Ex failed. VdsResult="));
    EXPECT_EQ(Verify(nullptr, ruk::result::InvalidArgument, 1), 1u);
}

TEST_F(ServiceTest, VerifiersNeedParsableRootsAndKeepExceptionsInside) {
    EXPECT_EQ(service::VdsCreateVerifierWithOptionalCrls({}, {}, {}, &verifier_),
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
    // A required root that does not parse is logged with its size and bytes.
    EXPECT_EQ(Create(Crls({"3520p1"}), {Range(broken)}), ruk::result::InvalidFormat);
    EXPECT_TRUE(sink_->Has("Certificate size=100, CertificateBody="));

    sink_->throwOn = "BEGIN";
    EXPECT_EQ(Create(), ruk::result::Fail);
    EXPECT_FALSE(verifier_);
    EXPECT_TRUE(sink_->Has(
        "VdsCreateVerifierWithOptionalCrls: Exception managed! (sink refused the line)"));
}

TEST_F(ServiceTest, RevocationContainerCoversEveryTrustedRoot) {
    ASSERT_EQ(Create(Crls({"3520p1", "3020d1", "4820d1", "4823d1"})), ruk::result::Success);
    EXPECT_TRUE(sink_->Has("VdsRevocationCheckerFactoryImpl: 4 database(s) loaded"));
    EXPECT_TRUE(sink_->Has("Setup: TestRootHandlingPolicyFlags: None"));
    EXPECT_TRUE(
        sink_->Has("LoadDatabasesFromContainer: Loaded revocation database with hierarchy=" +
                   SerialHex("3520p1") + ", issuedDate="));
    EXPECT_TRUE(sink_->Has("ValidateWithRoot: Validated revocation database with hierarchy=" +
                           SerialHex("4823d1")));
    EXPECT_TRUE(
        sink_->Has("UpdateRevocationChecker: Created new revocation checker: Hierarchy "
                   "Id (Root Serial)="));
    EXPECT_TRUE(sink_->Has("Revocation Checker Object=0x"));
    EXPECT_TRUE(sink_->Has(
        "OnRevocationCheckerCreated: Created New Revocation Checker, trustAnchorsCount=4"));
    // The checker reaches the core: revocation was looked up.
    auto good = SignedIo("signer");
    EXPECT_EQ(Verify(good.get(), ruk::result::Success), kGood & ~vdsFlagRevocationCheckSkipped);
}

TEST_F(ServiceTest, RevocationIsOnlySkippedForRootsThatAllowIt) {
    // Trusted roots need their databases: no container, no verifier.
    EXPECT_EQ(Create({}, roots_), ruk::result::NotFound);
    EXPECT_FALSE(verifier_);
    EXPECT_TRUE(
        sink_->Has("no revocation container, but 4 trusted root(s) require a revocation database"));
    // A list without a single CRL revokes nothing for anyone: refused, and
    // so even when every root is optional.
    const std::string empty = "Setup: the revocation container holds no revocation database";
    EXPECT_EQ(Create(Crls({})), ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has(empty));
    sink_->lines.clear();
    EXPECT_EQ(Create(Crls({}), {}, roots_), ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has(empty));
    // 3020d1 has no database ...
    EXPECT_EQ(Create(Crls({"3520p1", "4820d1", "4823d1"})), ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has("Required revocation database with hierarchy=" + SerialHex("3020d1") +
                           " not found"));
    EXPECT_FALSE(verifier_);
    // ... which is fine when it is only optional; its signers go unchecked.
    ASSERT_EQ(Create(Crls({"3520p1"}), {roots_[0]}, {roots_[3]}), ruk::result::Success);
    auto direct = SignedIo("signer-direct");  // issued by 4823d1
    EXPECT_EQ(Verify(direct.get(), ruk::result::Success), kGood);
}

TEST_F(ServiceTest, DatabasesThatCannotBeTrustedStopTheVerifier) {
    EXPECT_EQ(Create(Crls({"3520p1", "3520p1-second"})), ruk::result::AlreadyExists);
    EXPECT_TRUE(
        sink_->Has("More than one revocation database with hierarchy=" + SerialHex("3520p1")));

    Bytes forged = Crls({"3520p1"});
    forged[forged.size() - 3] ^= 0x01;  // inside the CRL's signature
    EXPECT_EQ(Create(forged, {roots_[0]}), ruk::result::ObjectUntrusted);
    EXPECT_TRUE(
        sink_->Has("ValidateRevocationDatabase(hierarchy=" + SerialHex("3520p1") + ") failed"));

    EXPECT_EQ(Create(Bytes{0x30, 0x03, 0x02, 0x01, 0x00}), ruk::result::InvalidFormat);
    EXPECT_TRUE(
        sink_->Has("VdsRevocationLoadContainer failed; VdsResult=-4 (vdsErrInvalidFormat)"));
    EXPECT_TRUE(sink_->Has("Exception managed!"));

    // A database of a root we do not trust is left aside.
    EXPECT_EQ(Create(Crls({"3520p1", "unknown-root"}), {roots_[0]}), ruk::result::Success);
    EXPECT_TRUE(sink_->Has("has no trusted root; skipped"));

    // A self-signed impostor carrying the serial number of 3520p1.
    ICT_NEEDS_LINUX_TOOL("openssl");
    const auto certificate = scratch_ / "impostor.der";
    std::vector<std::string> arguments;
    boost::split(arguments,
                 "req -engine gost -new -x509 -nodes -newkey gost2012_256 -pkeyopt paramset:A "
                 "-md_gost12_256 -subj /CN=Impostor -outform DER",
                 boost::is_space());
    arguments.insert(arguments.end(),
                     {"-keyout", (scratch_ / "impostor.key").string(), "-out", certificate.string(),
                      "-set_serial", "0x" + SerialHex("3520p1")});
    const auto run = ict_test::RunTool(boost::process::search_path("openssl"), arguments);
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    const Bytes impostor = ict_test::vds::ReadBytes(certificate);
    EXPECT_EQ(Create(Crls({"3520p1"}), {Range(impostor)}), ruk::result::ObjectUntrusted);
    EXPECT_TRUE(sink_->Has("Certificate for revocation database with hierarchy=" +
                           SerialHex("3520p1") + " not matched"));
}

TEST(ServiceTextTest, NameTablesFlagsResultsTimesAndPurposesAreReadable) {
    EXPECT_STREQ(service::GetVdsResultName(vdsIncompleteSignature), "vdsIncompleteSignature");
    EXPECT_STREQ(service::GetVdsResultName(vdsErrRdbAlreadyExists), "vdsErrRdbAlreadyExists");
    EXPECT_STREQ(service::GetVdsResultName(3), "Unknown VDS error code");
    EXPECT_STREQ(service::GetVdsResultName(-21), "Unknown VDS error code");
    for (VdsResult code = -20; code <= 2; ++code) {
        EXPECT_STRNE(service::GetVdsResultName(code), "Unknown VDS error code") << code;
    }
    EXPECT_STREQ(service::GetFileFormatName(vdsFileFormatPortableExecutable64),
                 "PortableExecutable64");
    EXPECT_STREQ(service::GetFileFormatName(3), "Unknown VDS file format id");
    EXPECT_STREQ(service::GetHashAlgorithmName(vdsGost3411_2012_512), "vdsGost3411_2012_512");
    EXPECT_STREQ(service::GetHashAlgorithmName(3), "Unknown VDS hash algorithm id");

    EXPECT_EQ(service::VerificationFlagsText(vdsFlagSigned | vdsFlagUntrustedRoot |
                                             vdsFlagInvalidBasicConstraints),
              "Signed|UntrustedRoot|InvalidBasicContraints");
    EXPECT_EQ(service::VerificationFlagsText(vdsFlagTrusted | 0x300000u),
              "Trusted|UNKNOWN=0x300000");
    EXPECT_EQ(service::VerificationFlagsText(0x80000000u), "UNKNOWN=0x80000000");
    EXPECT_EQ(service::PolicyFlagsToString(service::testRootPolicyCrlMustExist),
              "TestRootHandlingPolicyFlags: CrlMustExist");
    EXPECT_EQ(service::PolicyFlagsToString(0x5),
              "TestRootHandlingPolicyFlags: CrlMustExist|UNKNOWN=0x4");

    // The codes the verifier meets are in ServiceTest; these are the edges.
    EXPECT_EQ(service::ToFrameworkResult(vdsSignatureNotFound), ruk::result::Success);
    EXPECT_EQ(service::ToFrameworkResult(-1000), ruk::result::Fail);

    EXPECT_EQ(service::TimeText(951782400), "2000-02-29 00:00:00 UTC");
    EXPECT_EQ(service::TimeText(4102444799), "2099-12-31 23:59:59 UTC");
    EXPECT_EQ(service::TimeText(-1), "1969-12-31 23:59:59 UTC");

    const Bytes codeSigning = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03};
    EXPECT_EQ(service::PurposeText(Range(codeSigning)), "1.3.6.1.5.5.7.3.3");
    const Bytes notOid = {0x2B, 0x86};
    EXPECT_EQ(service::PurposeText(Range(notOid)), "2B86");
    const Bytes name = {'a', 0, 0x16, 0x04, 0x3D, 0xD8, 0x00, 0xDE, 0, 0};  // a, CYRILLIC, U+1F600
    EXPECT_EQ(service::Utf16Text(Range(name)), "a\xD0\x96\xF0\x9F\x98\x80");
}

TEST_F(ServiceTest, EachHandlerEventIsOneLineNamedAfterIt) {
    common_objects::VerificationResultHandlerImpl handler;
    EXPECT_FALSE(handler.IsNextSignerInfoRequired());
    EXPECT_FALSE(handler.IsNextSignedDataRequired());
    EXPECT_FALSE(handler.IsSignedDataVerificationRequiredForcedly());
    handler.OnFileFormat(7);
    handler.OnRevocationCheckerCreated(nullptr, 0);
    handler.OnRdbLoadFailed("0A0B", 2, vdsErrInvalidFormat);
    handler.OnSignerInfoChecked(86400, vdsFlagSigned | vdsFlagExpired);
    handler.OnFinalResult(vdsErrUntrusted, vdsFlagUnsigned);
    handler.OnValidatedTimestampChain(0);
    const VdsCertificateInfo chain[] = {
        {"01", "2020-01-01 00:00:00 UTC", "2030-01-01 00:00:00 UTC", "CN=Leaf", "CN=Root",
         "1.3.6.1.4.1.59999.10.2.1.1.1"},
        {"02", "a", "b", "CN=Root", "CN=Root", "1.3.6.1.4.1.59999.10.2.1.1.10, 1.3.6.1.5.5.7.3.3"},
    };
    handler.LogCertificateChain(chain, 2);
    const std::uint8_t digest[] = {0xAB, 0x01};
    const VdsDigest digests[] = {{"md_gost12_256", digest, 2}};
    handler.OnContentProcessed(10, 20, 30, {purpose_.data(), purpose_.size()}, digests, 1);
    handler.OnHashContainer("md_gost12_256", 1);
    handler.OnHashFound("0C", "0D", "1.3.6.1.4.1.59999.10.2.1.1.1", vdsFlagSigned, 0,
                        vdsFlagCatalog);
    EXPECT_TRUE(common_objects::VerificationResultHandlerImpl(true)
                    .IsSignedDataVerificationRequiredForcedly());
    const std::vector<std::string> expected = {
        "IsNextSignerInfoRequired: Is next signer info required: No (stopping SignedData "
        "verification)",
        "IsNextSignedDataRequired: Is next signed data required: No (stopping payload "
        "verification)",
        "IsSignedDataVerificationRequiredForcedly: Is SignedData verification required "
        "forcedly: No (default workflow)",
        "OnFileFormat: fileFormat=Unexpected:7",
        "OnRevocationCheckerCreated: Created New Revocation Checker, trustAnchorsCount=<nullptr>",
        "OnRdbLoadFailed: Root Serial Number=0A0B, Database Index=2, Operation Result=-4 "
        "(vdsErrInvalidFormat)",
        "OnSignerInfoChecked: signingTime=1970-01-02 00:00:00 UTC, signerInfoFlags=Signed|Expired",
        "OnFinalResult: finalResult=-17 (vdsErrUntrusted), untrusted, flags=Unsigned",
        "OnValidatedTimestampChain: Timestamp chain validated with flags=None",
        "LogCertificateChain: chain has 2 certificates: #0 Serial=01, NotBefore=2020-01-01 "
        "00:00:00 UTC, NotAfter=2030-01-01 00:00:00 UTC, Subj='CN=Leaf', Issuer='CN=Root', "
        "Purposes='PurposeCodeSign'; #1 Serial=02, NotBefore=a, NotAfter=b, Subj='CN=Root', "
        "Issuer='CN=Root', Purposes='PurposeTestCertHolderSign, 1.3.6.1.5.5.7.3.3'",
        "OnContentProcessed: checkedContentSize=10, signatureContainerSize=20, "
        "entireContentSize=30, purpose='PurposeCodeSign', digests: md_gost12_256=AB01",
        "OnHashContainer: digestAlgorithm=md_gost12_256, hashItemsSize=1",
        "OnHashFound: leafSerial=0C, rootSerial=0D, purposes=PurposeCodeSign, contentFlags=Signed, "
        "timestampFlags=None, hashFlags=Catalog",
        "IsSignedDataVerificationRequiredForcedly: Is SignedData verification required "
        "forcedly: Yes (verify singed data)",
    };
    EXPECT_EQ(sink_->lines, expected);
}

}  // namespace
}  // namespace vds_service_test
