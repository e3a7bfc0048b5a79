#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "action/file_lookup.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;

class FileLookupTest : public testing::Test {
protected:
    void SetUp() override {
        ict_test::WriteText(dir_ / "bin" / "a.dll", "a");
        ict_test::WriteText(dir_ / "bin" / "b.dll", "b");
        Add(dir_ / "bin" / "a.dll");
        Add(dir_ / "bin" / "b.dll");
    }

    void Add(const fs::path& path) {
        auto file = std::make_unique<FileInfo>();
        file->path = path;
        files_.emplace(path, std::move(file));
    }

    // The path of the entry found, or "" when none was.
    std::string Find(const fs::path& path) {
        const auto found = FindFileEntry(files_, path, *trace_.Tracer());
        return found == files_.end() ? "" : found->first.string();
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    FileTable files_;
};

TEST_F(FileLookupTest, OriginalPathNeedsNoFurtherStep) {
    const auto a = dir_ / "bin" / "a.dll";
    EXPECT_EQ(Find(a), a.string());
}

TEST_F(FileLookupTest, SymbolicLinkIsFoundByItsCanonicalPath) {
    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    const auto link = dir_ / "link.dll";
    fs::create_symlink(dir_ / "bin" / "b.dll", link);
    const auto canonical = fs::canonical(dir_ / "bin" / "b.dll").make_preferred();
    // The table holds the canonical form, as a manifest under a resolved folder would.
    files_.clear();
    Add(canonical);
    EXPECT_EQ(Find(link), canonical.string());
}

TEST_F(FileLookupTest, RelativeAndAbsoluteFormsMeet) {
    const fs::path previous = fs::current_path();
    fs::current_path(dir_.Path());
    const std::string relativeFound = Find("bin/a.dll");
    // And the other way round: a relative entry, an absolute request.
    files_.clear();
    Add("bin/b.dll");
    const std::string absoluteFound = Find(dir_ / "bin" / "b.dll");
    fs::current_path(previous);

    EXPECT_EQ(relativeFound, (dir_ / "bin" / "a.dll").string());
    EXPECT_EQ(absoluteFound, "bin/b.dll");
}

TEST_F(FileLookupTest, EquivalenceOnlyForExistingPaths) {
    const auto roundabout = dir_ / "bin" / ".." / "bin" / "b.dll";
    EXPECT_EQ(Find(roundabout), (dir_ / "bin" / "b.dll").string());
    // Equivalence is only asked of a path that exists.
    const auto missing = dir_ / "bin" / ".." / "bin" / "c.dll";
    EXPECT_EQ(Find(missing), "");
    EXPECT_FALSE(trace_.Traced("Find file by equivalence path " + missing.string()));
}

}  // namespace
}  // namespace integrity_check_tool::action
