// The verify run from the command line (the shared product runs hold what it
// prints): how records for other systems stay apart, and what an attacker or
// a careless editor hands it: it ends with FAILED and says which manifest and
// where, or checks exactly what the manifest says; it never crashes, hangs,
// or reads something swapped in.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
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

class VerifyEndToEnd : public testing::Test {
protected:
    fs::path Product() const { return dir_ / "product"; }
    std::string In(const std::string& name) const { return (Product() / name).string(); }

    std::string Write(const std::string& name, const std::string& records) {
        ict_test::WriteText(Product() / name, e2e::ManifestText(records));
        return In(name);
    }

    ict_test::TempDir dir_;
};

// Records are filtered before anything merges: one meant for another system
// never lends its digest to one that applies here, even from another manifest
// (the merge rules themselves are the manifest operations' tests).
TEST_F(VerifyEndToEnd, EachSystemChecksItsOwnRecordOnly) {
    ict_test::WriteText(Product() / "app.bin", "built for Windows");
    const auto run = e2e::Checker(
        {"--verbose",
         Write("windows.xml", FileRecord("%ProductRoot%\\app.bin", Sha256Check("built for Windows"),
                                         "os=\"Windows\"")),
         Write("linux.xml", FileRecord("%ProductRoot%/app.bin", Sha256Check("built for Linux"),
                                       "os=\"Linux\""))});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("file " + In("app.bin") + " filtered\n"));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 1 / 0\n"));
    EXPECT_THAT(run.err, HasSubstr("File " + In("app.bin") + " has unexpected hash "));
}

// Each value twice the next: expanded, %K0% would be 2^30 characters long.
std::string Doubling(int levels) {
    std::string text = "<Manifest>\n";
    for (int level = 0; level < levels; ++level) {
        const std::string next = "%K" + std::to_string(level + 1) + "%";
        text +=
            "<Environment key=\"K" + std::to_string(level) + "\" value=\"" + next + next + "\"/>\n";
    }
    text += "<Environment key=\"K" + std::to_string(levels) + "\" value=\"x\"/>\n";
    return text + FileRecord("%ProductRoot%/%K0%") + "</Manifest>\n";
}

class HostileEndToEnd : public VerifyEndToEnd {
protected:
    void SetUp() override { ict_test::WriteText(Product() / "a.dll", "a"); }

    fs::path Manifest() const { return Product() / "manifest.xml"; }
    std::string Write(const std::string& text) {
        ict_test::WriteText(Manifest(), text);
        return Manifest().string();
    }
};

// The row and column of a parse error, and an expansion that would not end,
// each fail the manifest naming it. (The texts of every rejected form are the
// XML reader's tests.)
TEST_F(HostileEndToEnd, EachManifestFailsSayingWhereOrChecksWhatItSays) {
    const std::string invalid = "Manifest file " + Manifest().string() + " is invalid at row ";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"<Manifest>\n" + FileRecord("%ProductRoot%/a.dll&#0;.missing") + "</Manifest>",
         invalid + "2, column 34: reference to invalid character number"},
        {Doubling(30), "manifest " + Manifest().string() +
                           " failed. Reason: Expanded text of %ProductRoot%/%K0% is too long"},
    };
    for (const auto& [manifest, errorLine] : cases) {
        SCOPED_TRACE(errorLine);
        const auto run = e2e::Checker({Write(manifest)});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(ict_test::SplitLines(run.err), testing::Contains(errorLine)) << run.Describe();
        EXPECT_THAT(run.out, Not(HasSubstr("SUCCEEDED")));
    }
}

TEST_F(HostileEndToEnd, AnythingSwappedInAfterTheLookIsNeverRead) {
#ifndef ICT_SWAP_ON_OPEN_LIBRARY
    GTEST_SKIP() << "no library here to swap a path at the moment it is opened";
#else
    // A writer that never writes: a blocking read of the FIFO never ends.
    const fs::path fifo = dir_ / "fifo";
    ict_test::MakeFifo(fifo);
    const int writer = ::open(fifo.c_str(), O_RDWR | O_NONBLOCK);
    ASSERT_GE(writer, 0);
    const fs::path file = Product() / "a.dll";
    const std::string notFound = "file " + file.string() +
                                 " failed. Reason: Can't read or access file " + file.string() +
                                 ". Reason: File " + file.string() + " not found\n";
    const fs::path crl = dir_ / "list.crl";
    ict_test::WriteText(crl, "not read");
    const std::string exists = Check("Exists");
    struct Case {
        fs::path swapped;
        std::string check;
        std::vector<std::string> options;
        std::string error;
    };
    const std::vector<Case> cases = {
        {file, e2e::ValueCheck("a"), {}, notFound},
        {Manifest(),
         exists,
         {},
         "Can't open manifest file " + Manifest().string() + ". Reason: Not a regular file"},
        {crl,
         exists,
         {"--signature-only", "--signature-type", "vds", "--crl", crl.string()},
         "Can't read file " + crl.string() + ". Reason: not a regular file"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.swapped.string());
        fs::remove(file);
        ict_test::WriteText(file, "a");
        ict_test::RunOptions options;
        options.arguments = test.options;
        options.arguments.push_back(
            Write(e2e::ManifestText(FileRecord("%ProductRoot%/a.dll", test.check))));
        options.timeout = std::chrono::seconds(30);
        // The preloaded library swaps the path for a link to the FIFO when the
        // program first opens it; a sanitizer runtime must then not insist on
        // coming first among the preloaded libraries.
        const char* asan = std::getenv("ASAN_OPTIONS");
        options.environment = {{"LD_PRELOAD", ICT_SWAP_ON_OPEN_LIBRARY},
                               {"ICT_SWAP_PATH", test.swapped.string()},
                               {"ICT_SWAP_TARGET", fifo.string()},
                               {"ASAN_OPTIONS", std::string(asan != nullptr ? asan : "") +
                                                    ":verify_asan_link_order=0"}};
        const auto run = ict_test::RunProgram(ict_test::CheckerPath(), options);
        ASSERT_FALSE(run.timedOut) << run.Describe();
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_TRUE(fs::is_symlink(test.swapped)) << "the swap did not happen";
        EXPECT_THAT(run.err, HasSubstr(test.error));
        fs::remove(test.swapped);
    }
    ::close(writer);
#endif
}

// Both members run and both failures are listed: the GOST check fails
// at the engine, not before the Sha256 check gets its turn.
TEST_F(HostileEndToEnd, AnyOfRunsEveryMemberWhenTheGostEngineCannotLoad) {
    const std::string engineFailure =
        "Can't initialize DSVM2 library: the GOST engine could not be loaded";
    fs::create_directories(dir_ / "no-engines");
    const std::string checks = Check("Gost2012", e2e::Sha256Base64("a")) + e2e::Sha256Check("b");
    // Nowhere to load the engine from, and no configuration that names one.
    ict_test::RunOptions options;
    options.arguments = {Write(e2e::ManifestText(FileRecord("%ProductRoot%/a.dll", checks)))};
    options.environment = {{"OPENSSL_ENGINES", (dir_ / "no-engines").string()},
                           {"OPENSSL_CONF", "/dev/null"}};
    const auto run = ict_test::RunProgram(ict_test::CheckerPath(), options);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("All checks failed:\n\tChecker [1]: " + engineFailure));
    EXPECT_THAT(run.err,
                HasSubstr("\n\tChecker [2]: Verification mismatch with 'Sha256' checker."));
}

}  // namespace
