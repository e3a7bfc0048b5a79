// The checker run on what an attacker or a careless editor hands it: it ends
// with FAILED and says which manifest and where, or checks exactly what the
// manifest says; it never crashes, hangs, or reads something swapped in.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/e2e_product.h"
#include "support/swap_on_open.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using e2e::Check;
using e2e::FileRecord;
using testing::HasSubstr;
using testing::Not;

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

// A FIFO with a writer that never writes: a blocking read of it never ends.
class IdleFifo {
public:
    explicit IdleFifo(const fs::path& path) {
        ict_test::MakeFifo(path);
        // Read and write: opening does not wait for a reader.
        descriptor_ = ::open(path.c_str(), O_RDWR | O_NONBLOCK);
        if (descriptor_ < 0) {
            throw std::runtime_error("Can't open FIFO " + path.string());
        }
    }
    ~IdleFifo() { ::close(descriptor_); }
    IdleFifo(const IdleFifo&) = delete;
    IdleFifo& operator=(const IdleFifo&) = delete;

private:
    int descriptor_ = -1;
};

class HostileEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        root_ = fs::canonical(dir_.Path());
        ict_test::WriteText(Product() / "a.dll", "a");
    }

    fs::path Product() const { return root_ / "product"; }
    fs::path Manifest() const { return Product() / "manifest.xml"; }
    fs::path Write(const std::string& text) {
        ict_test::WriteText(Manifest(), text);
        return Manifest();
    }

    ict_test::RunResult Run(fs::path program, std::vector<std::string> arguments,
                            std::map<std::string, std::string> environment = {}) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.environment = std::move(environment);
        options.timeout = std::chrono::seconds(60);
        return ict_test::RunProgram(program, options);
    }

    ict_test::TempDir dir_;
    fs::path root_;
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
        const auto run = Run(ict_test::CheckerPath(), {Write(manifest).string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(ict_test::SplitLines(run.err), testing::Contains(errorLine)) << run.Describe();
        EXPECT_THAT(run.out, Not(HasSubstr("SUCCEEDED")));
    }

    // With two manifests the line before the failure names the broken one only.
    const fs::path good = root_ / "good.xml";
    ict_test::WriteText(good, e2e::ManifestText(FileRecord("/")));
    Write("<Manifest>\n  <File path=\"/\">\n</Manifest>\n");
    const auto run = Run(ict_test::CheckerPath(), {good.string(), Manifest().string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const auto lines = ict_test::SplitLines(run.err);
    const auto at = std::find(lines.begin(), lines.end(), invalid + "3, column 3: mismatched tag");
    ASSERT_NE(at, lines.end()) << run.Describe();
    ASSERT_NE(at + 1, lines.end());
    EXPECT_THAT(*(at + 1), HasSubstr(" failed. Reason: mismatched tag"));
    EXPECT_THAT(run.err, Not(HasSubstr("Manifest file " + good.string())));
}

TEST_F(HostileEndToEnd, AnythingSwappedInAfterTheLookIsNeverRead) {
    if (!ict_test::CanSwapOnOpen()) {
        GTEST_SKIP() << "no way to swap a path at the moment it is opened here";
    }
    const fs::path fifo = root_ / "fifo";
    const IdleFifo writer(fifo);
    const fs::path file = Product() / "a.dll";
    const std::string notFound = "file " + file.string() +
                                 " failed. Reason: Can't read or access file " + file.string() +
                                 ". Reason: File " + file.string() + " not found\n";
    const fs::path crl = root_ / "list.crl";
    ict_test::WriteText(crl, "not read");
    struct Case {
        const char* name;
        fs::path swapped;
        fs::path target;
        std::string check;
        std::vector<std::string> options;
        std::string error;
    };
    const std::vector<Case> cases = {
        {"a FIFO under a Value check", file, fifo, e2e::ValueCheck("a"), {}, notFound},
        {"an endless device under a Sha256 check",
         file,
         "/dev/zero",
         e2e::Sha256Check("a"),
         {},
         notFound},
        {"the manifest",
         Manifest(),
         fifo,
         Check("Exists"),
         {},
         "Can't open manifest file " + Manifest().string() + ". Reason: Not a regular file"},
        {"the revocation list",
         crl,
         fifo,
         Check("Exists"),
         {"--signature-only", "--signature-type", "vds", "--crl", crl.string()},
         "Can't read file " + crl.string() + ". Reason: not a regular file"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        fs::remove(file);
        ict_test::WriteText(file, "a");
        ict_test::RunOptions options;
        options.arguments = test.options;
        options.arguments.push_back(
            Write(e2e::ManifestText(FileRecord("%ProductRoot%/a.dll", test.check))).string());
        options.timeout = std::chrono::seconds(30);
        ict_test::SwapOnOpen(options, test.swapped, test.target);
        const auto run = ict_test::RunProgram(ict_test::CheckerPath(), options);
        ASSERT_FALSE(run.timedOut) << run.Describe();
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_TRUE(fs::is_symlink(test.swapped)) << "the swap did not happen";
        EXPECT_THAT(run.err, HasSubstr(test.error));
        fs::remove(test.swapped);
    }
}

TEST_F(HostileEndToEnd, AnyOfRunsEveryMemberWhenTheGostEngineCannotLoad) {
    const std::string gost = Check("Gost2012", e2e::Sha256Base64("not a GOST digest"));
    const std::string engineFailure =
        "Can't initialize DSVM2 library: the GOST engine could not be loaded";
    fs::create_directories(root_ / "no-engines");
    for (const bool secondPasses : {true, false}) {
        SCOPED_TRACE(secondPasses);
        const fs::path log = root_ / "trace.log";
        fs::remove(log);
        const std::string sha256 = e2e::Sha256Check(secondPasses ? "a" : "b");
        // Nowhere to load the engine from, and no configuration that names one.
        const auto run = Run(
            ict_test::CheckerPath(),
            {"--trace", log.string(),
             Write(e2e::ManifestText(FileRecord("%ProductRoot%/a.dll", gost + sha256))).string()},
            {{"OPENSSL_ENGINES", (root_ / "no-engines").string()}, {"OPENSSL_CONF", "/dev/null"}});
        EXPECT_EQ(run.exitCode, secondPasses ? 0 : 1) << run.Describe();
        const std::string trace = ict_test::ReadText(log);
        EXPECT_THAT(trace, HasSubstr("Check [1] - Failed. " + engineFailure));
        if (secondPasses) {
            EXPECT_THAT(trace, HasSubstr("Check [2] - Succeeded"));
        } else {
            EXPECT_THAT(run.err, HasSubstr("All checks failed:\n\tChecker [1]: " + engineFailure));
            EXPECT_THAT(run.err, HasSubstr("\n\tChecker [2]: Verification mismatch with 'Sha256' "
                                           "checker."));
        }
    }
}

}  // namespace
