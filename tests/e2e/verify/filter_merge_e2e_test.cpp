// Records are expanded and filtered before anything merges: a record meant
// for another system never lends its checks or its conditions to one that
// applies here.

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manifest_text.h"
#include "support/e2e.h"

namespace {

namespace fs = boost::filesystem;
using ict_test::Check;
using ict_test::FileRecord;
using ict_test::Sha256Check;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kWindowsContent = "built for Windows";
constexpr const char* kLinuxContent = "built for Linux";

class FilterMergeEndToEnd : public testing::Test {
protected:
    void SetUp() override { root_ = fs::canonical(dir_.Path()); }

    fs::path Product() const { return root_ / "product"; }

    fs::path Write(const std::string& name, const std::string& records) {
        const fs::path path = Product() / name;
        ict_test::WriteText(path, ict_test::ManifestText(records));
        return path;
    }

    static ict_test::RunResult Run(const fs::path& program, std::vector<std::string> arguments,
                                   const fs::path& workingDirectory = {}) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.workingDirectory = workingDirectory;
        options.timeout = std::chrono::seconds(60);
        return ict_test::RunProgram(program, options);
    }

    static ict_test::RunResult RunChecker(std::vector<std::string> arguments,
                                          const fs::path& workingDirectory = {}) {
        return Run(ict_test::CheckerPath(), std::move(arguments), workingDirectory);
    }

    // One path, listed once per system with that system's digest.
    static std::string PerSystemRecords() {
        return FileRecord("%ProductRoot%\\app.bin", Sha256Check(kWindowsContent),
                          "os=\"Windows\"") +
               FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent), "os=\"Linux\"");
    }

    ict_test::TempDir dir_;
    fs::path root_;
};

TEST_F(FilterMergeEndToEnd, EachSystemChecksItsOwnRecordOnly) {
    struct Case {
        const char* name;
        std::string content;
        std::vector<std::string> records;  // one manifest each
        int exitCode;
        std::string files;  // the summary line
    };
    const std::string app = (Product() / "app.bin").string();
    const std::vector<Case> cases = {
        {"the right digest passes", kLinuxContent, {PerSystemRecords()}, 0, "\tFiles: 0 / 1 / 1\n"},
        {"the other system's digest fails",
         kWindowsContent,
         {PerSystemRecords()},
         1,
         "\tFiles: 1 / 1 / 0\n"},
        {"across manifests the other system's digest fails",
         kWindowsContent,
         {FileRecord("%ProductRoot%\\app.bin", Sha256Check(kWindowsContent), "os=\"Windows\""),
          FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent), "os=\"Linux\"")},
         1,
         "\tFiles: 1 / 1 / 0\n"},
        {"mutually exclusive checks never meet",
         kLinuxContent,
         {FileRecord("%ProductRoot%/app.bin", Check("NotExists"), "os=\"Windows\"") +
          FileRecord("%ProductRoot%/app.bin", Check("Exists"), "os=\"Linux\"")},
         0,
         "\tFiles: 0 / 1 / 1\n"},
        {"a filtered folder group keeps its members apart",
         kLinuxContent,
         {"  <Files path=\"%ProductRoot%\" os=\"Windows\">" +
              FileRecord("app.bin", Check("NotExists")) + "</Files>\n" +
              FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent)),
          FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent), "defined=\"Other\"")},
         0,
         "\tFiles: 0 / 2 / 1\n"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ict_test::WriteText(Product() / "app.bin", test.content);
        std::vector<std::string> arguments = {"--verbose"};
        for (std::size_t index = 0; index < test.records.size(); ++index) {
            arguments.push_back(
                Write("m" + std::to_string(index) + ".xml", test.records[index]).string());
        }
        const auto run = RunChecker(arguments);
        EXPECT_EQ(run.exitCode, test.exitCode) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr(test.files)) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("file " + app + " filtered\n"));
        EXPECT_THAT(run.err, Not(HasSubstr("Mismatch check types")));
        if (test.exitCode == 1) {
            EXPECT_THAT(run.err, HasSubstr("File " + app + " has unexpected hash "));
        }
    }
}

TEST_F(FilterMergeEndToEnd, SingleFileWhoseRecordsAllDoNotApplyIsSkipped) {
    ict_test::WriteText(Product() / "app.bin", kWindowsContent);
    const auto manifest =
        Write("m.xml",
              FileRecord("%ProductRoot%/app.bin", Sha256Check(kWindowsContent), "os=\"Windows\"") +
                  FileRecord("%ProductRoot%/other.bin", Check("Exists")));
    const auto run = RunChecker(
        {"--verbose", "--single_file", (Product() / "app.bin").string(), manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("file " + (Product() / "app.bin").string() + " filtered\n"));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 1 / 0\n"));
}

TEST_F(FilterMergeEndToEnd, NormalizeKeepsEveryRecordWithItsConditions) {
    // Written alike, so that nothing but the merge could join them.
    const auto manifest =
        Write("m.xml",
              FileRecord("%ProductRoot%/app.bin", Sha256Check(kWindowsContent), "os=\"Windows\"") +
                  FileRecord("%ProductRoot%/app.bin", Sha256Check(kLinuxContent), "os=\"Linux\""));
    const auto run = Run(ict_test::BinaryDir() / "tools" / "manifest" / "integrity_manifest",
                         {"normalize", manifest.string()});
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
    const std::string text = ict_test::ReadText(manifest);
    const auto windows = text.find("os=\"Windows\"");
    const auto linux = text.find("os=\"Linux\"");
    ASSERT_NE(windows, std::string::npos) << text;
    ASSERT_NE(linux, std::string::npos) << text;
    // Each condition stays on its own record, with that record's digest only.
    const auto between = text.substr(windows, linux - windows);
    EXPECT_THAT(between, HasSubstr(ict_test::Sha256Base64(kWindowsContent))) << text;
    EXPECT_THAT(between, Not(HasSubstr(ict_test::Sha256Base64(kLinuxContent)))) << text;
    EXPECT_THAT(text.substr(linux), HasSubstr(ict_test::Sha256Base64(kLinuxContent))) << text;
}

TEST_F(FilterMergeEndToEnd, MismatchNamesTheExpandedPathAndRegistryValuesMergeLikeFiles) {
    const std::string h = (Product() / "h.txt").string();
    struct Case {
        const char* name;
        std::string records;
        std::string expected;  // in standard error, or the summary on standard output
    };
    const std::string key = "  <Registry path=\"HKLM\\SOFTWARE\\Demo\">\n";
    const std::vector<Case> cases = {
        {"same text twice",
         FileRecord("%ProductRoot%/h.txt", Sha256Check("h")) +
             FileRecord("%ProductRoot%/h.txt", Check("Exists")),
         "Mismatch check types found for " + h + "\n"},
        {"two spellings of one path",
         FileRecord("%ProductRoot%/h.txt", Sha256Check("h")) +
             FileRecord("%ProductRoot%\\h.txt", Check("Exists")),
         "Mismatch check types found for " + h + "\n"},
        {"a registry value twice with other checks",
         key + "    <Value name=\"V\" type=\"REG_SZ\">" + Check("Exists") + "</Value>\n" +
             "    <Value name=\"V\" type=\"REG_SZ\">" + Check("NotExists") +
             "</Value>\n  </Registry>\n",
         "Mismatch check types found for 'V' in 'HKLM\\SOFTWARE\\Demo'\n"},
        {"a registry value twice in a key listed twice is one value",
         key + "    <Value name=\"V\" type=\"REG_SZ\">" + Check("Exists") +
             "</Value>\n  </Registry>\n" + key + "    <Value name=\"V\" type=\"REG_SZ\">" +
             Check("Exists") + "</Value>\n    <Value name=\"V\" type=\"REG_SZ\">" +
             Check("Exists") + "</Value>\n  </Registry>\n",
         "\tRegistries: 1 / 0 / 0\n\tRegistry values: 1 / 0 / 0\n"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ict_test::WriteText(Product() / "h.txt", "h");
        const auto run = RunChecker({Write("m.xml", test.records).string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.out + run.err, HasSubstr(test.expected)) << run.Describe();
        EXPECT_THAT(run.err, Not(HasSubstr("%ProductRoot%")));
    }
}

TEST_F(FilterMergeEndToEnd, FolderGroupSeparatorsNeverDouble) {
    ict_test::WriteText(Product() / "bin" / "a.dll", "a");
    ict_test::WriteText(Product() / "bin" / "b.dll", "b");
    const auto manifest = Write(
        "m.xml", "  <Files path=\"%ProductRoot%\\bin\\\">" + FileRecord("a.dll", Sha256Check("a")) +
                     "</Files>\n" + "  <Files path=\"%ProductRoot%\\bin\">" +
                     FileRecord("\\b.dll", Sha256Check("b")) + "</Files>\n" +
                     FileRecord("%ProductRoot%\\bin\\a.dll", Sha256Check("a")) +
                     FileRecord("%ProductRoot%/bin/b.dll", Sha256Check("b")));
    const auto run = RunChecker({"--verbose", manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    // Each file is one object, listed in and out of a group.
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 2\n")) << run.Describe();
    for (const char* name : {"a.dll", "b.dll"}) {
        EXPECT_THAT(run.out,
                    HasSubstr("file " + (Product() / "bin" / name).string() + " succeeded\n"));
    }
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("//")));
}

TEST_F(FilterMergeEndToEnd, SingleFileThroughALinkAndParentIsResolvedByTheFileSystem) {
    // lnk points into real/sub, so lnk/../a.txt is real/a.txt, while the same
    // text read as text alone would be the product's own a.txt.
    ict_test::WriteText(Product() / "real" / "a.txt", "real a");
    fs::create_directories(Product() / "real" / "sub");
    fs::create_directory_symlink(Product() / "real" / "sub", Product() / "lnk");
    const auto manifest =
        Write("m.xml", FileRecord("%ProductRoot%/real/a.txt", Sha256Check("real a")) +
                           FileRecord("%ProductRoot%/a.txt", Sha256Check("top a")));
    const std::string real = (Product() / "real" / "a.txt").string();

    // Without a top-level a.txt the path still names an existing file.
    auto run =
        RunChecker({"--verbose", "--single_file", "lnk/../a.txt", manifest.string()}, Product());
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("file " + real + " succeeded\n")) << run.Describe();

    // With one, the file the system opens is still the one verified.
    ict_test::WriteText(Product() / "a.txt", "top a");
    run = RunChecker({"--verbose", "--single_file", "lnk/../a.txt", manifest.string()}, Product());
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("file " + real + " succeeded\n")) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n"));
}

}  // namespace
