// The trace file is the user's: appended to, never emptied, and a failure to
// open or write it is told in the system's own words.

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
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class TraceFileEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        root_ = fs::canonical(dir_.Path());
        ict_test::WriteText(root_ / "a.dll", "a");
        manifest_ = root_ / "m.xml";
        manifestText_ = ict_test::ManifestText(FileRecord("%ProductRoot%/a.dll", Check("Exists")));
        ict_test::WriteText(manifest_, manifestText_);
    }

    static ict_test::RunResult Run(const fs::path& program, std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.timeout = std::chrono::seconds(60);
        return ict_test::RunProgram(program, options);
    }

    ict_test::TempDir dir_;
    fs::path root_;
    fs::path manifest_;
    std::string manifestText_;
};

TEST_F(TraceFileEndToEnd, AnExistingFileIsAppendedToAndEachRunStartsItsOwnPart) {
    const fs::path log = root_ / "run.log";
    ict_test::WriteText(log, "an earlier run\n");
    for (int run = 0; run < 2; ++run) {
        const auto result =
            Run(ict_test::CheckerPath(), {"--trace", log.string(), manifest_.string()});
        EXPECT_EQ(result.exitCode, 0) << result.Describe();
    }
    const std::string text = ict_test::ReadText(log);
    EXPECT_THAT(text, StartsWith("an earlier run\n"));
    // Both runs are there, each opened by the start-up lines.
    const auto first = text.find(" Version ");
    ASSERT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find(" Version ", first + 1), std::string::npos) << text;

    // The manifest named as the trace file by mistake keeps what it held.
    const auto result =
        Run(ict_test::CheckerPath(), {"--trace", manifest_.string(), manifest_.string()});
    EXPECT_THAT(ict_test::ReadText(manifest_), StartsWith(manifestText_));
    EXPECT_THAT(result.err, Not(HasSubstr("document empty")));
}

TEST_F(TraceFileEndToEnd, AFileThatCannotBeOpenedIsNamedWithTheSystemsReason) {
    struct Case {
        fs::path path;
        std::string reason;
    };
    const std::vector<Case> cases = {
        {root_ / "missing" / "run.log", "No such file or directory"},
        {root_ / "a.dll" / "run.log", "Not a directory"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.path.string());
        const auto run =
            Run(ict_test::CheckerPath(), {"--trace", test.path.string(), manifest_.string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr("Can't create tracer. Reason: "));
        EXPECT_THAT(run.err, HasSubstr("Can't open trace file " + test.path.string() +
                                       ". Reason: " + test.reason));
        EXPECT_THAT(run.err, Not(HasSubstr("Expression failed")));
        EXPECT_THAT(run.err, Not(HasSubstr("Access denied")));
    }
}

TEST_F(TraceFileEndToEnd, AFailingTraceWriteIsReportedOnceOnTheConsole) {
    // A file size limit stands in for a full disk: the log already exceeds it,
    // so every line appended fails, while the console files stay below it.
    const fs::path log = root_ / "full.log";
    ict_test::WriteText(log, std::string(8192, 'x') + "\n");
    const auto run = Run(
        "/bin/sh", {"-c", "ulimit -f 8 && trap '' XFSZ && exec \"$0\" \"$@\"",
                    ict_test::CheckerPath().string(), "--trace", log.string(), manifest_.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    const std::string line =
        "Can't write trace file " + log.string() + ". Reason: File too large\n";
    const auto first = run.err.find(line);
    ASSERT_NE(first, std::string::npos) << run.Describe();
    EXPECT_EQ(run.err.find(line, first + 1), std::string::npos) << "reported more than once";
    EXPECT_THAT(run.out, HasSubstr("SUCCEEDED\n"));
}

}  // namespace
