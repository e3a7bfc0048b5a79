// Files are judged by what the checker has open, never by an earlier look at
// the path; values are compared, not collected; a GOST engine that can't load
// fails only the checks that need it.

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manifest_text.h"
#include "support/e2e.h"
#include "support/swap_on_open.h"

namespace {

namespace fs = boost::filesystem;
using ict_test::Check;
using ict_test::FileRecord;
using ict_test::Sha256Check;
using ict_test::ValueCheck;
using testing::HasSubstr;
using testing::Not;

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

class FileReadingEndToEnd : public testing::Test {
protected:
    void SetUp() override { root_ = fs::canonical(dir_.Path()); }

    fs::path Product() const { return root_ / "product"; }

    fs::path Write(const std::string& records) {
        const fs::path path = Product() / "m.xml";
        ict_test::WriteText(path, ict_test::ManifestText(records));
        return path;
    }

    static ict_test::RunResult Run(const fs::path& program, ict_test::RunOptions options) {
        options.timeout = std::chrono::seconds(30);
        return ict_test::RunProgram(program, options);
    }

    static ict_test::RunOptions With(std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        return options;
    }

    ict_test::TempDir dir_;
    fs::path root_;
};

TEST_F(FileReadingEndToEnd, AnythingSwappedInAfterTheLookIsNeverRead) {
    if (!ict_test::CanSwapOnOpen()) {
        GTEST_SKIP() << "no way to swap a path at the moment it is opened here";
    }
    const fs::path fifo = root_ / "fifo";
    const IdleFifo writer(fifo);
    const fs::path file = Product() / "bin" / "a.dll";
    struct Case {
        const char* name;
        fs::path target;
        std::string check;
    };
    const std::vector<Case> cases = {
        {"a FIFO under a Value check", fifo, ValueCheck("a")},
        {"an endless device under a Sha256 check", "/dev/zero", Sha256Check("a")},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        fs::remove(file);
        ict_test::WriteText(file, "a");
        auto options = With({Write(FileRecord("%ProductRoot%/bin/a.dll", test.check)).string()});
        ict_test::SwapOnOpen(options, file, test.target);
        const auto run = Run(ict_test::CheckerPath(), options);
        ASSERT_FALSE(run.timedOut) << run.Describe();
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_TRUE(fs::is_symlink(file)) << "the swap did not happen";
        EXPECT_THAT(
            run.err,
            HasSubstr("file " + file.string() + " failed. Reason: Can't read or access file " +
                      file.string() + ". Reason: File " + file.string() + " not found\n"));
    }
}

TEST_F(FileReadingEndToEnd, ManifestAndRevocationListSwappedForAFifoAreNotRead) {
    if (!ict_test::CanSwapOnOpen()) {
        GTEST_SKIP() << "no way to swap a path at the moment it is opened here";
    }
    const fs::path fifo = root_ / "fifo";
    const IdleFifo writer(fifo);
    ict_test::WriteText(Product() / "a.dll", "a");

    const fs::path manifest = Write(FileRecord("%ProductRoot%/a.dll", Check("Exists")));
    auto options = With({manifest.string()});
    ict_test::SwapOnOpen(options, manifest, fifo);
    auto run = Run(ict_test::CheckerPath(), options);
    ASSERT_FALSE(run.timedOut) << run.Describe();
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Can't open manifest file " + manifest.string() +
                                   ". Reason: Not a regular file"));

    // The manifest is a link to the FIFO now; this run needs a real one.
    fs::remove(manifest);
    const fs::path crl = root_ / "list.crl";
    ict_test::WriteText(crl, "not read");
    options = With({"--signature-only", "--signature-type", "vds", "--crl", crl.string(),
                    Write(FileRecord("%ProductRoot%/a.dll", Check("Exists"))).string()});
    ict_test::SwapOnOpen(options, crl, fifo);
    run = Run(ict_test::CheckerPath(), options);
    ASSERT_FALSE(run.timedOut) << run.Describe();
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err,
                HasSubstr("Can't read file " + crl.string() + ". Reason: not a regular file"));
}

TEST_F(FileReadingEndToEnd, ValueOfAFileTooLargeToHoldIsRefusedNamingFileAndSize) {
    const fs::path big = root_ / "big.bin";
    const std::uint64_t size = 64ull * 1024 * 1024 + 1;
    ict_test::WriteText(big, "");
    fs::resize_file(big, size);  // sparse: nothing is written
    const auto run = Run(ict_test::BinaryDir() / "tools" / "manifest" / "integrity_manifest",
                         With({"hash", "--type", "Value", big.string()}));
    EXPECT_EQ(run.exitCode, 1) << run.Describe().substr(0, 2000);
    EXPECT_THAT(run.err, HasSubstr(big.string()));
    EXPECT_THAT(run.err, HasSubstr("The value is " + std::to_string(size) +
                                   " bytes long; a Value holds at most 67108864 bytes"));
    EXPECT_LT(run.out.size(), 1024u) << "the value was printed";

    // A Value check compares without holding the file: the sizes differ.
    const auto check = Run(ict_test::CheckerPath(),
                           With({Write(FileRecord(big.string(), ValueCheck("small"))).string()}));
    EXPECT_EQ(check.exitCode, 1) << check.Describe();
    EXPECT_THAT(check.err, HasSubstr("Verification mismatch with 'Value' checker. Reason: File " +
                                     big.string() + " has unexpected value\n"));
}

TEST_F(FileReadingEndToEnd, AnyOfRunsEveryMemberWhenTheGostEngineCannotLoad) {
    ict_test::WriteText(Product() / "a.dll", "a");
    const std::string gost = Check("Gost2012", ict_test::Sha256Base64("not a GOST digest"));
    const std::string engineFailure =
        "Can't initialize DSVM2 library: the GOST engine could not be loaded";
    struct Case {
        const char* name;
        std::string sha256;
        int exitCode;
    };
    const std::vector<Case> cases = {{"the second member passes", Sha256Check("a"), 0},
                                     {"both members fail", Sha256Check("b"), 1}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const fs::path log = root_ / (std::string(test.name) + ".log");
        auto options =
            With({"--trace", log.string(),
                  Write(FileRecord("%ProductRoot%/a.dll", gost + test.sha256)).string()});
        // Nowhere to load the engine from, and no configuration that names one.
        fs::create_directories(root_ / "no-engines");
        options.environment["OPENSSL_ENGINES"] = (root_ / "no-engines").string();
        options.environment["OPENSSL_CONF"] = "/dev/null";
        const auto run = Run(ict_test::CheckerPath(), options);
        EXPECT_EQ(run.exitCode, test.exitCode) << run.Describe();
        const std::string trace = ict_test::ReadText(log);
        EXPECT_THAT(trace, HasSubstr("Check [1] - Failed. " + engineFailure));
        EXPECT_THAT(trace, HasSubstr("Check [2] ..."));
        if (test.exitCode == 0) {
            EXPECT_THAT(trace, HasSubstr("Check [2] - Succeeded"));
        } else {
            EXPECT_THAT(run.err, HasSubstr("All checks failed:\n\tChecker [1]: " + engineFailure));
            EXPECT_THAT(run.err, HasSubstr("\n\tChecker [2]: Verification mismatch with 'Sha256' "
                                           "checker."));
        }
    }
}

}  // namespace
