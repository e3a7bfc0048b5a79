#include <cerrno>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "ruk/io.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace {

TEST(RukFileIoTest, CreatesWritesSeeksResizesAndReadsBack) {
    ict_test::TempDir dir;
    const auto path = dir / "data.bin";
    {
        ruk::intrusive_ptr<ruk::IIO> io;
        ASSERT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::CreateReadWrite, &io), ruk::result::Success);
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

TEST(RukFileIoTest, ReportsSystemErrorsForMissingFilesAndDirectories) {
    ict_test::TempDir dir;
    ruk::intrusive_ptr<ruk::IIO> io;
    EXPECT_EQ(ruk::OpenFileIO(dir / "missing", ruk::OpenMode::Read, &io),
              ruk::MakeOsResult(ENOENT));
    EXPECT_EQ(ruk::OpenFileIO(dir / "missing", ruk::OpenMode::ReadWrite, &io),
              ruk::MakeOsResult(ENOENT));
    EXPECT_EQ(ruk::OpenFileIO(dir.Path(), ruk::OpenMode::Read, &io), ruk::MakeOsResult(EISDIR));
    EXPECT_FALSE(io);
    EXPECT_EQ(ruk::OpenFileIO(dir / "x", ruk::OpenMode::Read, nullptr),
              ruk::result::InvalidArgument);
}

TEST(RukFileIoTest, OpeningAFifoForReadingDoesNotWaitForAWriter) {
    ict_test::TempDir dir;
    const auto fifo = dir / "pipe";
    ict_test::MakeFifo(fifo);
    // Would block forever in open() if the stream were opened in blocking mode.
    ruk::intrusive_ptr<ruk::IIO> io;
    ASSERT_EQ(ruk::OpenFileIO(fifo, ruk::OpenMode::Read, &io), ruk::result::Success);
    char buffer[4];
    std::size_t read = 9;
    ASSERT_EQ(io->Read(buffer, sizeof(buffer), &read), ruk::result::Success);
    EXPECT_EQ(read, 0u);
}

}  // namespace
