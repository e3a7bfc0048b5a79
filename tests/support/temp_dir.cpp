#include "support/temp_dir.h"

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

namespace ict_test {
namespace {

// Gives the owner full rights on everything below `root`, so that a tree a
// test made unreadable can still be removed.
void MakeRemovable(const boost::filesystem::path& root) {
    namespace fs = boost::filesystem;
    boost::system::error_code error;
    fs::permissions(root, fs::owner_all | fs::add_perms, error);
    if (!fs::is_directory(fs::symlink_status(root, error))) {
        return;
    }
    for (fs::directory_iterator entry(root, error), end; !error && entry != end;
         entry.increment(error)) {
        MakeRemovable(entry->path());
    }
}

}  // namespace

TempDir::TempDir() {
    namespace fs = boost::filesystem;
    path_ = fs::temp_directory_path() / fs::unique_path("ict-test-%%%%-%%%%-%%%%-%%%%");
    fs::create_directories(path_);
    // Canonical, so that tests can compare with paths the programs print;
    // Windows' canonical form mixes both separators, the programs print the
    // system's own.
    path_ = fs::canonical(path_).make_preferred();
}

TempDir::~TempDir() {
    boost::system::error_code error;
    boost::filesystem::remove_all(path_, error);
    if (error) {
        MakeRemovable(path_);
        boost::filesystem::remove_all(path_, error);
    }
}

}  // namespace ict_test
