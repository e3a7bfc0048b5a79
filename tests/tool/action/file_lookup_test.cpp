#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "action/file_lookup.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "tool/engine_helpers/trace_capture.h"

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;

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
    EXPECT_THAT(trace_.Messages(),
                ElementsAre("Find file by original path " + a.string() + " ..."));
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
    EXPECT_THAT(trace_.Messages(),
                ElementsAre("Find file by original path " + link.string() + " ...",
                            "Find file by canonical path " + canonical.string() + " ..."));
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
    EXPECT_THAT(trace_.Messages(), testing::Contains("Find file by absolute path " +
                                                     (dir_ / "bin" / "a.dll").string() + " ..."));
}

TEST_F(FileLookupTest, EquivalenceOnlyForExistingPaths) {
    const auto roundabout = dir_ / "bin" / ".." / "bin" / "b.dll";
    EXPECT_EQ(Find(roundabout), (dir_ / "bin" / "b.dll").string());
    EXPECT_THAT(trace_.Messages(),
                testing::Contains("Find file by equivalence path " + roundabout.string() + " ..."));

    const auto missing = dir_ / "bin" / ".." / "bin" / "c.dll";
    const auto before = trace_.Messages().size();
    EXPECT_EQ(Find(missing), "");
    const auto messages = trace_.Messages();
    ASSERT_EQ(messages.size(), before + 2);  // original and absolute only
    EXPECT_EQ(messages.back(), "Find file by absolute path " + missing.string() + " ...");
}

}  // namespace
}  // namespace integrity_check_tool::action
