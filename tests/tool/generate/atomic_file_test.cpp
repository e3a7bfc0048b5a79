#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "support/e2e.h"
#include "support/thrown.h"
#include "utils/atomic_file.h"

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

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
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "second, longer"); });
    EXPECT_EQ(ict_test::ReadText(target), "second, longer");
    EXPECT_EQ(CountEntries(dir.Path()), 1u) << "a temporary file was left behind";

#ifdef _WIN32
    GTEST_SKIP() << "Windows keeps rights in access lists, which permission bits do not show";
#endif
    fs::permissions(target, fs::owner_read | fs::owner_write | fs::group_read);
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "third"); });
    EXPECT_EQ(ict_test::ReadText(target), "third");
    EXPECT_EQ(fs::status(target).permissions(), fs::owner_read | fs::owner_write | fs::group_read);
}

TEST(AtomicFileTest, FailingWriterLeavesTargetAndNoTemporary) {
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    ict_test::WriteText(target, "original\r\nbytes");
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] {
                  WriteFileAtomically(target, [](ruk::IIO& io) {
                      WriteString(io, "half");
                      throw std::runtime_error("disk full");
                  });
              }),
              "Can't write file " + target.string() + ". Reason: disk full");
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
    EXPECT_THAT(ict_test::ThrownText<Exception>(
                    [&] { WriteFileAtomically(dir / "none" / "m.xml", [](ruk::IIO&) {}); }),
                HasSubstr("Can't write file " + (dir / "none" / "m.xml").string()));
}

TEST(AtomicFileTest, LongestNameGetsAShortTemporaryBesideIt) {
    ict_test::TempDir dir;
    const fs::path target = dir / std::string(250, 'n');
    for (const char* content : {"first", "second"}) {
        WriteFileAtomically(target, [&](ruk::IIO& io) {
            // While it is written, the temporary lies in the target's folder.
            for (const auto& entry : fs::directory_iterator(dir.Path())) {
                if (entry.path() != target) {
                    EXPECT_LE(entry.path().filename().string().size(), 32u);
                }
            }
            EXPECT_EQ(CountEntries(dir.Path()), fs::exists(target) ? 2u : 1u);
            WriteString(io, content);
        });
        EXPECT_EQ(ict_test::ReadText(target), content);
    }
    EXPECT_EQ(CountEntries(dir.Path()), 1u);
}

#ifndef _WIN32
TEST(AtomicFileTest, OwnerGroupAndModeOfTheReplacedFileStay) {
    if (!ict_test::CanReadEverything()) {
        GTEST_SKIP() << "only root can give a file to another user";
    }
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    ict_test::WriteText(target, "old");
    ASSERT_EQ(::chown(target.c_str(), 65534, 65534), 0);
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "new"); });
    struct stat info {};
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 65534u);
    EXPECT_EQ(info.st_gid, 65534u);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(ict_test::ReadText(target), "new");
}
#endif

TEST(AtomicFileTest, TargetChangedOrReplacedMeanwhileIsLeftToItsNewOwner) {
    struct Case {
        const char* what;
        std::function<void(const fs::path&)> interfere;
        const char* left;  // what the target holds afterwards
    };
    const std::vector<Case> cases = {
        {"nobody", [](const fs::path&) {}, "mine"},
        {"written in place", [](const fs::path& target) { ict_test::WriteText(target, "theirs"); },
         "theirs"},
        {"replaced",
         [](const fs::path& target) {
             ict_test::WriteText(target.parent_path() / "other", "other");
             fs::rename(target.parent_path() / "other", target);
         },
         "other"},
        {"removed", [](const fs::path& target) { fs::remove(target); }, nullptr},
    };
    for (const auto& test : cases) {
        ict_test::TempDir dir;
        const fs::path target = dir / "m.xml";
        ict_test::WriteText(target, "original");
        boost::optional<platform::FileStamp> stamp;
        ASSERT_EQ(platform::GetFileStamp(target, &stamp), ruk::result::Success);
        ASSERT_TRUE(stamp);
        const bool quiet = std::string(test.what) == "nobody";
        try {
            WriteFileAtomically(
                target,
                [&](ruk::IIO& io) {
                    test.interfere(target);
                    WriteString(io, "mine");
                },
                &*stamp);
            EXPECT_TRUE(quiet) << test.what << ": replaced anyway";
        } catch (const Exception& error) {
            EXPECT_FALSE(quiet) << test.what << ": " << error.GetMessage();
            EXPECT_THAT(error.GetMessage(), HasSubstr("changed or replaced by someone else"));
        }
        if (test.left == nullptr) {
            EXPECT_FALSE(fs::exists(target)) << test.what;
        } else {
            EXPECT_EQ(ict_test::ReadText(target), test.left) << test.what;
        }
        EXPECT_EQ(CountEntries(dir.Path()), test.left == nullptr ? 0u : 1u) << test.what;
    }
}

TEST(AtomicFileTest, SymbolicLinkIsWrittenThrough) {
    ict_test::TempDir dir;
    if (!ict_test::SymbolicLinksWork(dir.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    ict_test::WriteText(dir / "real.xml", "old");
    fs::create_symlink(dir / "real.xml", dir / "link.xml");
    WriteFileAtomically(dir / "link.xml", [](ruk::IIO& io) { WriteString(io, "new"); });
    EXPECT_TRUE(fs::is_symlink(dir / "link.xml"));
    EXPECT_EQ(ict_test::ReadText(dir / "real.xml"), "new");
}

}  // namespace
}  // namespace integrity_check_tool
