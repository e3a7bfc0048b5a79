#include "generate/tree_enumerator.h"

#include <algorithm>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/path_text.h"

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
const char* SpecialFile() {
    return "not a regular file";
}
const char* BackslashInName() {
    return "its name holds a backslash, which a manifest path can't";
}

fs::path Normalized(const fs::path& path) {
    fs::path normal = fs::absolute(path).lexically_normal();
    // "dir/" comes out as "dir/.": the folder itself is meant.
    if (normal.filename() == "." && normal.has_parent_path()) {
        normal = normal.parent_path();
    }
    return normal;
}

bool EndsWithSeparator(const fs::path::string_type& text) {
    return !text.empty() && (text.back() == '/' || text.back() == fs::path::preferred_separator);
}

// The iterator builds every path as the start folder, a separator and the
// rest, so the rest is a plain suffix: no path arithmetic per file.
std::string RelativeText(const fs::path& path, std::size_t prefixLength) {
    std::string text = PathToUtf8(fs::path(path.native().substr(prefixLength)));
    // Windows writes its own separator; a backslash in a POSIX name stays, to be refused later.
    std::replace(text.begin(), text.end(), static_cast<char>(fs::path::preferred_separator), '/');
    return text;
}

}  // namespace

TreeEnumerator::TreeEnumerator(std::vector<GlobPattern> includes, std::vector<GlobPattern> excludes)
    : includes_(std::move(includes)), excludes_(std::move(excludes)) {}

void TreeEnumerator::Ignore(const fs::path& path) {
    ignored_.insert(Normalized(path).native());
}

bool TreeEnumerator::IsWanted(const std::string& relativePath) const {
    return (includes_.empty() || MatchesAny(includes_, relativePath)) &&
           !MatchesAny(excludes_, relativePath);
}

std::vector<EnumeratedFile> TreeEnumerator::Enumerate(const fs::path& root,
                                                      const SkipHandler& onSkipped) const {
    const fs::path start = Normalized(root);
    boost::system::error_code error;
    if (!fs::is_directory(start, error)) {
        ICT_THROW(Exception(MessageFormat(CantEnumerate(), root.string(),
                                          error ? error.message() : NotADirectory())));
    }
    const std::size_t prefixLength =
        start.native().size() + (EndsWithSeparator(start.native()) ? 0 : 1);
    std::vector<EnumeratedFile> files;
    fs::recursive_directory_iterator entry(start, error);
    const fs::recursive_directory_iterator end;
    for (; !error && entry != end; entry.increment(error)) {
        const fs::path& path = entry->path();
        const std::string relative = RelativeText(path, prefixLength);
        const fs::file_status linkStatus = entry->symlink_status(error);
        if (error) {
            break;
        }
        if (fs::is_directory(linkStatus)) {
            if (MatchesAny(excludes_, relative)) {
                entry.disable_recursion_pending();
            }
            continue;
        }
        if (!IsWanted(relative) || ignored_.count(path.native()) != 0) {
            continue;
        }
        if (relative.find('\\') != std::string::npos) {
            onSkipped(relative, BackslashInName());
            continue;
        }
        fs::file_status status = linkStatus;
        if (fs::is_symlink(linkStatus)) {
            boost::system::error_code targetError;
            status = fs::status(path, targetError);
        }
        if (fs::is_regular_file(status)) {
            files.push_back({relative, path});
        } else if (fs::is_directory(status)) {
            onSkipped(relative, LinkToDirectory());
        } else if (!fs::exists(status)) {
            onSkipped(relative, DanglingLink());
        } else {
            onSkipped(relative, SpecialFile());
        }
    }
    if (error) {
        const fs::path where = entry != end ? entry->path() : start;
        ICT_THROW(Exception(MessageFormat(CantEnumerate(), where.string(), error.message())));
    }
    std::sort(files.begin(), files.end(), [](const EnumeratedFile& a, const EnumeratedFile& b) {
        return a.relativePath < b.relativePath;
    });
    return files;
}

}  // namespace integrity_check_tool::generate
