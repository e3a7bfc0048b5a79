#pragma once

#include <string>

#include <boost/filesystem/path.hpp>

namespace ict_test {

// A fresh, empty directory under the system's temporary folder, removed with
// everything in it (unreadable entries included) when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const boost::filesystem::path& Path() const { return path_; }
    boost::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    boost::filesystem::path path_;
};

}  // namespace ict_test
