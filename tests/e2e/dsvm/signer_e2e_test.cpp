#include <iterator>
#include <string>

#include <boost/filesystem/directory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "signing.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

std::size_t FileCount(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST(SignerEndToEnd, SignsOnceAndReplacesOnlyWhenAsked) {
    ict_test::TempDir dir;
    const fs::path file = dir / "a.dll";
    ict_test::WriteText(file, "payload");
    const std::string key1 = dsvm_e2e::PrivateKey("release-1").string();
    const std::string key2 = dsvm_e2e::PrivateKey("release-2").string();

    auto run = dsvm_e2e::RunSigner({"dsvm", "--key", key1, file.string()});
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, "Signed " + file.string() + "\n");
    const std::string once = ict_test::ReadText(file);
    EXPECT_EQ(once.substr(0, 7), "payload");
    EXPECT_EQ(once.size(), 7u + 40 + 64 + 16);

    run = dsvm_e2e::RunSigner({"dsvm", "--key", key2, file.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("File " + file.string() +
                                   " is already signed; use --replace to sign it again"));
    EXPECT_EQ(ict_test::ReadText(file), once);

    // The old block goes; the new one is the 512-bit key's.
    run = dsvm_e2e::RunSigner({"dsvm", "--replace", "-k", key2, file.string()});
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    const std::string replaced = ict_test::ReadText(file);
    EXPECT_EQ(replaced.substr(0, 7), "payload");
    EXPECT_EQ(replaced.size(), 7u + 40 + 128 + 16);
    EXPECT_EQ(FileCount(dir.Path()), 1u) << "temporary files left behind";
}

TEST(SignerEndToEnd, ErrorsNameTheFileAndTheOthersAreStillSigned) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "good.dll", "good");
    ict_test::WriteText(dir / "empty.dll", "");
    const std::string key = dsvm_e2e::PrivateKey("test-2").string();

    auto run = dsvm_e2e::RunSigner({"dsvm", "--key", key, (dir / "missing.dll").string(),
                                    (dir / "empty.dll").string(), (dir / "good.dll").string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Can't open file " + (dir / "missing.dll").string()));
    EXPECT_THAT(run.err, HasSubstr("Can't sign file " + (dir / "empty.dll").string() +
                                   ": Given pointer to object buffer and its size are 0"));
    EXPECT_THAT(run.out, HasSubstr("Signed " + (dir / "good.dll").string()));
    EXPECT_EQ(ict_test::ReadText(dir / "empty.dll"), "");
    EXPECT_EQ(FileCount(dir.Path()), 2u);

    // A key file that is not a key.
    run = dsvm_e2e::RunSigner(
        {"dsvm", "--key", (dir / "good.dll").string(), (dir / "empty.dll").string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Can't load private key " + (dir / "good.dll").string()));
    run = dsvm_e2e::RunSigner({"dsvm", "--key", (dir / "none.pem").string(), "x"});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr((dir / "none.pem").string()));
}

TEST(SignerEndToEnd, UsageAndHelp) {
    auto run = dsvm_e2e::RunSigner({"--help"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("dsvm"));
    run = dsvm_e2e::RunSigner({"dsvm", "--help"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("--replace"));
    EXPECT_EQ(dsvm_e2e::RunSigner({}).exitCode, 1);
    run = dsvm_e2e::RunSigner({"sign-everything"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("unknown command 'sign-everything'"));
    run = dsvm_e2e::RunSigner({"dsvm", "file.dll"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("--key is required"));
    run = dsvm_e2e::RunSigner({"dsvm", "--key", "k.pem"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("no files to sign"));
}

}  // namespace
