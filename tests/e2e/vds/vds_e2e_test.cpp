#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ruk/result.h"
#include "storage/container_writer.h"
#include "support/e2e.h"
#include "support/vds/vds_material.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

using ict_test::RunTool;

fs::path Material(const std::string& name) {
    return ict_test::vds::PrivateVdsDir() / name;
}

class VdsEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"a.dll", "b.exe"}) {
            Add(name, "signer");
        }
        // One signature from the openssl command line, not from our signer.
        ict_test::WriteText(Bin() / "c.sys", "content of c.sys");
        ict_test::vds::SignWithOpenSslCommand(Bin() / "c.sys", "signer");
        good_.push_back("c.sys");
    }

    fs::path Bin() const { return dir_ / "product" / "bin"; }

    // Writes a file and signs it with the signing program.
    void Add(const std::string& name, const std::string& signer, bool withFileName = false,
             std::vector<std::string>* list = nullptr) {
        ict_test::WriteText(Bin() / name, "content of " + name);
        std::vector<std::string> arguments = {"vds", "--cert", Material(signer + ".pem").string(),
                                              "--key", Material(signer + ".key.pem").string()};
        if (signer != "signer-direct" && signer != "unknown-signer") {
            arguments.insert(arguments.end(), {"--chain", Material("signing-ca.pem").string()});
        }
        if (withFileName) {
            arguments.push_back("--with-filename");
        }
        arguments.push_back((Bin() / name).string());
        const auto run =
            RunTool(ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer", arguments);
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
        (list != nullptr ? *list : good_).push_back(name);
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

    // Packs the CRLs of the named roots with the container program.
    fs::path CrlContainer(const std::vector<std::string>& roots, const std::string& mode) {
        const fs::path target = dir_ / ("crl-" + mode);
        std::vector<std::string> arguments;
        if (mode == "file") {
            arguments = {"--file", target.string()};
        } else {
            arguments = {"--out", target.string()};
            if (mode == "compressed") {
                arguments.push_back("--compress");
            }
        }
        for (const auto& root : roots) {
            arguments.push_back(Material("crl/" + root + ".crl.pem").string());
        }
        const auto run =
            RunTool(ict_test::BinaryDir() / "tools" / "crl_container" / "integrity_crl_container",
                    arguments);
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        return target;
    }

    ict_test::RunResult Check(std::vector<std::string> arguments) {
        return RunTool(ict_test::CheckerPath(), std::move(arguments));
    }

    std::string Why(const std::string& name, const std::string& flags) const {
        return "VDS signature of file " + (Bin() / name).string() + " failed the checks: " + flags +
               "\n";
    }

    std::string Failure(const std::string& name, const std::string& flags) const {
        const std::string path = (Bin() / name).string();
        return "file " + path + " failed. Reason: Can't verify VDS signature of file " + path +
               ". Flags: " + flags + "\n";
    }

    ict_test::TempDir dir_;
    std::vector<std::string> good_;
};

const std::vector<std::string> kAllRoots = {"3520p1", "3020d1", "4820d1", "4823d1"};

TEST_F(VdsEndToEnd, SignedProductSucceedsAndTheTraceShowsTheService) {
    const fs::path trace = dir_ / "trace.log";
    const auto run = Check({"--signature-only", "--signature-type", "vds", "--trace",
                            trace.string(), WriteManifest(good_).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 0 / 3\n"));
    EXPECT_THAT(run.out, HasSubstr("SUCCEEDED\n"));
    // No revocation list: each file passes with a word that revocation was not checked,
    // on the console and in the log.
    std::string warnings;
    for (const auto& name : good_) {
        warnings += "Revocation of the signer of " + (Bin() / name).string() +
                    " was not checked: no revocation list\n";
    }
    EXPECT_EQ(run.err, warnings);
    const std::string log = ict_test::ReadText(trace);
    EXPECT_THAT(log, HasSubstr("Revocation of the signer of " + (Bin() / "c.sys").string() +
                               " was not checked"));
    EXPECT_THAT(log, HasSubstr("Using certificate '4823d1' ..."));
    EXPECT_THAT(log, HasSubstr("VDS signature of file " + (Bin() / "c.sys").string() + " is OK"));
    EXPECT_THAT(log, HasSubstr("Signature position: 16"));  // "content of c.sys"
    EXPECT_THAT(log, HasSubstr("VdsCreateVerifierWithOptionalCrls: BEGIN rootsCount=0, "
                               "optCrlRootsCount=4, crlContainerSize=0"));
    EXPECT_THAT(log, HasSubstr("OnVerifierCreated: Created New Verifier"));
    EXPECT_THAT(log, HasSubstr("OnFinalResult: finalResult=0 (vdsOk), trusted"));
    EXPECT_THAT(log, HasSubstr("VerifyObject: verificationResult=0"));
}

TEST_F(VdsEndToEnd, EachBadFileFailsWithItsFlagsWhileTheOthersPass) {
    std::vector<std::string> bad;
    Add("expired.dll", "signer-expired", false, &bad);
    Add("nopurpose.dll", "signer-nopurpose", false, &bad);
    Add("foreign.dll", "unknown-signer", false, &bad);
    Add("tampered.dll", "signer", false, &bad);
    std::string bytes = ict_test::ReadText(Bin() / "tampered.dll");
    bytes[0] = 'C';
    ict_test::WriteText(Bin() / "tampered.dll", bytes);
    Add("truncated.dll", "signer", false, &bad);
    bytes = ict_test::ReadText(Bin() / "truncated.dll");
    ict_test::WriteText(Bin() / "truncated.dll", bytes.substr(0, bytes.size() - 1));
    ict_test::WriteText(Bin() / "unsigned.dll", "never signed");
    bad.push_back("unsigned.dll");
    ict_test::WriteText(Bin() / "empty.dll", "");
    bad.push_back("empty.dll");

    std::vector<std::string> names = good_;
    names.insert(names.end(), bad.begin(), bad.end());
    const auto run =
        Check({"--signature-only", "--signature-type", "vds", WriteManifest(names).string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string skipped = "Signed|Embedded|RevocationCheckSkipped|";
    EXPECT_THAT(run.err, HasSubstr(Failure("expired.dll", skipped + "Expired")));
    EXPECT_THAT(run.err, HasSubstr(Failure("nopurpose.dll", skipped + "InvalidPurpose")));
    EXPECT_THAT(run.err, HasSubstr(Failure("foreign.dll", skipped + "IncompleteChain")));
    EXPECT_THAT(run.err, HasSubstr(Failure("tampered.dll", skipped + "SignatureValueNotMatched")));
    // A cut trailer is no trailer; an empty file has none either.
    EXPECT_THAT(run.err, HasSubstr(Failure("truncated.dll", "")));
    EXPECT_THAT(run.err, HasSubstr(Failure("unsigned.dll", "")));
    EXPECT_THAT(run.err, HasSubstr(Failure("empty.dll", "")));
    // Beside each literal line, the service's flag text says why.
    for (const char* name : {"truncated.dll", "unsigned.dll", "empty.dll"}) {
        EXPECT_THAT(run.err, HasSubstr(Why(name, "Unsigned"))) << name;
    }
    EXPECT_THAT(run.err, HasSubstr(Why("expired.dll", skipped + "Expired")));
    for (const auto& name : good_) {
        EXPECT_THAT(run.err, Not(HasSubstr("file " + (Bin() / name).string() + " failed"))) << name;
        EXPECT_THAT(run.err, Not(HasSubstr("VDS signature of file " + (Bin() / name).string())))
            << name;
    }
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 7 / 0 / 3\n"));
    EXPECT_THAT(run.err, HasSubstr("FAILED\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Throw in function")));
}

TEST_F(VdsEndToEnd, RevocationListFromFileAndStorageRefusesTheRevokedSigner) {
    std::vector<std::string> revoked;
    Add("revoked.dll", "signer-revoked", false, &revoked);
    Add("direct.dll", "signer-direct");
    std::vector<std::string> names = good_;
    names.push_back("revoked.dll");
    const fs::path manifest = WriteManifest(names);

    // Without a CRL nothing says it is revoked, but the run says it did not look.
    auto run = Check({"--signature-only", "--signature-type", "vds", manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.err,
                HasSubstr("Revocation of the signer of " + (Bin() / "revoked.dll").string() +
                          " was not checked: no revocation list\n"));

    for (const std::string mode : {"file", "raw", "compressed"}) {
        SCOPED_TRACE(mode);
        const fs::path crl = CrlContainer(kAllRoots, mode);
        const fs::path trace = dir_ / ("trace-" + mode + ".log");
        run = Check({"--signature-only", "--signature-type", "vds", "--crl", crl.string(),
                     "--trace", trace.string(), manifest.string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr(Failure("revoked.dll", "Signed|Embedded|Revoked")));
        EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 0 / 4\n"));
        EXPECT_THAT(run.err, Not(HasSubstr("was not checked")));
        const std::string log = ict_test::ReadText(trace);
        EXPECT_THAT(log, HasSubstr("VdsRevocationCheckerFactoryImpl: 4 database(s) loaded"));
        EXPECT_THAT(log, HasSubstr("Validated revocation database with hierarchy="));
        if (mode != "file") {
            EXPECT_THAT(log, HasSubstr("Reading CRL from storage " + crl.string() + " ..."));
            EXPECT_THAT(log, HasSubstr("CRL has been read successfully from storage"));
        }
    }
}

TEST_F(VdsEndToEnd, UnusableRevocationListsFailTheRunCleanly) {
    const fs::path manifest = WriteManifest(good_);
    // A database is missing: the run stops before any file.
    const fs::path partial = CrlContainer({"3520p1", "4823d1"}, "raw");
    auto run = Check({"--signature-only", "--signature-type", "vds", "--crl", partial.string(),
                      manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Reason: Revocation list " + partial.string() +
                                   " can't be used: Not found\n"));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 0\n"));

    // A damaged compressed container stops the run before any file.
    const fs::path damaged = CrlContainer(kAllRoots, "compressed");
    std::string bytes = ict_test::ReadText(damaged / "vdscrl.rdb");
    ict_test::WriteText(damaged / "vdscrl.rdb", bytes.substr(0, bytes.size() - 4));
    run = Check({"--signature-only", "--signature-type", "vds", "--crl", damaged.string(),
                 manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Can't read CRL from storage"));
    EXPECT_THAT(run.err, HasSubstr("FAILED\n"));
    EXPECT_GE(run.signal, 0);
    EXPECT_EQ(run.signal, 0);

    // A directory without the container.
    const fs::path empty = dir_ / "empty-storage";
    fs::create_directories(empty);
    run = Check({"--signature-only", "--signature-type", "vds", "--crl", empty.string(),
                 manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Failed to open container vdscrl.rdb in storage"));
}

TEST_F(VdsEndToEnd, ARevocationListThatYieldsNothingStopsTheRun) {
    std::vector<std::string> names = good_;
    Add("revoked.dll", "signer-revoked", false, &names);
    const fs::path manifest = WriteManifest(names);

    const fs::path emptyFile = dir_ / "empty.crl";
    ict_test::WriteText(emptyFile, "");
    const fs::path rawStorage = dir_ / "raw-storage";
    fs::create_directories(rawStorage);
    ict_test::WriteText(rawStorage / "vdscrl.rdb", "");
    // A zlib container of 0 bytes, and a container of a list without CRLs.
    const fs::path zlibStorage = dir_ / "zlib-storage";
    fs::create_directories(zlibStorage);
    ASSERT_EQ(storage::WriteContainer(zlibStorage, "vdscrl.rdb", {},
                                      storage::ContainerEncoding::Compressed),
              ruk::result::Success);
    const fs::path noCrls = dir_ / "no-crls.p7b";
    const auto container = ict_test::vds::RevocationContainer({});
    ict_test::WriteText(noCrls, std::string(container.begin(), container.end()));

    struct Case {
        fs::path crl;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {emptyFile, " is empty"},
        {rawStorage, " is empty"},
        {zlibStorage, " is empty"},
        {noCrls, " can't be used: Not found"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.crl.string());
        const auto run = Check({"--signature-only", "--signature-type", "vds", "--crl",
                                test.crl.string(), manifest.string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err,
                    HasSubstr("Reason: Revocation list " + test.crl.string() + test.reason));
        // No file was checked, so the revoked one cannot have passed.
        EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 0 / 0 / 0\n"));
        EXPECT_THAT(run.err, HasSubstr("FAILED\n"));
    }
}

TEST_F(VdsEndToEnd, SignerAndCheckerBindTheSameNameForADriveLetterPath) {
    // "C:a.dll" is a legal name on POSIX; both programs bind "a.dll" for it.
    ict_test::WriteText(Bin() / "C:a.dll", "content of C:a.dll");
    ict_test::RunOptions sign;
    sign.workingDirectory = Bin();
    sign.arguments = {"vds",
                      "--cert",
                      Material("signer.pem").string(),
                      "--key",
                      Material("signer.key.pem").string(),
                      "--chain",
                      Material("signing-ca.pem").string(),
                      "--with-filename",
                      "C:a.dll"};
    auto run =
        ict_test::RunProgram(ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer", sign);
    ASSERT_EQ(run.exitCode, 0) << run.Describe();

    const fs::path manifest = dir_ / "drive.xml";
    ict_test::WriteText(manifest,
                        "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n"
                        "  <File path=\"C:a.dll\"><Check type=\"Exists\"/></File>\n"
                        "</Manifest>\n");
    ict_test::RunOptions check;
    check.workingDirectory = Bin();
    check.arguments = {"--signature-only", "--signature-type", "vds-with-filename",
                       manifest.string()};
    run = ict_test::RunProgram(ict_test::CheckerPath(), check);
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n"));

    // A name that is not UTF-8 cannot be bound: the signer says so and leaves the file.
    const std::string bad = "bad\xFF.dll";
    ict_test::WriteText(Bin() / bad, "content");
    sign.arguments.back() = bad;
    run =
        ict_test::RunProgram(ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer", sign);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("File name " + bad + " is not valid UTF-8"));
    EXPECT_EQ(ict_test::ReadText(Bin() / bad), "content");
}

TEST_F(VdsEndToEnd, FileNameBindingFollowsTheName) {
    std::vector<std::string> bound;
    Add("Setup.exe", "signer", true, &bound);
    Add("Tool.dll", "signer", true, &bound);
    fs::copy_file(Bin() / "Tool.dll", Bin() / "Renamed.dll");
    const auto run =
        Check({"--signature-only", "--signature-type", "vds-with-filename",
               WriteManifest({"Setup.exe", "Tool.dll", "Renamed.dll", "a.dll"}).string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string mismatch = "Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched";
    EXPECT_THAT(run.err, HasSubstr(Failure("Renamed.dll", mismatch)));
    // a.dll was signed without a name: it cannot vouch for one.
    EXPECT_THAT(run.err, HasSubstr(Failure("a.dll", mismatch)));
    EXPECT_THAT(run.err, Not(HasSubstr("file " + (Bin() / "Setup.exe").string() + " failed")));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 2 / 0 / 2\n"));

    // The same files without binding all pass.
    const auto plain =
        Check({"--signature-only", "--signature-type", "vds",
               WriteManifest({"Setup.exe", "Tool.dll", "Renamed.dll", "a.dll"}).string()});
    EXPECT_EQ(plain.exitCode, 0) << plain.Describe();
}

TEST_F(VdsEndToEnd, SigningProgramRefusesWhatItCannotDoWell) {
    const fs::path signer = ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer";
    const std::vector<std::string> identity = {"vds",
                                               "--cert",
                                               Material("signer.pem").string(),
                                               "--key",
                                               Material("signer.key.pem").string(),
                                               "--chain",
                                               Material("signing-ca.pem").string()};
    auto arguments = identity;
    arguments.push_back((Bin() / "a.dll").string());
    auto run = RunTool(signer, arguments);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("is already signed (use --replace)"));

    arguments.insert(arguments.end() - 1, "--replace");
    run = RunTool(signer, arguments);
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    const std::string content = ict_test::ReadText(Bin() / "a.dll");
    EXPECT_EQ(content.find("content of a.dll"), 0u);
    EXPECT_EQ(content.find("VDSSIG"), content.rfind("VDSSIG"));  // one signature, not two

    // The key of another certificate, and no key at all.
    run = RunTool(signer, {"vds", "--cert", Material("signer.pem").string(), "--key",
                           Material("signer-512.key.pem").string(), (Bin() / "b.exe").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("does not belong to the certificate"));
    run = RunTool(signer, {"vds", "--cert", Material("signer.pem").string(), "x"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("--cert and --key are required"));

    const fs::path packer =
        ict_test::BinaryDir() / "tools" / "crl_container" / "integrity_crl_container";
    run = RunTool(packer, {"--file", (dir_ / "x.p7b").string(), Material("signer.pem").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("is not a CRL"));
    EXPECT_FALSE(fs::exists(dir_ / "x.p7b"));

    // The run still verifies the re-signed file.
    run = Check({"--signature-only", "--signature-type", "vds", WriteManifest(good_).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
}

}  // namespace
