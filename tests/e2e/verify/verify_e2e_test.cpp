// The verify run from the command line: what it checks, how records for
// other systems stay apart, which file a single-file run means.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/e2e_product.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using e2e::Check;
using e2e::FileRecord;
using e2e::Sha256Check;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kWindowsContent = "built for Windows";
constexpr const char* kLinuxContent = "built for Linux";

class VerifyEndToEnd : public testing::Test {
protected:
    void SetUp() override { root_ = fs::canonical(dir_.Path()); }

    fs::path Product() const { return root_ / "product"; }
    std::string In(const std::string& name) const { return (Product() / name).string(); }

    fs::path Write(const std::string& name, const std::string& records) {
        ict_test::WriteText(Product() / name, e2e::ManifestText(records));
        return Product() / name;
    }

    ict_test::TempDir dir_;
    fs::path root_;
};

TEST_F(VerifyEndToEnd, IntactProductSucceedsAndOneChangedFileFails) {
    ict_test::WriteText(Product() / "bin" / "a.dll", "content of a");
    ict_test::WriteText(Product() / "bin" / "b.dll", "content of b");
    const auto manifest =
        Write("integrity_check.xml", "  <Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n" +
                                         FileRecord("%Bin%\\a.dll", Sha256Check("content of a")) +
                                         FileRecord("%Bin%\\b.dll", Sha256Check("content of b")));
    auto run = e2e::Checker({manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("Summary( failed / skipped / succeeded ):\n"
                                   "\tManifests: 0 / 0 / 1\n"
                                   "\tFiles: 0 / 0 / 2\n"
                                   "\tDirectories: 0 / 0 / 0\n"
                                   "\tRegistries: 0 / 0 / 0\n"
                                   "\tRegistry values: 0 / 0 / 0\n"));
    EXPECT_THAT(run.out, testing::EndsWith("SUCCEEDED\n"));
    EXPECT_EQ(run.err, "");

    ict_test::WriteText(Product() / "bin" / "b.dll", "tampered");
    run = e2e::Checker({manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string b = In("bin/b.dll");
    EXPECT_THAT(run.err, HasSubstr("file " + b +
                                   " failed. Reason: Verification mismatch with 'Sha256' checker. "
                                   "Reason: File " +
                                   b + " has unexpected hash "));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 1 / 0 / 1\n"));
    EXPECT_THAT(run.err, testing::EndsWith("FAILED\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("SUCCEEDED")));
}

// Records are expanded and filtered before anything merges: a record meant
// for another system never lends its checks or its conditions to one that
// applies here.
TEST_F(VerifyEndToEnd, EachSystemChecksItsOwnRecordOnly) {
    const auto windows = [](const std::string& path, const std::string& checks) {
        return FileRecord(path, checks, "os=\"Windows\"");
    };
    const std::string linux =
        FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent), "os=\"Linux\"");
    const std::string perSystem =
        windows("%ProductRoot%\\app.bin", Sha256Check(kWindowsContent)) + linux;
    struct Case {
        const char* name;
        std::string content;
        std::vector<std::string> records;  // one manifest each
        int exitCode;
        std::string files;  // the summary line
    };
    const std::vector<Case> cases = {
        {"the right digest passes", kLinuxContent, {perSystem}, 0, "\tFiles: 0 / 1 / 1\n"},
        {"the other system's digest fails",
         kWindowsContent,
         {perSystem},
         1,
         "\tFiles: 1 / 1 / 0\n"},
        {"across manifests the other system's digest fails",
         kWindowsContent,
         {windows("%ProductRoot%\\app.bin", Sha256Check(kWindowsContent)), linux},
         1,
         "\tFiles: 1 / 1 / 0\n"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ict_test::WriteText(Product() / "app.bin", test.content);
        std::vector<std::string> arguments = {"--verbose"};
        for (std::size_t index = 0; index < test.records.size(); ++index) {
            arguments.push_back(
                Write("m" + std::to_string(index) + ".xml", test.records[index]).string());
        }
        const auto run = e2e::Checker(arguments);
        EXPECT_EQ(run.exitCode, test.exitCode) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr(test.files)) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("file " + In("app.bin") + " filtered\n"));
        EXPECT_THAT(run.err, Not(HasSubstr("Mismatch check types")));
        if (test.exitCode == 1) {
            EXPECT_THAT(run.err, HasSubstr("File " + In("app.bin") + " has unexpected hash "));
        }
    }

    // Records that both apply must agree; the message names the expanded path.
    const auto run = e2e::Checker(
        {Write("m.xml", FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent)) +
                            FileRecord("%ProductRoot%\\app.bin", Check("Exists")))
             .string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Mismatch check types found for " + In("app.bin") + "\n"));

    // normalize keeps every record as written, with its own condition and digest.
    // Written alike, so that nothing but a merge could join them.
    const fs::path normalized =
        Write("n.xml", windows("%ProductRoot%/app.bin", Sha256Check(kWindowsContent)) + linux);
    ASSERT_EQ(e2e::Run(e2e::ManifestToolPath(), {"normalize", normalized.string()}).exitCode, 0);
    const std::string text = ict_test::ReadText(normalized);
    const auto onWindows = text.find("os=\"Windows\"");
    const auto onLinux = text.find("os=\"Linux\"");
    ASSERT_LT(onWindows, onLinux) << text;
    const auto between = text.substr(onWindows, onLinux - onWindows);
    EXPECT_THAT(between, HasSubstr(e2e::Sha256Base64(kWindowsContent))) << text;
    EXPECT_THAT(between, Not(HasSubstr(e2e::Sha256Base64(kLinuxContent)))) << text;
    EXPECT_THAT(text.substr(onLinux), HasSubstr(e2e::Sha256Base64(kLinuxContent))) << text;
}

TEST_F(VerifyEndToEnd, SingleFileIsTheFileTheSystemOpens) {
    // lnk points into real/sub, so lnk/../a.txt is real/a.txt, while the same
    // text read as text alone would be the product's own a.txt.
    ict_test::WriteText(Product() / "real" / "a.txt", "real a");
    ict_test::WriteText(Product() / "a.txt", "top a");
    ict_test::WriteText(Product() / "app.bin", kWindowsContent);
    fs::create_directories(Product() / "real" / "sub");
    fs::create_directory_symlink(Product() / "real" / "sub", Product() / "lnk");
    const auto manifest =
        Write("m.xml", FileRecord("%ProductRoot%/real/a.txt", Sha256Check("real a")) +
                           FileRecord("%ProductRoot%/a.txt", Sha256Check("top a")) +
                           FileRecord("%ProductRoot%/app.bin", Check("Exists"), "os=\"Windows\""));
    auto run =
        e2e::Checker({"--verbose", "--single_file", "lnk/../a.txt", manifest.string()}, Product());
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("file " + In("real/a.txt") + " succeeded\n"));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n"));

    // A file whose records all do not apply here is skipped, not missing.
    run = e2e::Checker({"--verbose", "--single_file", In("app.bin"), manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("file " + In("app.bin") + " filtered\n"));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 1 / 0\n"));

    ict_test::WriteText(root_ / "stranger.dll", "x");
    run = e2e::Checker({"--single_file", (root_ / "stranger.dll").string(), manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("stranger.dll not found in manifest " + manifest.string()));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 0 / 0 / 0\n"));
}

}  // namespace
