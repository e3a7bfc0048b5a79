#include <string>
#include <utility>
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
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "support/vds/vds_material.h"
#include "vds/signing.h"
#include "vds/verifier.h"

// What the tool makes of the service's answers: its messages, the lines for
// the user, the result codes and the revocation list. Which signatures the
// service trusts is the signature core's own truth table.
namespace integrity_check_tool::vds {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::HasSubstr;

const std::vector<TrustedRoot> kAllRoots = {TrustedRoot::Root3520p1, TrustedRoot::Root3020d1,
                                            TrustedRoot::Root4820d1, TrustedRoot::Root4823d1};

class VdsVerifierTest : public testing::Test {
protected:
    boost::filesystem::path Signed(const std::string& name, const std::string& signer,
                                   bool bindName = false) {
        const auto path = dir_ / name;
        ict_test::WriteBytes(path, Content());
        if (!signer.empty()) {
            ict_test::vds::Sign(path, signer, bindName);
        }
        return path;
    }

    static Bytes Content() {
        Bytes content(10000);
        for (std::size_t index = 0; index < content.size(); ++index) {
            content[index] = static_cast<std::uint8_t>(index % 251);
        }
        return content;
    }

    VdsSignatureVerifier Make(const boost::optional<boost::filesystem::path>& crl = boost::none,
                              const std::vector<TrustedRoot>& roots = kAllRoots,
                              std::function<bool(TrustedRoot)> requiresCrl = nullptr) {
        VdsSignatureVerifier::Environment environment;
        environment.output = output_;
        environment.requiresRevocationList = std::move(requiresCrl);
        return VdsSignatureVerifier(trace_.Tracer(), roots, crl, false, environment);
    }

    boost::filesystem::path AllCrls() {
        const auto crl = dir_ / "crl.p7b";
        ict_test::WriteBytes(
            crl, ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"}));
        return crl;
    }

    // The thrown message and its result code (0 when none is attached).
    template <typename Action>
    static std::pair<std::string, ruk::result_t> Failure(Action&& action) {
        const auto error = ict_test::Caught<Exception>(action);
        if (!error) {
            return {"(nothing thrown)", 0};
        }
        const auto* code = boost::get_error_info<ruk::ResultCodeInfo>(*error);
        return {error->GetMessage(), code != nullptr ? *code : 0};
    }
    static std::pair<std::string, ruk::result_t> Failure(const ISignatureVerifier& verifier,
                                                         const boost::filesystem::path& path) {
        return Failure([&] { verifier.Verify(path, nullptr); });
    }

    // The lines written for the user on standard error since the last call.
    std::string TakeErrorLines() {
        const std::string text = err_.str();
        err_.str("");
        return text;
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    std::ostringstream out_;
    std::ostringstream err_;
    ConsoleOutputPtr output_ = std::make_shared<ConsoleOutput>(false, out_, err_);
};

TEST_F(VdsVerifierTest, SignedFileGivesTheCoveredContentAndSaysRevocationWasNotChecked) {
    const auto path = Signed("good.dll", "signer");
    const VdsSignatureVerifier verifier = Make();
    EXPECT_EQ(verifier.GetName(), "VdsSignatureVerifier");
    Bytes content = {1, 2, 3};
    verifier.Verify(path, &content);
    EXPECT_EQ(content, Content());
    verifier.Verify(path, nullptr);
    // Once per file verified.
    const std::string warning =
        "Revocation of the signer of " + path.string() + " was not checked: no revocation list\n";
    EXPECT_EQ(TakeErrorLines(), warning + warning);
    EXPECT_EQ(out_.str(), "");
}

TEST_F(VdsVerifierTest, RefusalsGiveTheLiteralLineTheCodeAndTheServicesFlagText) {
    const VdsSignatureVerifier verifier = Make();
    const auto expired = Signed("expired.dll", "signer-expired");
    const auto [message, code] = Failure(verifier, expired);
    EXPECT_EQ(message, "Can't verify VDS signature of file " + expired.string() +
                           ". Flags: Signed|Embedded|RevocationCheckSkipped|Expired");
    EXPECT_EQ(code, ruk::result::ObjectUntrusted);
    EXPECT_EQ(TakeErrorLines(), "VDS signature of file " + expired.string() +
                                    " failed the checks: Signed|Embedded|RevocationCheckSkipped|"
                                    "Expired\n");

    // "Unsigned" has no name in the tool's vocabulary: only the service's text says it.
    const auto unsignedFile = Signed("unsigned.dll", "");
    EXPECT_EQ(Failure(verifier, unsignedFile).first,
              "Can't verify VDS signature of file " + unsignedFile.string() + ". Flags: ");
    EXPECT_EQ(TakeErrorLines(),
              "VDS signature of file " + unsignedFile.string() + " failed the checks: Unsigned\n");

    // Neither has "UntrustedRoot": a chain that ends at a root of its own.
    const auto ownRoot = Signed("own-root.dll", "");
    ::vds::signing::SignFile(ownRoot, ict_test::vds::Signer("unknown-signer", true), {});
    EXPECT_THAT(Failure(verifier, ownRoot).first, HasSubstr(". Flags: Signed|Embedded|"));
    EXPECT_THAT(TakeErrorLines(), HasSubstr("UntrustedRoot"));

    const auto missing = dir_ / "absent.dll";
    const auto [missingMessage, missingCode] = Failure(verifier, missing);
    EXPECT_EQ(missingMessage, "Can't create IO from file " + missing.string());
    EXPECT_TRUE(ruk::Failed(missingCode));
}

TEST_F(VdsVerifierTest, WithARevocationListTheRevokedSignerIsRefusedAndNothingIsSkipped) {
    const VdsSignatureVerifier verifier = Make(AllCrls());
    verifier.Verify(Signed("good.dll", "signer"), nullptr);
    const auto revoked = Signed("revoked.dll", "signer-revoked");
    EXPECT_EQ(Failure(verifier, revoked).first, "Can't verify VDS signature of file " +
                                                    revoked.string() +
                                                    ". Flags: Signed|Embedded|Revoked");
    // No warning for the good file.
    EXPECT_EQ(TakeErrorLines(), "VDS signature of file " + revoked.string() +
                                    " failed the checks: Signed|Embedded|Revoked\n");
}

TEST_F(VdsVerifierTest, ARevocationListThatYieldsNothingFailsBeforeAnyFile) {
    const auto crl = dir_ / "crl.p7b";
    struct Case {
        const char* what;
        Bytes bytes;
        std::string reason;  // after the path
        ruk::result_t code;
    };
    const Case cases[] = {
        {"an empty file", {}, " is empty", 0},
        {"no revocation list at all",
         {0x30, 0x0B, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02},
         " can't be used: Invalid data format",
         ruk::result::InvalidFormat},
        {"a container without CRLs", ict_test::vds::RevocationContainer({}),
         " can't be used: Not found", ruk::result::NotFound},
        {"a database left out", ict_test::vds::RevocationContainer({"3520p1"}),
         " can't be used: Not found", ruk::result::NotFound},
        {"not DER", Bytes(5000, 0x41),
         " can't be used: it is not a DER-encoded revocation container",
         ruk::result::InvalidFormat},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        ict_test::WriteBytes(crl, test.bytes);
        const auto [message, code] = Failure([&] { Make(crl); });
        EXPECT_EQ(message, "Revocation list " + crl.string() + test.reason);
        EXPECT_EQ(code, test.code);
    }
    // The same "Not found" has two causes, and the log tells them apart.
    EXPECT_TRUE(trace_.Traced("the revocation container holds no revocation database"));
    EXPECT_TRUE(trace_.Traced("Required revocation database with hierarchy="));
    // Sparse: no disk space is used, and the size is refused before any read.
    ict_test::WriteBytes(crl, {0x30});
    boost::filesystem::resize_file(crl, 4294967296ull);
    EXPECT_EQ(Failure([&] { Make(crl); }).first, "CRL is too large");
}

TEST_F(VdsVerifierTest, RootsThatRequireARevocationListRefuseToRunWithoutOne) {
    const auto onlyFirst = [](TrustedRoot root) { return root == TrustedRoot::Root3020d1; };
    EXPECT_EQ(Failure([&] { Make(boost::none, kAllRoots, onlyFirst); }).first,
              "Trusted root 3020d1 requires a revocation list, but none was given (--crl)");
    // The same roots with a list that covers them are fine, and so is a
    // selection without that root.
    Make(AllCrls(), kAllRoots, onlyFirst).Verify(Signed("good.dll", "signer"), nullptr);
    Make(boost::none, {TrustedRoot::Root3520p1}, onlyFirst)
        .Verify(Signed("other.dll", "signer"), nullptr);
}

TEST_F(VdsVerifierTest, TheSetOfRootsDecides) {
    const auto path = Signed("direct.dll", "signer-direct");  // issued by 4823d1
    Make(boost::none, {TrustedRoot::Root4823d1}).Verify(path, nullptr);
    EXPECT_THAT(Failure(Make(boost::none, {TrustedRoot::Root3520p1}), path).first,
                HasSubstr("Flags: Signed|Embedded|RevocationCheckSkipped|IncompleteChain"));
    const auto [message, code] = Failure(Make(boost::none, {}), path);
    EXPECT_EQ(message, "Can't create VDS verifier");
    EXPECT_EQ(code, ruk::result::InvalidArgument);
}

TEST_F(VdsVerifierTest, FactoryBuildsItFromTheArgumentsWithFileNameBinding) {
    const auto arguments = std::make_shared<CheckerArguments>();
    arguments->SetSignatureType(SignatureType::VdsWithFilename);
    arguments->SetTrustedRoots({TrustedRoot::Root4823d1, TrustedRoot::Root3520p1});
    const auto verifier =
        std::make_shared<Factory>(trace_.Tracer(), std::make_shared<ApplicationConfiguration>(),
                                  arguments)
            ->CreateSignatureVerifier();
    EXPECT_EQ(verifier->GetName(), "VdsSignatureVerifier");
    EXPECT_TRUE(trace_.Traced("Using certificate '4823d1' ..."));
    EXPECT_FALSE(trace_.Traced("Using certificate '3020d1' ..."));
    // The name in the path is bound: a signature without one, or the file
    // under another name, is refused.
    EXPECT_THAT(Failure(*verifier, Signed("plain.dll", "signer")).first,
                HasSubstr("SignatureValueNotMatched"));
    verifier->Verify(Signed("Setup.exe", "signer", true), nullptr);
    boost::filesystem::rename(dir_ / "Setup.exe", dir_ / "setup.exe");
    EXPECT_THAT(Failure(*verifier, dir_ / "setup.exe").first,
                HasSubstr("SignatureValueNotMatched"));
}

TEST(VdsVerifierDeathTest, AnUnknownRootAborts) {
    ict_test::TraceCapture trace;
    EXPECT_DEATH(
        VdsSignatureVerifier(trace.Tracer(), {static_cast<TrustedRoot>(4)}, boost::none, false),
        "");
}

}  // namespace
}  // namespace integrity_check_tool::vds
