#include "generate/tree_enumerator.h"

#include <algorithm>

#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "generate/entry_name.h"

namespace integrity_check_tool::generate {
namespace {

namespace fs = boost::filesystem;

const char* CantEnumerate() {
    return "Can't enumerate %1%. Reason: %2%";
}
const char* NotADirectory() {
    return "it is not a directory";
}
const char* LinkToDirectory() {
    return "a symbolic link to a directory is not followed";
}
const char* DanglingLink() {
    return "a symbolic link to nothing";
}
const char* LinkLoop() {
    return "a symbolic link loop";
}
const char* BrokenLink() {
    return "a symbolic link that can't be followed: %1%";
}
const char* SpecialFile() {
    return "not a regular file";
}

fs::path Normalized(const fs::path& path) {
    // Windows' normal form mixes both separators; keep the system's own.
    fs::path normal = fs::absolute(path).lexically_normal().make_preferred();
    // "dir/" comes out as "dir/.": the folder itself is meant.
    if (normal.filename() == "." && normal.has_parent_path()) {
        normal = normal.parent_path();
    }
    return normal;
}

bool EndsWithSeparator(const fs::path::string_type& text) {
    return !text.empty() && (text.back() == '/' || text.back() == fs::path::preferred_separator);
}

// Windows file names compare without regard to case.
bool SameName(const fs::path::string_type& a, const fs::path::string_type& b) {
#ifdef _WIN32
    return boost::algorithm::iequals(a, b);
#else
    return a == b;
#endif
}

// Where the path leads once every link is followed; a missing last part is
// kept as it is.
fs::path Resolved(const fs::path& path) {
    boost::system::error_code error;
    fs::path resolved = fs::weakly_canonical(path, error);
    return error ? path : resolved.make_preferred();
}

bool FailedByLoop(const boost::system::error_code& error) {
    return error == boost::system::errc::too_many_symbolic_link_levels;
}

}  // namespace

TreeEnumerator::TreeEnumerator(std::vector<GlobPattern> includes, std::vector<GlobPattern> excludes)
    : includes_(std::move(includes)), excludes_(std::move(excludes)) {}

void TreeEnumerator::Ignore(const fs::path& path) {
    ignored_.push_back(Resolved(Normalized(path)));
}

bool TreeEnumerator::IsWanted(const std::string& relativePath) const {
    return (includes_.empty() || MatchesAny(includes_, relativePath)) &&
           !MatchesAny(excludes_, relativePath);
}

// Resolving every path would cost a lookup per file: only an entry with the
// ignored file's name, or a link, can lead to it.
bool TreeEnumerator::IsIgnored(const fs::path& path, bool isLink) const {
    for (const auto& ignored : ignored_) {
        if ((isLink || SameName(path.filename().native(), ignored.filename().native())) &&
            SameName(Resolved(path).native(), ignored.native())) {
            return true;
        }
    }
    return false;
}

Enumeration TreeEnumerator::Enumerate(const fs::path& root, const SkipHandler& onSkipped) const {
    const fs::path start = Normalized(root);
    boost::system::error_code error;
    if (!fs::is_directory(start, error)) {
        ICT_THROW(Exception(MessageFormat(CantEnumerate(), root.string(),
                                          error ? error.message() : NotADirectory())));
    }
    // The root itself must open; what fails below it is collected instead.
    { fs::directory_iterator probe(start, error); }
    if (error) {
        ICT_THROW(Exception(MessageFormat(CantEnumerate(), root.string(), error.message())));
    }
    const std::size_t prefixLength =
        start.native().size() + (EndsWithSeparator(start.native()) ? 0 : 1);
    Enumeration result;
    std::vector<fs::path> pending{start};
    while (!pending.empty()) {
        const fs::path folder = std::move(pending.back());
        pending.pop_back();
        ListFolder(folder, prefixLength, pending, result, onSkipped);
    }
    std::sort(result.files.begin(), result.files.end(),
              [](const EnumeratedFile& a, const EnumeratedFile& b) {
                  return a.relativePath < b.relativePath;
              });
    std::sort(result.failures.begin(), result.failures.end(),
              [](const EnumerationFailure& a, const EnumerationFailure& b) {
                  return a.relativePath < b.relativePath;
              });
    return result;
}

// The iterator builds every path as the start folder, a separator and the
// rest, so the rest is a plain suffix: no path arithmetic per file.
void TreeEnumerator::ListFolder(const fs::path& folder, std::size_t prefixLength,
                                std::vector<fs::path>& pending, Enumeration& result,
                                const SkipHandler& onSkipped) const {
    boost::system::error_code error;
    fs::directory_iterator entry(folder, error);
    const fs::directory_iterator end;
    for (; !error && entry != end; entry.increment(error)) {
        const fs::path& path = entry->path();
        const EntryName name = DescribeEntryName(path.native().substr(prefixLength));
        const fs::file_status linkStatus = entry->symlink_status(error);
        if (error) {
            break;
        }
        if (fs::is_directory(linkStatus)) {
            if (MatchesAny(excludes_, name.text)) {
                continue;
            }
            if (name.problem != nullptr) {
                onSkipped(name.shown, name.problem);
            } else {
                pending.push_back(path);
            }
            continue;
        }
        const bool isLink = fs::is_symlink(linkStatus);
        if (!IsWanted(name.text) || IsIgnored(path, isLink)) {
            continue;
        }
        if (name.problem != nullptr) {
            onSkipped(name.shown, name.problem);
            continue;
        }
        fs::file_status status = linkStatus;
        boost::system::error_code targetError;
        if (isLink) {
            status = fs::status(path, targetError);
        }
        if (fs::is_regular_file(status)) {
            result.files.push_back({name.text, path});
        } else if (fs::is_directory(status)) {
            onSkipped(name.shown, LinkToDirectory());
        } else if (FailedByLoop(targetError)) {
            onSkipped(name.shown, LinkLoop());
        } else if (status.type() == fs::file_not_found) {
            onSkipped(name.shown, DanglingLink());
        } else if (targetError || !fs::exists(status)) {
            onSkipped(name.shown, MessageFormat(BrokenLink(), targetError.message()));
        } else {
            onSkipped(name.shown, SpecialFile());
        }
    }
    if (error) {
        const std::size_t length = std::min(prefixLength, folder.native().size());
        const EntryName name = DescribeEntryName(folder.native().substr(length));
        result.failures.push_back({name.shown, folder, error.message()});
    }
}

}  // namespace integrity_check_tool::generate
