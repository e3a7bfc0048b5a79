#include <functional>
#include <tuple>

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

TEST(AtomicFileTest, CreatesAndReplacesKeepingOwnerGroupAndMode) {
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "first"); });
    EXPECT_EQ(ict_test::ReadText(target), "first");
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "second, longer"); });
    EXPECT_EQ(ict_test::ReadText(target), "second, longer");
    EXPECT_EQ(CountEntries(dir.Path()), 1u) << "a temporary file was left behind";
#ifdef _WIN32
    GTEST_SKIP() << "Windows keeps rights in access lists, which permission bits do not show";
#else
    // Only root can give a file to another user.
    const bool asRoot = ict_test::CanReadEverything();
    ASSERT_TRUE(!asRoot || ::chown(target.c_str(), 65534, 65534) == 0);
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "third"); });
    EXPECT_EQ(ict_test::ReadText(target), "third");
    struct stat info {};
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    if (asRoot) {
        EXPECT_EQ(info.st_uid, 65534u);
        EXPECT_EQ(info.st_gid, 65534u);
    }
#endif
}

TEST(AtomicFileTest, FailureLeavesTheTargetAsItWasAndNoTemporary) {
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
    // Renaming a file over a non-empty directory fails for every user, root included.
    const fs::path folder = dir / "folder.xml";
    ict_test::WriteText(folder / "inside.txt", "kept");
    EXPECT_THROW(WriteFileAtomically(folder, [](ruk::IIO& io) { WriteString(io, "new"); }),
                 Exception);
    EXPECT_EQ(ict_test::ReadText(folder / "inside.txt"), "kept");
    EXPECT_EQ(CountEntries(dir.Path()), 2u) << "a temporary file was left behind";
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

TEST(AtomicFileTest, TargetChangedOrReplacedMeanwhileIsLeftToItsNewOwner) {
    using Interference = std::function<void(const fs::path&)>;
    const auto replace = [](const fs::path& target) {
        ict_test::WriteText(target.parent_path() / "other", "other");
        fs::rename(target.parent_path() / "other", target);
    };
    // Who interferes, how, and what the target holds afterwards ("" for nothing).
    const std::tuple<const char*, Interference, std::string> cases[] = {
        {"nobody", [](const fs::path&) {}, "mine"},
        {"written in place", [](const fs::path& t) { ict_test::WriteText(t, "theirs"); }, "theirs"},
        {"replaced", replace, "other"},
        {"removed", [](const fs::path& t) { fs::remove(t); }, ""},
    };
    for (const auto& test : cases) {
        const Interference& interfere = std::get<1>(test);
        const std::string& left = std::get<2>(test);
        SCOPED_TRACE(std::get<0>(test));
        ict_test::TempDir dir;
        const fs::path target = dir / "m.xml";
        ict_test::WriteText(target, "original");
        boost::optional<platform::FileStamp> stamp;
        ASSERT_EQ(platform::GetFileStamp(target, &stamp), ruk::result::Success);
        ASSERT_TRUE(stamp);
        const std::string error = ict_test::ThrownText<Exception>([&] {
            const auto write = [&](ruk::IIO& io) {
                interfere(target);
                WriteString(io, "mine");
            };
            WriteFileAtomically(target, write, &*stamp);
        });
        if (left == "mine") {
            EXPECT_EQ(error, "(nothing thrown)");
        } else {
            EXPECT_THAT(error, HasSubstr("changed or replaced by someone else"));
        }
        EXPECT_EQ(fs::exists(target) ? ict_test::ReadText(target) : "", left);
        EXPECT_EQ(CountEntries(dir.Path()), left.empty() ? 0u : 1u);
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
