#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "support/e2e.h"
#include "utils/atomic_file.h"

namespace integrity_check_tool {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

void WriteString(ruk::IIO& io, const std::string& text) {
    std::size_t written = 0;
    ASSERT_EQ(io.Write(text.data(), text.size(), &written), ruk::result::Success);
}

std::size_t CountEntries(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST(AtomicFileTest, CreatesAndReplacesKeepingPermissions) {
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "first"); });
    EXPECT_EQ(ict_test::ReadText(target), "first");

    fs::permissions(target, fs::owner_read | fs::owner_write | fs::group_read);
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "second, longer"); });
    EXPECT_EQ(ict_test::ReadText(target), "second, longer");
    EXPECT_EQ(fs::status(target).permissions(), fs::owner_read | fs::owner_write | fs::group_read);
    EXPECT_EQ(CountEntries(dir.Path()), 1u) << "a temporary file was left behind";
}

TEST(AtomicFileTest, FailingWriterLeavesTargetAndNoTemporary) {
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    ict_test::WriteText(target, "original\r\nbytes");
    try {
        WriteFileAtomically(target, [](ruk::IIO& io) {
            WriteString(io, "half");
            throw std::runtime_error("disk full");
        });
        FAIL() << "the writer's failure was swallowed";
    } catch (const Exception& error) {
        EXPECT_EQ(error.GetMessage(),
                  "Can't write file " + target.string() + ". Reason: disk full");
    }
    EXPECT_EQ(ict_test::ReadText(target), "original\r\nbytes");
    EXPECT_EQ(CountEntries(dir.Path()), 1u);
}

TEST(AtomicFileTest, TargetThatCannotBeReplacedStaysAsItWas) {
    ict_test::TempDir dir;
    // Renaming a file over a non-empty directory fails for every user, root included.
    const fs::path target = dir / "m.xml";
    ict_test::WriteText(target / "inside.txt", "kept");
    EXPECT_THROW(WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "new"); }),
                 Exception);
    EXPECT_EQ(ict_test::ReadText(target / "inside.txt"), "kept");
    EXPECT_EQ(CountEntries(dir.Path()), 1u);

    // A folder that does not exist can't take the temporary file.
    try {
        WriteFileAtomically(dir / "none" / "m.xml", [](ruk::IIO&) {});
        FAIL() << "wrote into a missing folder";
    } catch (const Exception& error) {
        EXPECT_THAT(error.GetMessage(),
                    HasSubstr("Can't write file " + (dir / "none" / "m.xml").string()));
    }
}

TEST(AtomicFileTest, SymbolicLinkIsWrittenThrough) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "real.xml", "old");
    fs::create_symlink(dir / "real.xml", dir / "link.xml");
    WriteFileAtomically(dir / "link.xml", [](ruk::IIO& io) { WriteString(io, "new"); });
    EXPECT_TRUE(fs::is_symlink(dir / "link.xml"));
    EXPECT_EQ(ict_test::ReadText(dir / "real.xml"), "new");
}

}  // namespace
}  // namespace integrity_check_tool
