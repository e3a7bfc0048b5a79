#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/directory.hpp>

#include "support/e2e_product.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::HasSubstr;
using testing::Not;

ict_test::RunResult Signer(const std::vector<std::string>& arguments) {
    return ict_test::RunTool(e2e::SignerPath(), arguments);
}

std::string Key(const std::string& name) {
    return (e2e::PrivateDir() / "dsvm" / (name + ".pem")).string();
}

std::size_t FileCount(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST(DsvmEndToEnd, BadFilesFailWithTheirDsvmReasonWhileTheOthersPass) {
    ict_test::TempDir dir;
    const fs::path bin = dir / "product" / "bin";
    std::vector<std::string> paths;
    const auto add = [&](const std::string& name, const std::string& key) {
        ict_test::WriteText(bin / name, "content of " + name);
        if (!key.empty()) {
            e2e::SignDsvm(key, {bin / name});
        }
        paths.push_back("%ProductRoot%\\bin\\" + name);
    };
    // Either key of the release pair, a 256- and a 512-bit one.
    add("a.dll", "release-1");
    add("c.exe", "release-2");
    add("tampered.dll", "release-1");
    std::string bytes = ict_test::ReadText(bin / "tampered.dll");
    bytes[0] = 'O';
    ict_test::WriteText(bin / "tampered.dll", bytes);
    add("foreign.dll", "foreign");
    add("testkey.dll", "test-1");
    add("unsigned.dll", "");
    add("truncated.dll", "release-2");
    bytes = ict_test::ReadText(bin / "truncated.dll");
    ict_test::WriteText(bin / "truncated.dll", bytes.substr(0, bytes.size() - 1));
    ict_test::WriteText(bin / "empty.dll", "");
    paths.push_back("%ProductRoot%\\bin\\empty.dll");
    const fs::path manifest = e2e::WriteManifest(dir / "product" / "integrity_check.xml", paths);

    const auto run = e2e::Checker({"--signature-only", manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const auto failure = [&](const std::string& name, const std::string& result) {
        return "file " + (bin / name).string() +
               " failed. Reason: Invalid signature (DSVM result " + result + ")";
    };
    const std::string notFound =
        "0x08CD9BAC: The signature of object signed by \"sign-in-object\" wasn't found";
    const std::string unknownKey = "0x408B1C02: Key for operation couldn't be found";
    EXPECT_THAT(run.err, HasSubstr(failure("tampered.dll",
                                           "0x38F3542D: Object signed by "
                                           "\"sign-in-object\" has invalid signature")));
    EXPECT_THAT(run.err, HasSubstr(failure("foreign.dll", unknownKey)));
    EXPECT_THAT(run.err, HasSubstr(failure("testkey.dll", unknownKey)));
    EXPECT_THAT(run.err, HasSubstr(failure("unsigned.dll", notFound)));
    EXPECT_THAT(run.err, HasSubstr(failure("truncated.dll", notFound)));
    EXPECT_THAT(run.err,
                HasSubstr(failure(
                    "empty.dll", "0xDEABF3F6: Given pointer to object buffer and its size are 0")));
    for (const char* good : {"a.dll", "c.exe"}) {
        EXPECT_THAT(run.err, Not(HasSubstr((bin / good).string()))) << good;
    }
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 6 / 0 / 2\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Throw in function")));

    // One file alone is the only one verified.
    const auto single = e2e::Checker(
        {"--signature-only", "--single_file", (bin / "c.exe").string(), manifest.string()});
    EXPECT_EQ(single.exitCode, 0) << single.Describe();
    EXPECT_THAT(single.out, HasSubstr("\tFiles: 0 / 0 / 1\n"));
}

TEST(DsvmSignerEndToEnd, SignsOnceAndReplacesOnlyWhenAsked) {
    ict_test::TempDir dir;
    const fs::path file = dir / "a.dll";
    ict_test::WriteText(file, "payload");
    auto run = Signer({"dsvm", "--key", Key("release-1"), file.string()});
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, "Signed " + file.string() + "\n");
    const std::string once = ict_test::ReadText(file);
    EXPECT_EQ(once.substr(0, 7), "payload");
    EXPECT_EQ(once.size(), 7u + 40 + 64 + 16);

    run = Signer({"dsvm", "--key", Key("release-2"), file.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("File " + file.string() +
                                   " is already signed; use --replace to sign it again"));
    EXPECT_EQ(ict_test::ReadText(file), once);

    // The old block goes; the new one is the 512-bit key's.
    run = Signer({"dsvm", "--replace", "-k", Key("release-2"), file.string()});
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    const std::string replaced = ict_test::ReadText(file);
    EXPECT_EQ(replaced.substr(0, 7), "payload");
    EXPECT_EQ(replaced.size(), 7u + 40 + 128 + 16);
    EXPECT_EQ(FileCount(dir.Path()), 1u) << "temporary files left behind";
}

TEST(DsvmSignerEndToEnd, ErrorsNameTheFileAndTheOthersAreStillSigned) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "good.dll", "good");
    ict_test::WriteText(dir / "empty.dll", "");
    auto run = Signer({"dsvm", "--key", Key("test-2"), (dir / "missing.dll").string(),
                       (dir / "empty.dll").string(), (dir / "good.dll").string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Can't open file " + (dir / "missing.dll").string()));
    EXPECT_THAT(run.err, HasSubstr("Can't sign file " + (dir / "empty.dll").string() +
                                   ": Given pointer to object buffer and its size are 0"));
    EXPECT_THAT(run.out, HasSubstr("Signed " + (dir / "good.dll").string()));
    EXPECT_EQ(ict_test::ReadText(dir / "empty.dll"), "");
    EXPECT_EQ(FileCount(dir.Path()), 2u);

    // A key file that is not a key, one that is not there, and misuse.
    const std::vector<std::pair<std::vector<std::string>, std::string>> refused = {
        {{"dsvm", "--key", (dir / "good.dll").string(), (dir / "empty.dll").string()},
         "Can't load private key " + (dir / "good.dll").string()},
        {{"dsvm", "--key", (dir / "none.pem").string(), "x"}, (dir / "none.pem").string()},
        {{"sign-everything"}, "unknown command 'sign-everything'"},
        {{"dsvm", "file.dll"}, "--key is required"},
        {{"dsvm", "--key", "k.pem"}, "no files to sign"},
        {{}, ""},
    };
    for (const auto& [arguments, error] : refused) {
        run = Signer(arguments);
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr(error));
    }
    run = Signer({"dsvm", "--help"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("--replace"));
    run = Signer({"--help"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("dsvm"));
}

}  // namespace
