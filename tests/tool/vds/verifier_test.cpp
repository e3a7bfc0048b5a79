#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/operations.hpp>

#include "arguments/checker.h"
#include "common/exception.h"
#include "factory/factory.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"
#include "tool/engine_helpers/trace_capture.h"
#include "vds/verifier.h"

namespace integrity_check_tool::vds {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::Contains;
using testing::HasSubstr;

const std::vector<TrustedRoot> kAllRoots = {TrustedRoot::Root3520p1, TrustedRoot::Root3020d1,
                                            TrustedRoot::Root4820d1, TrustedRoot::Root4823d1};

class VdsVerifierTest : public testing::Test {
protected:
    boost::filesystem::path Signed(const std::string& name, const std::string& signer,
                                   bool bindName = false) {
        const auto path = dir_ / name;
        ict_test::WriteBytes(path, Content());
        ict_test::vds::Sign(path, signer, bindName);
        return path;
    }

    static Bytes Content() {
        Bytes content(10000);
        for (std::size_t index = 0; index < content.size(); ++index) {
            content[index] = static_cast<std::uint8_t>(index % 251);
        }
        return content;
    }

    VdsSignatureVerifier Make(bool bindName = false,
                              const boost::optional<boost::filesystem::path>& crl = boost::none,
                              const std::vector<TrustedRoot>& roots = kAllRoots) {
        return VdsSignatureVerifier(trace_.Tracer(), roots, crl, bindName);
    }

    // The thrown message and its result code.
    static std::pair<std::string, ruk::result_t> Failure(const ISignatureVerifier& verifier,
                                                         const boost::filesystem::path& path) {
        try {
            verifier.Verify(path, nullptr);
        } catch (const Exception& error) {
            const auto* code = boost::get_error_info<ruk::ResultCodeInfo>(error);
            return {error.GetMessage(), code != nullptr ? *code : 0};
        }
        return {"accepted", 0};
    }

    bool Traced(const std::string& text) const {
        const auto messages = trace_.Messages();
        return std::any_of(messages.begin(), messages.end(), [&](const std::string& message) {
            return message.find(text) != std::string::npos;
        });
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
};

TEST_F(VdsVerifierTest, SignedFileGivesTheCoveredContent) {
    const auto path = Signed("good.dll", "signer");
    const VdsSignatureVerifier verifier = Make();
    EXPECT_EQ(verifier.GetName(), "VdsSignatureVerifier");
    Bytes content = {1, 2, 3};
    verifier.Verify(path, &content);
    EXPECT_EQ(content, Content());
    verifier.Verify(path, nullptr);

    const auto messages = trace_.Messages();
    const std::vector<std::string> roots = {
        "Using certificate '3520p1' ...", "Using certificate '3020d1' ...",
        "Using certificate '4820d1' ...", "Using certificate '4823d1' ..."};
    EXPECT_TRUE(std::equal(roots.begin(), roots.end(), messages.begin()));
    EXPECT_THAT(messages, Contains("Verifying VDS signature of file " + path.string() + " ..."));
    EXPECT_THAT(messages, Contains("VDS signature of file " + path.string() + " is OK"));
    EXPECT_THAT(messages, Contains("Finding signature position ..."));
    EXPECT_THAT(messages, Contains("Signature position: 10000"));
    // The service and its result handler log through the tracer.
    EXPECT_TRUE(Traced("VdsCreateVerifierWithOptionalCrls: BEGIN rootsCount=4"));
    EXPECT_TRUE(Traced("OnFinalResult: finalResult=0 (vdsOk), trusted"));
}

TEST_F(VdsVerifierTest, UntrustedFilesShowTheirFlags) {
    const VdsSignatureVerifier verifier = Make();
    struct Case {
        const char* signer;
        const char* flags;
    };
    for (const Case& test :
         {Case{"signer-expired", "Expired"}, Case{"signer-nopurpose", "InvalidPurpose"},
          Case{"unknown-signer", "IncompleteChain"}}) {
        const auto path = Signed(std::string(test.signer) + ".dll", test.signer);
        const auto [message, code] = Failure(verifier, path);
        // Revocation is skipped too: there is no CRL.
        EXPECT_EQ(message, "Can't verify VDS signature of file " + path.string() +
                               ". Flags: Signed|Embedded|RevocationCheckSkipped|" + test.flags)
            << test.signer;
        EXPECT_EQ(code, ruk::result::ObjectUntrusted);
        EXPECT_TRUE(Traced("VDS signature of file " + path.string() + " is not OK"));
    }

    // Tampered: the digest no longer matches.
    auto path = Signed("tampered.dll", "signer");
    Bytes bytes = ict_test::vds::ReadBytes(path);
    bytes[5] ^= 0xFF;
    ict_test::WriteBytes(path, bytes);
    EXPECT_THAT(
        Failure(verifier, path).first,
        HasSubstr("Flags: Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched"));

    // Unsigned: its only flag has no name in the checker's vocabulary.
    path = dir_ / "unsigned.dll";
    ict_test::WriteBytes(path, Content());
    EXPECT_EQ(Failure(verifier, path).first,
              "Can't verify VDS signature of file " + path.string() + ". Flags: ");
}

TEST_F(VdsVerifierTest, RevocationListFromAFileRefusesTheRevokedSigner) {
    const auto crl = dir_ / "crl.p7b";
    ict_test::WriteBytes(
        crl, ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"}));
    const VdsSignatureVerifier verifier = Make(false, crl);
    verifier.Verify(Signed("good.dll", "signer"), nullptr);
    const auto revoked = Signed("revoked.dll", "signer-revoked");
    EXPECT_EQ(Failure(verifier, revoked).first, "Can't verify VDS signature of file " +
                                                    revoked.string() +
                                                    ". Flags: Signed|Embedded|Revoked");

    // A CRL that leaves out a trusted root's database cannot make a verifier.
    ict_test::WriteBytes(crl, ict_test::vds::RevocationContainer({"3520p1"}));
    const VdsSignatureVerifier incomplete = Make(false, crl);
    const auto [message, code] = Failure(incomplete, revoked);
    EXPECT_EQ(message, "Can't create VDS verifier");
    EXPECT_EQ(code, ruk::result::NotFound);
    EXPECT_TRUE(Traced("Required revocation database with hierarchy="));
}

TEST_F(VdsVerifierTest, TheSetOfRootsDecides) {
    const auto path = Signed("direct.dll", "signer-direct");  // issued by 4823d1
    Make(false, boost::none, {TrustedRoot::Root4823d1}).Verify(path, nullptr);
    EXPECT_THAT(Failure(Make(false, boost::none, {TrustedRoot::Root3520p1}), path).first,
                HasSubstr("Flags: Signed|Embedded|RevocationCheckSkipped|IncompleteChain"));
    const auto [message, code] = Failure(Make(false, boost::none, {}), path);
    EXPECT_EQ(message, "Can't create VDS verifier");
    EXPECT_EQ(code, ruk::result::InvalidArgument);
}

TEST_F(VdsVerifierTest, FileNameBindingUsesTheNameInThePath) {
    const auto path = Signed("Setup.exe", "signer", true);
    const VdsSignatureVerifier bound = Make(true);
    bound.Verify(path, nullptr);
    // Without binding the same file is fine too.
    Make(false).Verify(path, nullptr);

    const auto renamed = dir_ / "setup.exe";
    boost::filesystem::rename(path, renamed);
    EXPECT_THAT(
        Failure(bound, renamed).first,
        HasSubstr("Flags: Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched"));
    EXPECT_TRUE(Traced("AdditionalContent='setup.exe'"));

    // A drive letter and colon without a separator: the name after the colon.
    boost::filesystem::rename(renamed, dir_ / "D:Setup.exe");
    const auto previous = boost::filesystem::current_path();
    boost::filesystem::current_path(dir_.Path());
    Bytes content;
    try {
        bound.Verify("D:Setup.exe", &content);
    } catch (...) {
        boost::filesystem::current_path(previous);
        throw;
    }
    boost::filesystem::current_path(previous);
    EXPECT_EQ(content, Content());
    EXPECT_TRUE(Traced("AdditionalContent='Setup.exe'"));
}

TEST_F(VdsVerifierTest, MissingFileCannotBeOpened) {
    const auto path = dir_ / "absent.dll";
    const auto [message, code] = Failure(Make(), path);
    EXPECT_EQ(message, "Can't create IO from file " + path.string());
    EXPECT_TRUE(ruk::Failed(code));
}

TEST_F(VdsVerifierTest, FactoryBuildsItFromTheArguments) {
    const auto arguments = std::make_shared<CheckerArguments>();
    arguments->SetSignatureType(SignatureType::VdsWithFilename);
    arguments->SetTrustedRoots({TrustedRoot::Root4823d1, TrustedRoot::Root3520p1});
    const auto factory = std::make_shared<Factory>(
        trace_.Tracer(), std::make_shared<ApplicationConfiguration>(), arguments);
    const auto verifier = factory->CreateSignatureVerifier();
    EXPECT_EQ(verifier->GetName(), "VdsSignatureVerifier");
    EXPECT_THAT(trace_.Messages(), Contains("Using certificate '4823d1' ..."));
    EXPECT_THAT(trace_.Messages(), Contains("Using certificate '3520p1' ..."));
    EXPECT_THAT(trace_.Messages(), testing::Not(Contains("Using certificate '3020d1' ...")));
    // With file-name binding on, a signature without a name is refused.
    EXPECT_THAT(Failure(*verifier, Signed("plain.dll", "signer")).first,
                HasSubstr("SignatureValueNotMatched"));
    verifier->Verify(Signed("named.dll", "signer", true), nullptr);
}

TEST(VdsVerifierDeathTest, AnUnknownRootAborts) {
    ict_test::TraceCapture trace;
    EXPECT_DEATH(
        VdsSignatureVerifier(trace.Tracer(), {static_cast<TrustedRoot>(4)}, boost::none, false),
        "");
}

}  // namespace
}  // namespace integrity_check_tool::vds
