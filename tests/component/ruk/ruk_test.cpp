#include <cstdint>
#include <iostream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "ruk/exception.h"
#include "ruk/file_replacement.h"
#include "ruk/io.h"
#include "ruk/service_locator.h"
#include "ruk/trace.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/regex_match.h"
#include "support/temp_dir.h"

namespace {

namespace fs = boost::filesystem;
namespace os_error = ict_test::os_error;
using Bytes = std::vector<std::uint8_t>;
using ict_test::FullyMatches;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(RukResultTest, FrameworkCodesHaveTheirTextsAndCategory) {
    EXPECT_EQ(ruk::GetResultText(ruk::result::Success), "Success");
    EXPECT_EQ(ruk::GetResultText(ruk::result::NotFound), "Not found");
    EXPECT_EQ(ruk::GetResultText(ruk::result::AccessDenied), "Access denied");
    EXPECT_EQ(ruk::GetResultText(ruk::result::InvalidArgument), "Invalid argument");
    EXPECT_EQ(ruk::GetResultText(-1000), "Unknown result code");
    EXPECT_EQ(ruk::GetResultText(12345), "Unknown result code");
    EXPECT_STREQ(ruk::GetResultCategory(ruk::result::NotFound), "ruk.result");
    EXPECT_STREQ(ruk::GetResultCategory(ruk::result::Success), "ruk.result");

    EXPECT_TRUE(ruk::Succeeded(ruk::result::Success));
    EXPECT_TRUE(ruk::Succeeded(1));
    EXPECT_TRUE(ruk::Failed(ruk::result::Fail));
    EXPECT_FALSE(ruk::Failed(0));
}

TEST(RukResultTest, OsErrorsAreWrappedAsFailuresOfTheirOwnCategory) {
    const ruk::result_t code = ruk::MakeOsResult(os_error::kNoEntry);
    EXPECT_TRUE(ruk::Failed(code));
    EXPECT_TRUE(ruk::IsOsResult(code));
    EXPECT_EQ(ruk::GetOsError(code), os_error::kNoEntry);
    EXPECT_STREQ(ruk::GetResultCategory(code), "os.result");
    EXPECT_EQ(ruk::GetResultText(code), os_error::Text(os_error::kNoEntry));

    // Zero is no error; framework codes are not os codes.
    EXPECT_EQ(ruk::MakeOsResult(0), ruk::result::Success);
    EXPECT_FALSE(ruk::IsOsResult(ruk::result::NotFound));
    EXPECT_EQ(ruk::GetOsError(ruk::result::NotFound), 0u);
    // Distinct errors stay distinct.
    EXPECT_NE(ruk::MakeOsResult(os_error::kAccessDenied), code);
}

TEST(RukExceptionTest, CheckThrowsOnlyForFailuresWithCodeTextAndLocation) {
    ruk::result_t code = ruk::result::Success;
    EXPECT_NO_THROW(RUK_CHECK(code));
    code = 3;
    EXPECT_NO_THROW(RUK_CHECK(code));
    code = ruk::result::NotFound;
    try {
        RUK_CHECK(code);
        FAIL() << "no exception";
    } catch (const ruk::ResultException& error) {
        EXPECT_EQ(error.GetCode(), ruk::result::NotFound);
        EXPECT_STREQ(error.what(), "Not found (ruk.result 0xFFFFFFFE)");
        const ruk::result_t* info = boost::get_error_info<ruk::ResultCodeInfo>(error);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(*info, ruk::result::NotFound);
        const char* const* file = boost::get_error_info<boost::throw_file>(error);
        ASSERT_NE(file, nullptr);
        EXPECT_THAT(*file, HasSubstr("ruk_test.cpp"));
        const char* const* function = boost::get_error_info<boost::throw_function>(error);
        ASSERT_NE(function, nullptr);
        EXPECT_THAT(*function, HasSubstr("TestBody"));
    }
}

TEST(RukMemoryIoTest, ReadsShortAtTheEndAndSeeksFromEveryOrigin) {
    auto io = ruk::CreateMemoryIO({'a', 'b', 'c', 'd', 'e', 'f'});
    char buffer[4] = {};
    std::size_t read = 0;
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(read, 4u);
    EXPECT_EQ(std::string(buffer, read), "abcd");
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "ef");
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(read, 0u);

    std::uint64_t position = 99;
    ASSERT_EQ(io->Seek(1, ruk::SeekOrigin::Begin, &position), ruk::result::Success);
    EXPECT_EQ(position, 1u);
    ASSERT_EQ(io->Seek(2, ruk::SeekOrigin::Current, &position), ruk::result::Success);
    EXPECT_EQ(position, 3u);
    ASSERT_EQ(io->Read(buffer, 1, &read), ruk::result::Success);
    EXPECT_EQ(buffer[0], 'd');
    ASSERT_EQ(io->Seek(-2, ruk::SeekOrigin::End, &position), ruk::result::Success);
    EXPECT_EQ(position, 4u);

    // Before the start is refused and leaves the position alone.
    EXPECT_EQ(io->Seek(-7, ruk::SeekOrigin::End, &position), ruk::result::InvalidArgument);
    EXPECT_EQ(
        io->Seek(std::numeric_limits<std::int64_t>::max(), ruk::SeekOrigin::Current, &position),
        ruk::result::InvalidArgument);
    ASSERT_EQ(io->Read(buffer, 1, &read), ruk::result::Success);
    EXPECT_EQ(buffer[0], 'e');
}

constexpr std::uint64_t kSizeFails = std::numeric_limits<std::uint64_t>::max();

// A memory stream that reports a size of the test's choosing (or cannot tell
// it), hands out at most `perRead` bytes a call, counts the bytes handed out
// and fails once it has handed out `failAfter`.
class ScriptedIO : public ruk::MemoryIO {
public:
    ScriptedIO(Bytes data, std::uint64_t reportedSize, std::size_t failAfter,
               std::size_t perRead = SIZE_MAX)
        : MemoryIO(std::move(data)),
          reportedSize_(reportedSize),
          failAfter_(failAfter),
          perRead_(perRead) {}

    ruk::result_t GetSize(std::uint64_t* size) override {
        if (reportedSize_ == kSizeFails) {
            return ruk::result::NotSupported;
        }
        *size = reportedSize_;
        return ruk::result::Success;
    }

    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (handedOut_ >= failAfter_) {
            return ruk::result::IoError;
        }
        const ruk::result_t code = MemoryIO::Read(buffer, std::min(size, perRead_), read);
        handedOut_ += *read;
        return code;
    }

    std::size_t HandedOut() const { return handedOut_; }

private:
    std::uint64_t reportedSize_;
    std::size_t failAfter_;
    std::size_t perRead_;
    std::size_t handedOut_ = 0;
};

TEST(RukMemoryIoTest, ReadFullyCollectsShortReadsAndStopsAtEndOrError) {
    ruk::intrusive_ptr<ruk::IIO> trickling(new ScriptedIO(Bytes{'x', 'y', 'z'}, 3, 100, 1));
    char buffer[8] = {};
    std::size_t read = 0;
    ASSERT_EQ(ruk::ReadFully(*trickling, buffer, 2, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "xy");
    ASSERT_EQ(ruk::ReadFully(*trickling, buffer, 8, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "z");

    ruk::intrusive_ptr<ruk::IIO> failing(new ScriptedIO(Bytes{'x', 'y', 'z'}, 3, 2, 1));
    EXPECT_EQ(ruk::ReadFully(*failing, buffer, 3, &read), ruk::result::IoError);
    EXPECT_EQ(read, 2u);
}

TEST(RukReadWholeTest, ReadsFromTheStartToTheEndWithinTheLimit) {
    constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
    constexpr std::size_t kLarge = 200 * 1024 + 3;  // several blocks and a partial one
    const struct {
        const char* name;
        std::size_t contentSize;
        std::uint64_t reportedSize;
        std::size_t limit;
        std::size_t failAfter;
        ruk::result_t expected;
        std::size_t mostHandedOut;  // bytes the stream may have handed out
    } cases[] = {
        {"empty", 0, 0, kNoLimit, kNoLimit, ruk::result::Success, 0},
        {"size told", kLarge, kLarge, kNoLimit, kNoLimit, ruk::result::Success, kLarge},
        {"size unknown", kLarge, kSizeFails, kNoLimit, kNoLimit, ruk::result::Success, kLarge},
        {"grew since the size", kLarge, 10, kNoLimit, kNoLimit, ruk::result::Success, kLarge},
        {"shrank since the size", 10, kLarge, kNoLimit, kNoLimit, ruk::result::Success, 10},
        {"exactly the limit", kLarge, kLarge, kLarge, kNoLimit, ruk::result::Success, kLarge},
        {"told too large", kLarge, kLarge, kLarge - 1, kNoLimit, ruk::result::OutOfRange, 0},
        {"found too large", kLarge, kSizeFails, 1000, kNoLimit, ruk::result::OutOfRange, 1001},
        {"grew past the limit", kLarge, 10, 70000, kNoLimit, ruk::result::OutOfRange, 70001},
        {"read fails", kLarge, kLarge, kNoLimit, 100000, ruk::result::IoError, kLarge},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const Bytes content = ict_test::PatternBytes(test.contentSize);
        ruk::intrusive_ptr<ScriptedIO> io(
            new ScriptedIO(content, test.reportedSize, test.failAfter));
        // Wherever the stream stands, the whole of it is read.
        ASSERT_EQ(io->Seek(static_cast<std::int64_t>(test.contentSize / 2), ruk::SeekOrigin::Begin,
                           nullptr),
                  ruk::result::Success);

        Bytes bytes = {'o', 'l', 'd'};
        EXPECT_EQ(ruk::ReadWhole(*io, test.limit, &bytes), test.expected);
        EXPECT_LE(io->HandedOut(), test.mostHandedOut);
        if (test.expected == ruk::result::Success) {
            EXPECT_EQ(bytes, content);
        } else {
            EXPECT_EQ(bytes, (Bytes{'o', 'l', 'd'}));
        }

        std::string text = "old";
        io->Seek(0, ruk::SeekOrigin::Begin, nullptr);
        EXPECT_EQ(ruk::ReadWhole(*io, test.limit, &text), test.expected);
        EXPECT_EQ(text, test.expected == ruk::result::Success
                            ? std::string(content.begin(), content.end())
                            : "old");
    }
}

TEST(RukReadWholeTest, RefusesANullTargetAndReportsAFailedSeek) {
    ruk::intrusive_ptr<ruk::IIO> io = ruk::CreateMemoryIO(ict_test::PatternBytes(10));
    EXPECT_EQ(ruk::ReadWhole(*io, 100, static_cast<Bytes*>(nullptr)), ruk::result::InvalidArgument);

    class Unseekable : public ruk::MemoryIO {
        ruk::result_t Seek(std::int64_t, ruk::SeekOrigin, std::uint64_t*) override {
            return ruk::result::NotSupported;
        }
    };
    ruk::intrusive_ptr<ruk::IIO> unseekable(new Unseekable());
    Bytes bytes;
    EXPECT_EQ(ruk::ReadWhole(*unseekable, 100, &bytes), ruk::result::NotSupported);
}

TEST(RukFileIoTest, CreatesWritesSeeksAndResizesOnlyANewFile) {
    ict_test::TempDir dir;
    const auto path = dir / "data.bin";
    {
        ruk::intrusive_ptr<ruk::IIO> io;
        ASSERT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::CreateNew, &io), ruk::result::Success);
        std::size_t written = 0;
        ASSERT_EQ(io->Write("hello world", 11, &written), ruk::result::Success);
        EXPECT_EQ(written, 11u);
        std::uint64_t position = 0;
        ASSERT_EQ(io->Seek(-5, ruk::SeekOrigin::End, &position), ruk::result::Success);
        EXPECT_EQ(position, 6u);
        ASSERT_EQ(io->Write("WORLD", 5, &written), ruk::result::Success);
        ASSERT_EQ(io->SetSize(8), ruk::result::Success);
        std::uint64_t size = 0;
        ASSERT_EQ(io->GetSize(&size), ruk::result::Success);
        EXPECT_EQ(size, 8u);
        EXPECT_EQ(io->Flush(), ruk::result::Success);
    }
    EXPECT_EQ(ict_test::ReadText(path), "hello WO");

    // A name taken is refused, even through a link that names a file yet to be made.
    ruk::intrusive_ptr<ruk::IIO> io;
    EXPECT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::CreateNew, &io), ruk::result::AlreadyExists);
    EXPECT_FALSE(io);
    EXPECT_EQ(ict_test::ReadText(path), "hello WO");
    if (ict_test::SymbolicLinksWork(dir.Path())) {
        fs::create_symlink(dir / "elsewhere", dir / "link");
        EXPECT_EQ(ruk::OpenFileIO(dir / "link", ruk::OpenMode::CreateNew, &io),
                  ruk::result::AlreadyExists);
        EXPECT_FALSE(fs::exists(dir / "elsewhere"));
    }
}

// A file opened for reading keeps the size it had when opened; a read that
// gives fewer bytes than asked marks its end until the stream is moved.
TEST(RukFileIoTest, ReadingStreamKeepsItsOpeningSizeAndEnd) {
    ict_test::TempDir dir;
    const auto path = dir / "growing.txt";
    ict_test::WriteText(path, "0123456789");
    ruk::intrusive_ptr<ruk::IIO> io;
    ASSERT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::Read, &io), ruk::result::Success);
    char buffer[64] = {};
    std::size_t read = 0;
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "0123");
    ASSERT_EQ(io->Read(buffer, sizeof(buffer), &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "456789");

#ifdef _WIN32
    // Windows lets no one write a file while it is read here.
    EXPECT_ANY_THROW(ict_test::WriteText(path, "0123456789abc"));
    const std::string tail = "89";
#else
    ict_test::WriteText(path, "0123456789abc");  // rewritten in place, longer
    const std::string tail = "89abc";
#endif
    std::uint64_t size = 0;
    ASSERT_EQ(io->GetSize(&size), ruk::result::Success);
    EXPECT_EQ(size, 10u);
    ASSERT_EQ(io->Read(buffer, sizeof(buffer), &read), ruk::result::Success);
    EXPECT_EQ(read, 0u) << "the short read was the end";
    ASSERT_EQ(io->Seek(8, ruk::SeekOrigin::Begin, nullptr), ruk::result::Success);
    ASSERT_EQ(ruk::ReadFully(*io, buffer, sizeof(buffer), &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), tail);
    EXPECT_TRUE(ruk::Failed(io->Write("x", 1, &read)));
}

TEST(RukFileIoTest, OnlyRegularFilesOpenForReadingWithoutWaiting) {
    ict_test::TempDir dir;
    // Opening a FIFO in blocking mode would wait here for a writer.
    const auto special = ict_test::MakeSpecialFile(dir / "pipe");
    ict_test::WriteText(dir / "file", "x");
    struct Case {
        fs::path path;
        ruk::result_t code;
        bool missing;
        bool notRegular;
    };
    std::vector<Case> cases = {
        {dir / "missing", ruk::MakeOsResult(os_error::kNoEntry), true, false},
        {special, ruk::result::NotRegularFile, false, true},
        {dir.Path(), ruk::MakeOsResult(os_error::kIsAFolder), false, true},
        {dir / "file" / "below", ruk::MakeOsResult(os_error::kNotAFolderOnTheWay), true, false},
    };
    if (ict_test::SymbolicLinksWork(dir.Path())) {
#ifdef _WIN32
        fs::create_symlink(special, dir / "zero");
#else
        fs::create_symlink("/dev/zero", dir / "zero");
#endif
        fs::create_symlink(dir / "gone", dir / "dangling");
        cases.push_back({dir / "zero", ruk::result::NotRegularFile, false, true});
        cases.push_back({dir / "dangling", ruk::MakeOsResult(os_error::kNoEntry), true, false});
    }
    for (const auto& test : cases) {
        ruk::intrusive_ptr<ruk::IIO> io;
        const ruk::result_t code = ruk::OpenFileIO(test.path, ruk::OpenMode::Read, &io);
        EXPECT_EQ(code, test.code) << test.path;
        EXPECT_FALSE(io) << test.path;
        EXPECT_EQ(ruk::IsFileMissing(code), test.missing) << test.path;
        EXPECT_EQ(ruk::IsNotRegularFile(code), test.notRegular) << test.path;
    }
    EXPECT_EQ(ruk::OpenFileIO(dir / "x", ruk::OpenMode::Read, nullptr),
              ruk::result::InvalidArgument);
    EXPECT_EQ(ruk::GetResultText(ruk::result::NotRegularFile), "Not a regular file");
    EXPECT_FALSE(ruk::IsFileMissing(ruk::result::Success));
    EXPECT_FALSE(ruk::IsNotRegularFile(ruk::MakeOsResult(os_error::kAccessDenied)));
}

TEST(RukFileIoTest, AppendModeKeepsWhatIsThereAndWritesAtTheEnd) {
    ict_test::TempDir dir;
    const auto path = dir / "log";
    ict_test::WriteText(path, "old\n");
    for (const char* line : {"one\n", "two\n"}) {
        ruk::intrusive_ptr<ruk::IIO> io;
        ASSERT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::CreateAppend, &io), ruk::result::Success);
        // Even after a seek, a write goes to the end.
        ASSERT_EQ(io->Seek(0, ruk::SeekOrigin::Begin, nullptr), ruk::result::Success);
        std::size_t written = 0;
        ASSERT_EQ(io->Write(line, 4, &written), ruk::result::Success);
    }
    EXPECT_EQ(ict_test::ReadText(path), "old\none\ntwo\n");
    ruk::intrusive_ptr<ruk::IIO> created;
    EXPECT_EQ(ruk::OpenFileIO(dir / "new", ruk::OpenMode::CreateAppend, &created),
              ruk::result::Success);
    EXPECT_TRUE(fs::exists(dir / "new"));
}

std::size_t CountEntries(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

ruk::result_t WriteText(ruk::FileReplacement& replacement, const std::string& text) {
    std::size_t written = 0;
    return replacement.Stream().Write(text.data(), text.size(), &written);
}

TEST(RukFileReplacementTest, TakesTheTargetsPlaceOnlyWhenCommitted) {
    ict_test::TempDir dir;
    const fs::path target = dir / "data.bin";
    {
        ruk::FileReplacement replacement;
        ASSERT_EQ(replacement.Create(target), ruk::result::Success);
        // A new file of its own beside the target, never the target itself.
        EXPECT_EQ(replacement.TemporaryPath().parent_path(), dir.Path());
        EXPECT_NE(replacement.TemporaryPath(), target);
        EXPECT_EQ(replacement.Create(target), ruk::result::InvalidArgument);
        ASSERT_EQ(WriteText(replacement, "first"), ruk::result::Success);
        EXPECT_EQ(replacement.Commit(), ruk::result::InvalidArgument) << "committed while open";
        ASSERT_EQ(replacement.Close(), ruk::result::Success);
        ASSERT_EQ(replacement.Commit(), ruk::result::Success);
        EXPECT_EQ(replacement.Commit(), ruk::result::InvalidArgument);
    }
    EXPECT_EQ(ict_test::ReadText(target), "first");
    EXPECT_EQ(CountEntries(dir.Path()), 1u);

    // Abandoned after writing, or after closing: the target keeps its content
    // and the temporary goes.
    for (const bool close : {false, true}) {
        {
            ruk::FileReplacement replacement;
            ASSERT_EQ(replacement.Create(target), ruk::result::Success);
            ASSERT_EQ(WriteText(replacement, "second"), ruk::result::Success);
            if (close) {
                ASSERT_EQ(replacement.Close(), ruk::result::Success);
            }
            EXPECT_EQ(CountEntries(dir.Path()), 2u);
        }
        EXPECT_EQ(ict_test::ReadText(target), "first");
        EXPECT_EQ(CountEntries(dir.Path()), 1u) << "a temporary file was left behind";
    }
}

TEST(RukFileReplacementTest, FailuresLeaveNothingBehind) {
    ict_test::TempDir dir;
    {
        // No folder to hold the temporary: the system's error.
        ruk::FileReplacement replacement;
        const ruk::result_t code = replacement.Create(dir / "none" / "data.bin");
        EXPECT_TRUE(ruk::IsOsResult(code)) << ruk::GetResultText(code);
        EXPECT_EQ(replacement.Close(), ruk::result::InvalidArgument);
        EXPECT_EQ(replacement.Commit(), ruk::result::InvalidArgument);
    }
    EXPECT_EQ(CountEntries(dir.Path()), 0u);

    // A rename over a folder that holds a file fails for every user.
    const fs::path target = dir / "data.bin";
    ict_test::WriteText(target / "inside.txt", "kept");
    {
        ruk::FileReplacement replacement;
        ASSERT_EQ(replacement.Create(target), ruk::result::Success);
        ASSERT_EQ(replacement.Close(), ruk::result::Success);
        const ruk::result_t code = replacement.Commit();
        EXPECT_TRUE(ruk::IsOsResult(code)) << ruk::GetResultText(code);
    }
    EXPECT_EQ(ict_test::ReadText(target / "inside.txt"), "kept");
    EXPECT_EQ(CountEntries(dir.Path()), 1u);
}

TEST(RukTraceTest, LevelWordsFollowTheLevelBands) {
    EXPECT_STREQ(ruk::GetLevelWord(300), "ERROR");
    EXPECT_STREQ(ruk::GetLevelWord(301), "WARNING");
    EXPECT_STREQ(ruk::GetLevelWord(400), "WARNING");
    EXPECT_STREQ(ruk::GetLevelWord(600), "INFO");
    EXPECT_STREQ(ruk::GetLevelWord(700), "START");
    EXPECT_STREQ(ruk::GetLevelWord(800), "DEBUG");
}

TEST(RukTraceTest, TracerWritesPrefixedLinesUpToItsLevelToEveryChannel) {
    ruk::intrusive_ptr<ruk::ITracer> tracer;
    ASSERT_EQ(ruk::GetRootServiceLocator()->CreateTracer(&tracer), ruk::result::Success);
    EXPECT_EQ(tracer->GetLevel(), 0u);
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> first(new ruk::MemoryTraceChannel());
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> second(new ruk::MemoryTraceChannel());
    ASSERT_EQ(tracer->AttachChannel(first), ruk::result::Success);
    ASSERT_EQ(tracer->AttachChannel(second), ruk::result::Success);
    EXPECT_EQ(tracer->AttachChannel(nullptr), ruk::result::InvalidArgument);
    ASSERT_EQ(tracer->SetLevel(700), ruk::result::Success);

    tracer->Write(700, "start-up fact");
    tracer->Write(701, "too detailed");
    tracer->Write(300, "an error");

    // "%X %I %p": time, thread id, level word, then the text.
    EXPECT_THAT(first->Lines(),
                ElementsAre(FullyMatches("[0-9]+:[0-9]+:[0-9]+ [^ ]+ START start-up fact"),
                            FullyMatches("[0-9]+:[0-9]+:[0-9]+ [^ ]+ ERROR an error")));
    EXPECT_EQ(first->Lines(), second->Lines());
}

TEST(RukTraceTest, FileChannelKeepsTheOldContentAndAppendsEachLine) {
    ict_test::TempDir dir;
    const auto path = dir / "trace.log";
    ict_test::WriteText(path, "old content\n");
    ruk::intrusive_ptr<ruk::ITraceChannel> channel;
    ASSERT_EQ(ruk::CreateFileTraceChannel(path, &channel), ruk::result::Success);
    channel->WriteLine("one");
    channel->WriteLine("two");
    // Each line is written at once: readable while the channel is still open.
    EXPECT_EQ(ict_test::ReadText(path), "old content\none\ntwo\n");

    // The system's own error, not a fixed one.
    ruk::intrusive_ptr<ruk::ITraceChannel> failed;
    EXPECT_EQ(ruk::CreateFileTraceChannel(dir / "no" / "such" / "dir.log", &failed),
              ruk::MakeOsResult(os_error::kNoFolderOnTheWay));
    EXPECT_EQ(ruk::CreateFileTraceChannel(dir.Path(), &failed),
              ruk::MakeOsResult(os_error::kIsAFolder));
    EXPECT_FALSE(failed);
}

TEST(RukTraceTest, AFailingFileWriteIsReportedOnceOnStandardError) {
    ruk::intrusive_ptr<ruk::ITraceChannel> channel;
    // Every write to this device fails as on a full disk (Wine hands Windows
    // programs the host's device under the same name).
    const ruk::result_t opened = ruk::CreateFileTraceChannel("/dev/full", &channel);
#ifdef _WIN32
    if (opened != ruk::result::Success) {
        GTEST_SKIP() << "Windows has no device whose every write fails";
    }
#endif
    ASSERT_EQ(opened, ruk::result::Success);
    std::ostringstream captured;
    std::streambuf* const original = std::cerr.rdbuf(captured.rdbuf());
    channel->WriteLine("one");
    channel->WriteLine("two");
    std::cerr.rdbuf(original);
    EXPECT_EQ(captured.str(), "Can't write trace file /dev/full. Reason: " +
                                  os_error::Text(os_error::kDiskFull) + "\n");
}

}  // namespace
