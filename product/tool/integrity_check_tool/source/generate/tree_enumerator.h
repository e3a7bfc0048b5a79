#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "generate/glob_pattern.h"

namespace integrity_check_tool::generate {

struct EnumeratedFile {
    std::string relativePath;          // UTF-8, '/' between segments
    boost::filesystem::path fullPath;  // absolute and lexically normal
};

// Hears about an entry left out for a reason other than the patterns.
using SkipHandler = std::function<void(const std::string& relativePath, const std::string& reason)>;

// Lists the regular files below a folder that the include patterns admit (all
// when there are none) and no exclude pattern matches, in relative-path order.
// A folder that an exclude pattern matches is not entered. Symbolic links to
// files count as files; links to folders are not followed; FIFOs, devices and
// sockets are never opened, only reported as skipped.
class TreeEnumerator {
public:
    TreeEnumerator(std::vector<GlobPattern> includes, std::vector<GlobPattern> excludes);

    // Leaves out this file wherever it turns up (the manifest being written).
    void Ignore(const boost::filesystem::path& path);

    // Throws Exception "Can't enumerate %1%. Reason: %2%" when the folder or a
    // folder below it can't be listed.
    std::vector<EnumeratedFile> Enumerate(const boost::filesystem::path& root,
                                          const SkipHandler& onSkipped) const;

private:
    bool IsWanted(const std::string& relativePath) const;

    std::vector<GlobPattern> includes_;
    std::vector<GlobPattern> excludes_;
    std::set<boost::filesystem::path::string_type> ignored_;
};

}  // namespace integrity_check_tool::generate
