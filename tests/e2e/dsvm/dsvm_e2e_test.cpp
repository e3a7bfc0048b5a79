#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "signing.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

std::string FileRecord(const std::string& name) {
    return "  <File path=\"%ProductRoot%\\bin\\" + name + "\"><Check type=\"Exists\"/></File>\n";
}

class DsvmEndToEnd : public testing::Test {
protected:
    // A product of four files signed with the two release keys.
    void SetUp() override {
        for (const char* name : {"a.dll", "b.dll", "c.exe", "d.sys"}) {
            ict_test::WriteText(Bin() / name, std::string("content of ") + name);
            goodFiles_.push_back(name);
        }
        dsvm_e2e::SignFiles("release-1", {Bin() / "a.dll", Bin() / "b.dll"});
        dsvm_e2e::SignFiles("release-2", {Bin() / "c.exe", Bin() / "d.sys"});
    }

    fs::path Bin() const { return dir_ / "product" / "bin"; }

    fs::path WriteManifest(const std::vector<std::string>& names) {
        std::string records;
        for (const auto& name : names) {
            records += FileRecord(name);
        }
        const fs::path path = dir_ / "product" / "integrity_check.xml";
        ict_test::WriteText(path, "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n" +
                                      records + "</Manifest>\n");
        return path;
    }

    ict_test::RunResult Run(std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.timeout = std::chrono::seconds(60);
        return ict_test::RunProgram(ict_test::CheckerPath(), options);
    }

    std::string Failure(const std::string& name, const std::string& dsvmResult) {
        return "file " + (Bin() / name).string() +
               " failed. Reason: Invalid signature (DSVM result " + dsvmResult + ")";
    }

    ict_test::TempDir dir_;
    std::vector<std::string> goodFiles_;
};

TEST_F(DsvmEndToEnd, SignedProductSucceeds) {
    const fs::path trace = dir_ / "trace.log";
    const auto run = Run({"--signature-only", "--signature-type", "dsvm2", "--trace",
                          trace.string(), WriteManifest(goodFiles_).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 0 / 4\n"));
    EXPECT_THAT(run.out, HasSubstr("SUCCEEDED\n"));
    EXPECT_EQ(run.err, "");
    const std::string log = ict_test::ReadText(trace);
    EXPECT_THAT(log,
                HasSubstr("Gost2012 signature of file " + (Bin() / "d.sys").string() + " is OK"));
    // 168-byte block of a 512-bit key and 16-byte trailer.
    EXPECT_THAT(log, HasSubstr("Signature size: 184"));
}

TEST_F(DsvmEndToEnd, BadFilesFailWithTheirDsvmReasonWhileTheOthersPass) {
    std::vector<std::string> names = goodFiles_;
    const auto add = [&](const std::string& name, const std::string& content) {
        ict_test::WriteText(Bin() / name, content);
        names.push_back(name);
    };
    add("tampered.dll", "original content");
    dsvm_e2e::SignFiles("release-1", {Bin() / "tampered.dll"});
    std::string bytes = ict_test::ReadText(Bin() / "tampered.dll");
    bytes[0] = 'O';
    ict_test::WriteText(Bin() / "tampered.dll", bytes);

    add("foreign.dll", "foreign");
    dsvm_e2e::SignFiles("foreign", {Bin() / "foreign.dll"});
    add("testkey.dll", "signed for testing only");
    dsvm_e2e::SignFiles("test-1", {Bin() / "testkey.dll"});
    add("unsigned.dll", "never signed");
    add("truncated.dll", "cut short");
    dsvm_e2e::SignFiles("release-2", {Bin() / "truncated.dll"});
    bytes = ict_test::ReadText(Bin() / "truncated.dll");
    ict_test::WriteText(Bin() / "truncated.dll", bytes.substr(0, bytes.size() - 1));
    add("empty.dll", "");

    const auto run = Run({"--signature-only", WriteManifest(names).string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string invalid =
        "0x38F3542D: Object signed by \"sign-in-object\" has invalid "
        "signature";
    const std::string unknownKey = "0x408B1C02: Key for operation couldn't be found";
    const std::string notFound =
        "0x08CD9BAC: The signature of object signed by \"sign-in-object\" wasn't found";
    EXPECT_THAT(run.err, HasSubstr(Failure("tampered.dll", invalid)));
    EXPECT_THAT(run.err, HasSubstr(Failure("foreign.dll", unknownKey)));
    EXPECT_THAT(run.err, HasSubstr(Failure("testkey.dll", unknownKey)));
    EXPECT_THAT(run.err, HasSubstr(Failure("unsigned.dll", notFound)));
    EXPECT_THAT(run.err, HasSubstr(Failure("truncated.dll", notFound)));
    EXPECT_THAT(run.err,
                HasSubstr(Failure(
                    "empty.dll", "0xDEABF3F6: Given pointer to object buffer and its size are 0")));
    for (const auto& good : goodFiles_) {
        EXPECT_THAT(run.err, Not(HasSubstr((Bin() / good).string()))) << good;
    }
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 6 / 0 / 4\n"));
    EXPECT_THAT(run.err, HasSubstr("FAILED\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Throw in function")));
}

TEST_F(DsvmEndToEnd, SingleFileVerifiesOnlyThatFile) {
    ict_test::WriteText(Bin() / "unsigned.dll", "never signed");
    std::vector<std::string> names = goodFiles_;
    names.push_back("unsigned.dll");
    const fs::path manifest = WriteManifest(names);
    const fs::path trace = dir_ / "trace.log";

    auto run = Run({"--signature-only", "--trace", trace.string(), "--single_file",
                    (Bin() / "b.dll").string(), manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n"));
    const std::string log = ict_test::ReadText(trace);
    EXPECT_EQ(log.find("Verifying Gost2012"), log.rfind("Verifying Gost2012"));

    run = Run({"--signature-only", "--single_file", (Bin() / "unsigned.dll").string(),
               manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 0 / 0\n"));
    EXPECT_THAT(run.err, HasSubstr("Invalid signature (DSVM result 0x08CD9BAC"));
}

}  // namespace
