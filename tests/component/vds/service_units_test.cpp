#include "common_objects/verification_result_handler_impl.h"
#include "service/internal_factory.h"
#include "service/revocation_checker_factory_impl.h"
#include "service/utils.h"
#include "service_fixture.h"

namespace vds_service_test {
namespace {

namespace service = crypto::vds::service;

TEST(ServiceUtilsTest, NameTablesCoverEveryValueAndSayWhenUnknown) {
    EXPECT_STREQ(service::GetVdsResultName(vdsOk), "vdsOk");
    EXPECT_STREQ(service::GetVdsResultName(vdsIncompleteSignature), "vdsIncompleteSignature");
    EXPECT_STREQ(service::GetVdsResultName(vdsErrCallbackRead), "vdsErrCallbackRead");
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
}

TEST(ServiceUtilsTest, FlagTextsNameEveryKnownBitAndTheRest) {
    EXPECT_EQ(service::VerificationFlagsToString(0), "None");
    EXPECT_EQ(service::VerificationFlagsToString(vdsFlagUnsigned), "Unsigned");
    EXPECT_EQ(service::VerificationFlagsToString(vdsFlagSigned | vdsFlagUntrustedRoot |
                                                 vdsFlagInvalidBasicConstraints),
              "Signed|UntrustedRoot|InvalidBasicContraints");
    EXPECT_EQ(service::VerificationFlagsToString(vdsFlagTrusted | 0x300000u),
              "Trusted|UNKNOWN=0x300000");
    EXPECT_EQ(service::VerificationFlagsToString(0x80000000u), "UNKNOWN=0x80000000");
    EXPECT_EQ(service::PolicyFlagsToString(service::testRootPolicyNone),
              "TestRootHandlingPolicyFlags: None");
    EXPECT_EQ(service::PolicyFlagsToString(service::testRootPolicyCrlMustExist),
              "TestRootHandlingPolicyFlags: CrlMustExist");
    EXPECT_EQ(service::PolicyFlagsToString(0x5),
              "TestRootHandlingPolicyFlags: CrlMustExist|UNKNOWN=0x4");
}

TEST(ServiceUtilsTest, ResultsTimesAndPurposesAreReadable) {
    EXPECT_EQ(service::ToFrameworkResult(vdsOk), ruk::result::Success);
    EXPECT_EQ(service::ToFrameworkResult(vdsSignatureNotFound), ruk::result::Success);
    EXPECT_EQ(service::ToFrameworkResult(vdsErrUntrusted), ruk::result::ObjectUntrusted);
    EXPECT_EQ(service::ToFrameworkResult(vdsErrInvalidArgument), ruk::result::InvalidArgument);
    EXPECT_EQ(service::ToFrameworkResult(-1000), ruk::result::Fail);

    EXPECT_EQ(service::TimeText(0), "1970-01-01 00:00:00 UTC");
    EXPECT_EQ(service::TimeText(951782400), "2000-02-29 00:00:00 UTC");
    EXPECT_EQ(service::TimeText(4102444799), "2099-12-31 23:59:59 UTC");
    EXPECT_EQ(service::TimeText(-1), "1969-12-31 23:59:59 UTC");

    const Bytes purpose = ict_test::vds::Purpose();
    EXPECT_EQ(service::PurposeText(Range(purpose)), "PurposeCodeSign");
    const Bytes codeSigning = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03};
    EXPECT_EQ(service::PurposeText(Range(codeSigning)), "1.3.6.1.5.5.7.3.3");
    const Bytes notOid = {0x2B, 0x86};
    EXPECT_EQ(service::PurposeText(Range(notOid)), "2B86");
    EXPECT_EQ(service::PurposesText("1.3.6.1.4.1.59999.10.2.1.1.10, 1.3.6.1.5.5.7.3.3"),
              "PurposeTestCertHolderSign, 1.3.6.1.5.5.7.3.3");
    const Bytes name = {'a', 0, 0x16, 0x04, 0x3D, 0xD8, 0x00, 0xDE, 0, 0};  // a, CYRILLIC, U+1F600
    EXPECT_EQ(service::Utf16Text(Range(name)), "a\xD0\x96\xF0\x9F\x98\x80");
}

class ResultHandlerTest : public ServiceFixture {
protected:
    crypto::vds::common_objects::VerificationResultHandlerImpl handler_;
};

TEST_F(ResultHandlerTest, EachEventIsOneLineNamedAfterIt) {
    EXPECT_FALSE(handler_.IsNextSignerInfoRequired());
    EXPECT_FALSE(handler_.IsNextSignedDataRequired());
    EXPECT_FALSE(handler_.IsSignedDataVerificationRequiredForcedly());
    handler_.OnFileFormat(7);
    handler_.OnRevocationCheckerCreated(nullptr, 0);
    handler_.OnRdbLoadFailed("0A0B", 2, vdsErrInvalidFormat);
    handler_.OnSignerInfoChecked(86400, vdsFlagSigned | vdsFlagExpired);
    handler_.OnFinalResult(vdsErrUntrusted, vdsFlagUnsigned);
    handler_.OnValidatedTimestampChain(0);
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
    };
    EXPECT_EQ(sink_->lines, expected);

    crypto::vds::common_objects::VerificationResultHandlerImpl forcing(true);
    EXPECT_TRUE(forcing.IsSignedDataVerificationRequiredForcedly());
    EXPECT_EQ(sink_->lines.back(),
              "IsSignedDataVerificationRequiredForcedly: Is SignedData verification required "
              "forcedly: Yes (verify singed data)");
}

TEST_F(ResultHandlerTest, ChainsAndContentAreSpelledOut) {
    const VdsCertificateInfo chain[] = {
        {"01", "2020-01-01 00:00:00 UTC", "2030-01-01 00:00:00 UTC", "CN=Leaf", "CN=Root",
         "1.3.6.1.4.1.59999.10.2.1.1.1"},
        {"02", "a", "b", "CN=Root", "CN=Root", ""},
    };
    handler_.LogCertificateChain(chain, 2);
    EXPECT_EQ(sink_->lines.back(),
              "LogCertificateChain: chain has 2 certificates: #0 Serial=01, NotBefore=2020-01-01 "
              "00:00:00 UTC, NotAfter=2030-01-01 00:00:00 UTC, Subj='CN=Leaf', Issuer='CN=Root', "
              "Purposes='PurposeCodeSign'; #1 Serial=02, NotBefore=a, NotAfter=b, Subj='CN=Root', "
              "Issuer='CN=Root', Purposes=''");
    const std::uint8_t digest[] = {0xAB, 0x01};
    const VdsDigest digests[] = {{"md_gost12_256", digest, 2}};
    const Bytes purpose = ict_test::vds::Purpose();
    handler_.OnContentProcessed(10, 20, 30, {purpose.data(), purpose.size()}, digests, 1);
    EXPECT_EQ(sink_->lines.back(),
              "OnContentProcessed: checkedContentSize=10, signatureContainerSize=20, "
              "entireContentSize=30, purpose='PurposeCodeSign', digests: md_gost12_256=AB01");
}

TEST_F(ServiceFixture, InternalFactoryNeedsItsCrlProvider) {
    const auto factory = ruk::MakeIntrusive<service::InternalFactory>(nullptr);
    service::IVdsCrlProviderPtr provider;
    EXPECT_EQ(factory->GetCrlProvider(&provider), ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has("GetCrlProvider: Failed to get IVdsCrlProvider service interface"));
    service::VdsRevocationCheckerFactoryImplPtr revocation;
    EXPECT_EQ(factory->CreateRevocationCheckerFactory(&revocation), ruk::result::NotFound);
    EXPECT_FALSE(revocation);
}

TEST_F(ServiceFixture, TestRootsAreRequiredOnlyUnderCrlMustExist) {
    const Bytes container = ict_test::vds::RevocationContainer({"3520p1"});
    const auto factory = ruk::MakeIntrusive<service::InternalFactory>(
        ruk::MakeIntrusive<service::MemoryCrlProvider>(container));
    service::VdsRevocationCheckerFactoryImplPtr revocation;
    ASSERT_EQ(factory->CreateRevocationCheckerFactory(&revocation), ruk::result::Success)
        << sink_->All();
    EXPECT_EQ(revocation->GetLoadedDatabaseCount(), 1u);

    const std::vector<ByteRange> trusted = {Range(rootBytes_[0])};
    const std::vector<ByteRange> test = {Range(rootBytes_[1])};
    std::vector<ByteRange> required;
    std::vector<ByteRange> optional;
    ASSERT_EQ(revocation->GetRequiredAndOptionalRoots(trusted, test, service::testRootPolicyNone,
                                                      &required, &optional),
              ruk::result::Success);
    EXPECT_EQ(required.size(), 1u);
    EXPECT_EQ(optional.size(), 1u);
    EXPECT_EQ(revocation->Setup(trusted, test, service::testRootPolicyNone), ruk::result::Success);
    crypto::vds::common_objects::CoreRevocationCheckerPtr checker;
    EXPECT_EQ(revocation->CreateRevocationChecker(&checker), ruk::result::Success);
    EXPECT_TRUE(checker);

    EXPECT_EQ(revocation->Setup(trusted, test, service::testRootPolicyCrlMustExist),
              ruk::result::NotFound);
    EXPECT_TRUE(sink_->Has("Setup: TestRootHandlingPolicyFlags: CrlMustExist"));

    required.clear();
    optional.clear();
    EXPECT_EQ(revocation->GetRequiredAndOptionalRoots({}, {}, 0, &required, &optional),
              ruk::result::InvalidArgument);
    EXPECT_TRUE(sink_->Has("GetRequiredAndOptionalRoots: no trusted roots for class"));
    EXPECT_EQ(revocation->GetRequiredAndOptionalRoots({ByteRange{}}, {}, 0, &required, &optional),
              ruk::result::InvalidArgument);
    EXPECT_TRUE(sink_->Has("failed to get trusted roots for class"));
    EXPECT_EQ(revocation->GetRequiredAndOptionalRoots({}, {ByteRange{}}, 0, &required, &optional),
              ruk::result::InvalidArgument);
    EXPECT_TRUE(sink_->Has("failed to get test roots for class"));

    // A required root that does not parse is logged with its size and bytes.
    Bytes broken = rootBytes_[0];
    broken.resize(50);
    EXPECT_EQ(revocation->CheckAllRequiredRootsArePresent({Range(broken)}, {}),
              ruk::result::InvalidFormat);
    EXPECT_TRUE(sink_->Has("Certificate size=50, CertificateBody="));
}

}  // namespace
}  // namespace vds_service_test
