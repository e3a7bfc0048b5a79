#include <algorithm>
#include <sstream>
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
#include "trust/trust_material.h"
#include "vds/signing.h"
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
                              const std::vector<TrustedRoot>& roots = kAllRoots,
                              std::function<bool(TrustedRoot)> requiresCrl = nullptr) {
        VdsSignatureVerifier::Environment environment;
        environment.output = output_;
        environment.requiresRevocationList = std::move(requiresCrl);
        return VdsSignatureVerifier(trace_.Tracer(), roots, crl, bindName, environment);
    }

    // The failure of constructing a verifier over `crl`.
    std::pair<std::string, ruk::result_t> ConstructionFailure(
        const boost::optional<boost::filesystem::path>& crl,
        std::function<bool(TrustedRoot)> requiresCrl = nullptr) {
        try {
            Make(false, crl, kAllRoots, std::move(requiresCrl));
        } catch (const Exception& error) {
            const auto* code = boost::get_error_info<ruk::ResultCodeInfo>(error);
            return {error.GetMessage(), code != nullptr ? *code : 0};
        }
        return {"constructed", 0};
    }

    // The lines written for the user on standard error since the last call.
    std::string TakeErrorLines() {
        const std::string text = err_.str();
        err_.str("");
        return text;
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
    std::ostringstream out_;
    std::ostringstream err_;
    ConsoleOutputPtr output_ = std::make_shared<ConsoleOutput>(false, out_, err_);
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
    // Without a CRL the development roots are the ones that may go without.
    EXPECT_TRUE(
        Traced("VdsCreateVerifierWithOptionalCrls: BEGIN rootsCount=0, optCrlRootsCount=4"));
    EXPECT_TRUE(Traced("OnFinalResult: finalResult=0 (vdsOk), trusted"));
    // Accepted, but the user is told that revocation was not checked, once per file.
    const std::string warning =
        "Revocation of the signer of " + path.string() + " was not checked: no revocation list\n";
    EXPECT_EQ(TakeErrorLines(), warning + warning);
    EXPECT_EQ(out_.str(), "");
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
        EXPECT_EQ(TakeErrorLines(), "VDS signature of file " + path.string() +
                                        " failed the checks: Signed|Embedded|"
                                        "RevocationCheckSkipped|" +
                                        test.flags + "\n");
    }

    // Tampered: the digest no longer matches.
    auto path = Signed("tampered.dll", "signer");
    Bytes bytes = ict_test::vds::ReadBytes(path);
    bytes[5] ^= 0xFF;
    ict_test::WriteBytes(path, bytes);
    EXPECT_THAT(
        Failure(verifier, path).first,
        HasSubstr("Flags: Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched"));

    TakeErrorLines();

    // Unsigned: its only flag has no name in the checker's vocabulary, so
    // the service's text says it beside the literal line.
    path = dir_ / "unsigned.dll";
    ict_test::WriteBytes(path, Content());
    EXPECT_EQ(Failure(verifier, path).first,
              "Can't verify VDS signature of file " + path.string() + ". Flags: ");
    EXPECT_EQ(TakeErrorLines(),
              "VDS signature of file " + path.string() + " failed the checks: Unsigned\n");

    // A chain that ends at a root of its own, not one of ours.
    path = dir_ / "own-root.dll";
    ict_test::WriteBytes(path, Content());
    ::vds::signing::SignFile(path, ict_test::vds::Signer("unknown-signer", true), {});
    EXPECT_THAT(Failure(verifier, path).first, HasSubstr(". Flags: Signed|Embedded|"));
    EXPECT_THAT(TakeErrorLines(), HasSubstr("UntrustedRoot"));
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
    // Revocation was checked: no warning for the good file.
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
    Bytes garbage(5000, 0x41);
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
        {"not DER", garbage, " can't be used: it is not a DER-encoded revocation container",
         ruk::result::InvalidFormat},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        ict_test::WriteBytes(crl, test.bytes);
        const auto [message, code] = ConstructionFailure(crl);
        EXPECT_EQ(message, "Revocation list " + crl.string() + test.reason);
        EXPECT_EQ(code, test.code);
    }
    EXPECT_TRUE(Traced("the revocation container holds no revocation database"));
    EXPECT_TRUE(Traced("Required revocation database with hierarchy="));
}

TEST_F(VdsVerifierTest, RootsThatRequireARevocationListRefuseToRunWithoutOne) {
    const auto onlyFirst = [](TrustedRoot root) { return root == TrustedRoot::Root3020d1; };
    EXPECT_EQ(ConstructionFailure(boost::none, onlyFirst).first,
              "Trusted root 3020d1 requires a revocation list, but none was given (--crl)");
    // The same roots with a list that covers them are fine.
    const auto crl = dir_ / "crl.p7b";
    ict_test::WriteBytes(
        crl, ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"}));
    Make(false, crl, kAllRoots, onlyFirst).Verify(Signed("good.dll", "signer"), nullptr);
    // A selection without that root needs no list.
    Make(false, boost::none, {TrustedRoot::Root3520p1}, onlyFirst)
        .Verify(Signed("other.dll", "signer"), nullptr);
    // The development set requires a list for none of its roots.
    for (std::size_t index = 0; index < 4; ++index) {
        EXPECT_FALSE(trust::RootRequiresRevocationList(index)) << index;
    }
}

TEST_F(VdsVerifierTest, ARevocationListFileOverTheLimitIsTooLarge) {
    const auto crl = dir_ / "huge.p7b";
    ict_test::WriteBytes(crl, {0x30});
    // Sparse: no disk space is used, and the size is refused before any read.
    boost::filesystem::resize_file(crl, 4294967296ull);
    EXPECT_EQ(ConstructionFailure(crl).first, "CRL is too large");
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
    // On POSIX that is a file name of its own; on Windows it names the file in
    // the current folder of that drive.
#ifdef _WIN32
    const std::string driveRelative = dir_.Path().root_name().string() + "Setup.exe";
    boost::filesystem::rename(renamed, dir_ / "Setup.exe");
#else
    const std::string driveRelative = "D:Setup.exe";
    boost::filesystem::rename(renamed, dir_ / driveRelative);
#endif
    const auto previous = boost::filesystem::current_path();
    boost::filesystem::current_path(dir_.Path());
    Bytes content;
    try {
        bound.Verify(driveRelative, &content);
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
