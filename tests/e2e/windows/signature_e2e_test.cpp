#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/vds/pe_programs.h"
#include "support/vds/vds_material.h"
#include "wine_support.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

// Files signed on the host with the Linux signing programs, verified by the
// Windows checker with the GOST engine linked into it.
class SignaturesUnderWine : public testing::Test {
protected:
    void SetUp() override { ICT_REQUIRE_WINDOWS_BUILD(); }

    fs::path Bin() const { return dir_ / "product" / "bin"; }

    void SignDsvm(const std::string& name) {
        ict_test::WriteText(Bin() / name, "content of " + name);
        ict_test::e2e::SignDsvm("release-1", {Bin() / name});
    }

    void SignVds(const std::string& name, const std::string& signer, bool withFileName) {
        ict_test::WriteText(Bin() / name, "content of " + name);
        ict_test::e2e::SignVds(Bin() / name, signer, withFileName);
    }

    void Tamper(const std::string& name) {
        std::string bytes = ict_test::ReadText(Bin() / name);
        bytes[0] = 'X';
        ict_test::WriteText(Bin() / name, bytes);
    }

    fs::path WriteManifest(const std::vector<std::string>& names) {
        std::vector<std::string> paths;
        for (const auto& name : names) {
            paths.push_back("%ProductRoot%\\bin\\" + name);
        }
        return ict_test::e2e::WriteManifest(dir_ / "product" / "integrity_check.xml", paths);
    }

    // The Windows checker names files by their Wine paths.
    std::string Failed(const std::string& name) const {
        return "file " + ict_test::ToWinePath(Bin()) + "\\" + name + " failed. Reason: ";
    }

    ict_test::TempDir dir_;
};

TEST_F(SignaturesUnderWine, EachSignatureTypePassesSignedFilesAndFailsTamperedOnes) {
    struct Case {
        std::string type;
        std::string expectedReason;
    };
    const std::vector<Case> cases = {
        {"dsvm2", "Invalid signature (DSVM result "},
        {"vds", "Can't verify VDS signature of file "},
        {"vds-with-filename", "Can't verify VDS signature of file "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        const std::string good = c.type + "-good.dll";
        const std::string bad = c.type + "-tampered.dll";
        for (const auto& name : {good, bad}) {
            if (c.type == "dsvm2") {
                SignDsvm(name);
            } else {
                SignVds(name, "signer", c.type == "vds-with-filename");
            }
        }
        Tamper(bad);
        auto run = wine_e2e::RunChecker(
            {"--signature-only", "--signature-type", c.type, WriteManifest({good}).string()});
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n"));

        run = wine_e2e::RunChecker(
            {"--signature-only", "--signature-type", c.type, WriteManifest({good, bad}).string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr(Failed(bad) + c.expectedReason)) << run.Describe();
        EXPECT_THAT(run.err, Not(HasSubstr(Failed(good))));
        EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 0 / 1\n"));
    }
}

TEST_F(SignaturesUnderWine, RevocationListFromAStorageDirectoryRefusesTheRevokedSigner) {
    SignVds("a.dll", "signer", false);
    SignVds("revoked.dll", "signer-revoked", false);
    const fs::path storage = ict_test::e2e::PackCrls(dir_ / "crl-storage", "compressed");

    const fs::path manifest = WriteManifest({"a.dll", "revoked.dll"});
    auto run =
        wine_e2e::RunChecker({"--signature-only", "--signature-type", "vds", manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << "without a CRL nothing is revoked\n" << run.Describe();

    const fs::path trace = dir_ / "trace.log";
    run = wine_e2e::RunChecker({"--signature-only", "--signature-type", "vds", "--crl",
                                storage.string(), "--trace", trace.string(), manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr(Failed("revoked.dll") + "Can't verify VDS signature of file " +
                                   ict_test::ToWinePath(Bin()) +
                                   "\\revoked.dll. Flags: " + "Signed|Embedded|Revoked"));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 0 / 1\n"));
    EXPECT_THAT(ict_test::ReadText(trace),
                HasSubstr("CRL has been read successfully from storage"));
}

// Programs carry their signature in the certificate table; the Windows
// checker reads it there, whichever tool signed.
TEST_F(SignaturesUnderWine, ProgramsAreCheckedInTheirCertificateTable) {
    const std::string missing = ict_test::vds::MissingPeTools();
    if (!missing.empty()) {
        GTEST_SKIP() << missing;
    }
    std::vector<std::string> good;
    std::vector<std::string> patched;
    for (const auto& compiler : ict_test::vds::MingwCompilers()) {
        const std::string arch = compiler.find("x86_64") == 0 ? "x64" : "x86";
        const fs::path plain = dir_ / (arch + ".exe");
        ict_test::vds::BuildProgram(compiler, plain);
        fs::create_directories(Bin());
        ict_test::vds::OsslsigncodeSign(plain, Bin() / (arch + "-ossl.exe"), "signer-ec");
        ict_test::vds::OsslsigncodeSign(plain, Bin() / (arch + "-patched.exe"), "signer-ec");
        fs::copy_file(plain, Bin() / (arch + "-ours.exe"));
        ict_test::e2e::SignVds(Bin() / (arch + "-ours.exe"), "signer", true);
        ict_test::vds::Bytes bytes = ict_test::vds::ReadBytes(Bin() / (arch + "-patched.exe"));
        bytes.at(0x400) ^= 1;  // the first section's first byte
        ict_test::WriteBytes(Bin() / (arch + "-patched.exe"), bytes);
        good.insert(good.end(), {arch + "-ossl.exe", arch + "-ours.exe"});
        patched.push_back(arch + "-patched.exe");
    }

    auto run = wine_e2e::RunChecker(
        {"--signature-only", "--signature-type", "vds", WriteManifest(good).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 4\n")) << run.Describe();

    run = wine_e2e::RunChecker({"--signature-only", "--signature-type", "vds-with-filename",
                                WriteManifest({"x86-ours.exe", "x64-ours.exe"}).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();

    run = wine_e2e::RunChecker(
        {"--signature-only", "--signature-type", "vds", WriteManifest(patched).string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    for (const auto& name : patched) {
        EXPECT_THAT(
            run.err,
            HasSubstr(Failed(name) + "Can't verify VDS signature of file " +
                      ict_test::ToWinePath(Bin()) + "\\" + name +
                      ". Flags: Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched"))
            << run.Describe();
    }
}

}  // namespace
