#pragma once

#include <functional>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "generate/glob_pattern.h"

namespace integrity_check_tool::generate {

struct EnumeratedFile {
    std::string relativePath;          // UTF-8, '/' between segments
    boost::filesystem::path fullPath;  // absolute and lexically normal
};

// A folder below the root that could not be listed, or could be listed only
// in part.
struct EnumerationFailure {
    std::string relativePath;  // as shown in messages; empty for the root itself
    boost::filesystem::path fullPath;
    std::string reason;
};

struct Enumeration {
    std::vector<EnumeratedFile> files;         // in relative-path order
    std::vector<EnumerationFailure> failures;  // in relative-path order
};

// Hears about an entry left out for a reason other than the patterns; the
// path is shown with undecodable bytes escaped.
using SkipHandler = std::function<void(const std::string& relativePath, const std::string& reason)>;

// Lists the regular files below a folder that the include patterns admit (all
// when there are none) and no exclude pattern matches. A folder that an
// exclude pattern matches is not entered. Symbolic links to files count as
// files; links to folders are not followed; FIFOs, devices and sockets are
// never opened, only reported as skipped, and so are names no manifest can
// hold (see DescribeEntryName).
class TreeEnumerator {
public:
    TreeEnumerator(std::vector<GlobPattern> includes, std::vector<GlobPattern> excludes);

    // Leaves out this file wherever it turns up, under whatever name or link
    // leads to it (the manifest being written). It need not exist yet.
    void Ignore(const boost::filesystem::path& path);

    // Throws Exception "Can't enumerate %1%. Reason: %2%" when the root can't
    // be listed at all; a folder below it that can't be listed is a failure
    // of the result, and the listing goes on with the rest.
    Enumeration Enumerate(const boost::filesystem::path& root, const SkipHandler& onSkipped) const;

private:
    bool IsWanted(const std::string& relativePath) const;
    bool IsIgnored(const boost::filesystem::path& path, bool isLink) const;
    void ListFolder(const boost::filesystem::path& folder, std::size_t prefixLength,
                    std::vector<boost::filesystem::path>& pending, Enumeration& result,
                    const SkipHandler& onSkipped) const;

    std::vector<GlobPattern> includes_;
    std::vector<GlobPattern> excludes_;
    std::vector<boost::filesystem::path> ignored_;  // as the file system resolves them
};

}  // namespace integrity_check_tool::generate
