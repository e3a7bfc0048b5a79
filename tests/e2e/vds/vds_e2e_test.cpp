#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/e2e_product.h"
#include "support/vds/vds_material.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::HasSubstr;
using testing::Not;

class VdsEndToEnd : public testing::Test {
protected:
    // a.dll and b.exe signed by our signing program, c.sys by `openssl cms`.
    void SetUp() override {
        Add("a.dll", "signer");
        Add("b.exe", "signer");
        ict_test::WriteText(Bin() / "c.sys", "content of c.sys");
        ict_test::vds::SignWithOpenSslCommand(Bin() / "c.sys", "signer");
        names_.push_back("c.sys");
    }

    fs::path Bin() const { return dir_ / "product" / "bin"; }
    std::string In(const std::string& name) const { return (Bin() / name).string(); }

    void Add(const std::string& name, const std::string& signer, bool withFileName = false) {
        ict_test::WriteText(Bin() / name, "content of " + name);
        e2e::SignVds(Bin() / name, signer, withFileName);
        names_.push_back(name);
    }

    fs::path Manifest() {
        std::vector<std::string> paths;
        for (const auto& name : names_) {
            paths.push_back("%ProductRoot%\\bin\\" + name);
        }
        return e2e::WriteManifest(dir_ / "product" / "integrity_check.xml", paths);
    }

    ict_test::RunResult Check(std::vector<std::string> options, const std::string& type = "vds") {
        options.insert(options.begin(), {"--signature-only", "--signature-type", type});
        options.push_back(Manifest().string());
        return e2e::Checker(options);
    }

    std::string Failure(const std::string& name, const std::string& flags) const {
        return e2e::VdsFailure(In(name), flags);
    }

    ict_test::TempDir dir_;
    std::vector<std::string> names_;
};

TEST_F(VdsEndToEnd, SignedProductSucceedsAndSaysRevocationWasNotChecked) {
    const fs::path trace = dir_ / "trace.log";
    const auto run = Check({"--trace", trace.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 0 / 3\n"));
    std::string warnings;
    for (const auto& name : names_) {
        warnings +=
            "Revocation of the signer of " + In(name) + " was not checked: no revocation list\n";
    }
    EXPECT_EQ(run.err, warnings);
    // The service's own lines reach the trace file.
    const std::string log = ict_test::ReadText(trace);
    EXPECT_THAT(log, HasSubstr("OnFinalResult: finalResult=0 (vdsOk), trusted"));
    EXPECT_THAT(log, HasSubstr("Signature position: 16"));  // "content of c.sys"
}

TEST_F(VdsEndToEnd, EachBadFileFailsWithItsFlagsWhileTheOthersPass) {
    const std::vector<std::string> good = names_;
    Add("expired.dll", "signer-expired");
    Add("nopurpose.dll", "signer-nopurpose");
    Add("foreign.dll", "unknown-signer");
    Add("tampered.dll", "signer");
    std::string bytes = ict_test::ReadText(Bin() / "tampered.dll");
    bytes[0] = 'C';
    ict_test::WriteText(Bin() / "tampered.dll", bytes);
    Add("truncated.dll", "signer");
    bytes = ict_test::ReadText(Bin() / "truncated.dll");
    ict_test::WriteText(Bin() / "truncated.dll", bytes.substr(0, bytes.size() - 1));
    ict_test::WriteText(Bin() / "empty.dll", "");
    names_.push_back("empty.dll");

    const auto run = Check({});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string skipped = "Signed|Embedded|RevocationCheckSkipped|";
    EXPECT_THAT(run.err, HasSubstr(Failure("expired.dll", skipped + "Expired")));
    EXPECT_THAT(run.err, HasSubstr(Failure("nopurpose.dll", skipped + "InvalidPurpose")));
    EXPECT_THAT(run.err, HasSubstr(Failure("foreign.dll", skipped + "IncompleteChain")));
    EXPECT_THAT(run.err, HasSubstr(Failure("tampered.dll", skipped + "SignatureValueNotMatched")));
    // A cut trailer is no trailer; an empty file has none either. Beside the
    // literal line, the service's flag text says why.
    for (const char* name : {"truncated.dll", "empty.dll"}) {
        EXPECT_THAT(run.err, HasSubstr(Failure(name, "")));
        EXPECT_THAT(run.err, HasSubstr("VDS signature of file " + In(name) +
                                       " failed the checks: Unsigned\n"));
    }
    for (const auto& name : good) {
        EXPECT_THAT(run.err, Not(HasSubstr("file " + In(name) + " failed"))) << name;
    }
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 6 / 0 / 3\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Throw in function")));
}

TEST_F(VdsEndToEnd, RevocationListFromFileOrStorageRefusesTheRevokedSigner) {
    Add("revoked.dll", "signer-revoked");
    for (const std::string mode : {"file", "raw", "compressed"}) {
        SCOPED_TRACE(mode);
        const fs::path crl = e2e::PackCrls(dir_ / ("crl-" + mode), mode);
        const auto run = Check({"--crl", crl.string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr(Failure("revoked.dll", "Signed|Embedded|Revoked")));
        EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 0 / 3\n"));
        EXPECT_THAT(run.err, Not(HasSubstr("was not checked")));
    }
    // The same lists, stored raw and compressed, are two different containers.
    EXPECT_NE(ict_test::ReadText(dir_ / "crl-raw" / "vdscrl.rdb"),
              ict_test::ReadText(dir_ / "crl-compressed" / "vdscrl.rdb"));
}

// Which lists are unusable, and their texts, are the verifier's tests.
TEST_F(VdsEndToEnd, AnUnusableRevocationListStopsTheRunBeforeAnyFile) {
    Add("revoked.dll", "signer-revoked");
    const fs::path partial = e2e::PackCrls(dir_ / "partial.p7b", "file", {"3520p1", "4823d1"});
    ict_test::WriteText(dir_ / "empty.crl", "");
    const std::vector<std::pair<fs::path, std::string>> cases = {
        {partial, " can't be used: Not found\n"},
        {dir_ / "empty.crl", " is empty"},
    };
    for (const auto& [crl, reason] : cases) {
        SCOPED_TRACE(crl.string());
        const auto run = Check({"--crl", crl.string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr("Reason: Revocation list " + crl.string() + reason));
        // No file was checked, so the revoked one cannot have passed.
        EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 0 / 0 / 0\n"));
    }
}

TEST_F(VdsEndToEnd, FileNameBindingFollowsTheName) {
    Add("Setup.exe", "signer", true);
    Add("Tool.dll", "signer", true);
    fs::copy_file(Bin() / "Tool.dll", Bin() / "Renamed.dll");
    names_ = {"Setup.exe", "Tool.dll", "Renamed.dll", "a.dll"};
    const auto run = Check({}, "vds-with-filename");
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string mismatch = "Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched";
    EXPECT_THAT(run.err, HasSubstr(Failure("Renamed.dll", mismatch)));
    // a.dll was signed without a name: it cannot vouch for one.
    EXPECT_THAT(run.err, HasSubstr(Failure("a.dll", mismatch)));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 2 / 0 / 2\n"));
    // Without binding all of them pass.
    EXPECT_EQ(Check({}).exitCode, 0);
}

// A name that is not UTF-8 cannot be bound: the signer says so and leaves the file.
TEST_F(VdsEndToEnd, SignerRefusesToBindANameThatIsNotUtf8) {
    const std::string bad = "bad\xFF.dll";
    ict_test::WriteText(Bin() / bad, "content");
    auto sign = e2e::VdsIdentity("signer");
    sign.insert(sign.end(), {"--with-filename", In(bad)});
    const auto run = ict_test::RunTool(e2e::SignerPath(), sign);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("File name " + In(bad) + " is not valid UTF-8"));
    EXPECT_EQ(ict_test::ReadText(Bin() / bad), "content");
}

TEST_F(VdsEndToEnd, SigningProgramsRefuseWhatTheyCannotDoWell) {
    auto arguments = e2e::VdsIdentity("signer");
    arguments.push_back(In("a.dll"));
    auto run = ict_test::RunTool(e2e::SignerPath(), arguments);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("is already signed (use --replace)"));
    arguments.insert(arguments.end() - 1, "--replace");
    run = ict_test::RunTool(e2e::SignerPath(), arguments);
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    const std::string content = ict_test::ReadText(Bin() / "a.dll");
    EXPECT_EQ(content.find("content of a.dll"), 0u);
    EXPECT_EQ(content.find("VDSSIG"), content.rfind("VDSSIG"));  // one signature, not two
    EXPECT_EQ(Check({}).exitCode, 0);

    const auto vds = e2e::PrivateDir() / "vds";
    run = ict_test::RunTool(e2e::SignerPath(),
                            {"vds", "--cert", (vds / "signer.pem").string(), "--key",
                             (vds / "signer-512.key.pem").string(), In("b.exe")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("does not belong to the certificate"));
    run =
        ict_test::RunTool(e2e::SignerPath(), {"vds", "--cert", (vds / "signer.pem").string(), "x"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("--cert and --key are required"));

    run = ict_test::RunTool(
        ict_test::BinaryDir() / "tools" / "crl_container" / "integrity_crl_container",
        {"--file", (dir_ / "x.p7b").string(), (vds / "signer.pem").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("is not a CRL"));
    EXPECT_FALSE(fs::exists(dir_ / "x.p7b"));
}

}  // namespace
