#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ruk/io.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"

namespace {

namespace os_error = ict_test::os_error;

TEST(RukFileIoTest, CreatesWritesSeeksResizesAndReadsBack) {
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

    ruk::intrusive_ptr<ruk::IIO> reader;
    ASSERT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::Read, &reader), ruk::result::Success);
    char buffer[16] = {};
    std::size_t read = 0;
    ASSERT_EQ(ruk::ReadFully(*reader, buffer, sizeof(buffer), &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "hello WO");
    ASSERT_EQ(reader->Seek(6, ruk::SeekOrigin::Begin, nullptr), ruk::result::Success);
    ASSERT_EQ(reader->Read(buffer, 1, &read), ruk::result::Success);
    EXPECT_EQ(buffer[0], 'W');
    // A read-only stream refuses writes with the system's error.
    std::size_t written = 0;
    EXPECT_TRUE(ruk::Failed(reader->Write("x", 1, &written)));
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
}

TEST(RukFileIoTest, OnlyRegularFilesOpenForReadingWithoutWaiting) {
    ict_test::TempDir dir;
    // Opening a FIFO in blocking mode would wait here for a writer.
    const auto special = ict_test::MakeSpecialFile(dir / "pipe");
    ict_test::WriteText(dir / "file", "x");
    struct Case {
        boost::filesystem::path path;
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
        boost::filesystem::create_symlink(special, dir / "zero");
#else
        boost::filesystem::create_symlink("/dev/zero", dir / "zero");
#endif
        boost::filesystem::create_symlink(dir / "gone", dir / "dangling");
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
    EXPECT_TRUE(boost::filesystem::exists(dir / "new"));
}

}  // namespace
