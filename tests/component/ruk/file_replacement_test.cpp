#include <cstdint>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "ruk/file_replacement.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace {

namespace fs = boost::filesystem;

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

TEST(RukFileIoTest, CreateNewRefusesAnExistingName) {
    ict_test::TempDir dir;
    const fs::path path = dir / "taken";
    ict_test::WriteText(path, "theirs");
    ruk::intrusive_ptr<ruk::IIO> io;
    EXPECT_EQ(ruk::OpenFileIO(path, ruk::OpenMode::CreateNew, &io), ruk::result::AlreadyExists);
    EXPECT_FALSE(io);
    EXPECT_EQ(ict_test::ReadText(path), "theirs");
    if (ict_test::SymbolicLinksWork(dir.Path())) {
        // Not even through a link that names a file yet to be made.
        fs::create_symlink(dir / "elsewhere", dir / "link");
        EXPECT_EQ(ruk::OpenFileIO(dir / "link", ruk::OpenMode::CreateNew, &io),
                  ruk::result::AlreadyExists);
        EXPECT_FALSE(fs::exists(dir / "elsewhere"));
    }
    ASSERT_EQ(ruk::OpenFileIO(dir / "new", ruk::OpenMode::CreateNew, &io), ruk::result::Success);
    std::size_t written = 0;
    ASSERT_EQ(io->Write("mine", 4, &written), ruk::result::Success);
    io.reset();
    EXPECT_EQ(ict_test::ReadText(dir / "new"), "mine");
}

}  // namespace
