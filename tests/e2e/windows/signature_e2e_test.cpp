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

    static fs::path Signer() {
        return ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer";
    }

    void SignDsvm(const std::string& name) {
        ict_test::WriteText(Bin() / name, "content of " + name);
        const fs::path key =
            ict_test::SourceDir() / "trust" / "development" / "private" / "dsvm" / "release-1.pem";
        const auto run =
            ict_test::RunTool(Signer(), {"dsvm", "--key", key.string(), (Bin() / name).string()});
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
    }

    void SignVds(const std::string& name, const std::string& signer, bool withFileName) {
        ict_test::WriteText(Bin() / name, "content of " + name);
        const fs::path material = ict_test::vds::PrivateVdsDir();
        std::vector<std::string> arguments = {"vds",
                                              "--cert",
                                              (material / (signer + ".pem")).string(),
                                              "--key",
                                              (material / (signer + ".key.pem")).string(),
                                              "--chain",
                                              (material / "signing-ca.pem").string()};
        if (withFileName) {
            arguments.push_back("--with-filename");
        }
        arguments.push_back((Bin() / name).string());
        const auto run = ict_test::RunTool(Signer(), arguments);
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
    }

    void Tamper(const std::string& name) {
        std::string bytes = ict_test::ReadText(Bin() / name);
        bytes[0] = 'X';
        ict_test::WriteText(Bin() / name, bytes);
    }

    fs::path WriteManifest(const std::vector<std::string>& names) {
        std::string records;
        for (const auto& name : names) {
            records += "  <File path=\"%ProductRoot%\\bin\\" + name +
                       "\"><Check type=\"Exists\"/></File>\n";
        }
        const fs::path path = dir_ / "product" / "integrity_check.xml";
        ict_test::WriteText(path, "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n" +
                                      records + "</Manifest>\n");
        return path;
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
    const fs::path storage = dir_ / "crl-storage";
    std::vector<std::string> arguments = {"--out", storage.string(), "--compress"};
    for (const char* root : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
        arguments.push_back(
            (ict_test::vds::PrivateVdsDir() / "crl" / (std::string(root) + ".crl.pem")).string());
    }
    const auto pack = ict_test::RunTool(
        ict_test::BinaryDir() / "tools" / "crl_container" / "integrity_crl_container", arguments);
    ASSERT_EQ(pack.exitCode, 0) << pack.Describe();

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
        const fs::path material = ict_test::vds::PrivateVdsDir();
        const auto signing =
            ict_test::RunTool(Signer(), {"vds", "--cert", (material / "signer.pem").string(),
                                         "--key", (material / "signer.key.pem").string(), "--chain",
                                         (material / "signing-ca.pem").string(), "--with-filename",
                                         (Bin() / (arch + "-ours.exe")).string()});
        ASSERT_EQ(signing.exitCode, 0) << signing.Describe();
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
