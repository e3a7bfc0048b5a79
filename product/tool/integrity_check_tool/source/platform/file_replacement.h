#pragma once

#include <cstdint>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "ruk/result.h"

namespace integrity_check_tool::platform {

// Which file a path names and which version of its content: a file replaced
// by another, or changed in place, gets another stamp.
struct FileStamp {
    std::uint64_t device = 0;
    std::uint64_t index = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;  // last write, native ticks
    std::int64_t changed = 0;   // last change of content or metadata, native ticks

    bool operator==(const FileStamp& other) const {
        return device == other.device && index == other.index && size == other.size &&
               modified == other.modified && changed == other.changed;
    }
    bool operator!=(const FileStamp& other) const { return !(*this == other); }
};

enum class FileKind { Regular, Directory, Other };

// Opens the file without waiting on a FIFO or device, takes its kind and
// stamp from the open handle and, only for a regular file of at most `limit`
// bytes, reads it whole. A larger file gives result::OutOfRange; another kind
// gives success with `kind` telling which and `bytes` left empty.
ruk::result_t ReadRegularFile(const boost::filesystem::path& path, std::uint64_t limit,
                              std::vector<std::uint8_t>* bytes, FileStamp* stamp, FileKind* kind);

// The stamp of what the path names now, links followed; none when nothing is there.
ruk::result_t GetFileStamp(const boost::filesystem::path& path, boost::optional<FileStamp>* stamp);

// What the path names now, links followed; none when nothing is there. The
// kind is the system's own answer for the opened entry, so that a name that
// opens a device (Windows' "NUL" or "CON" in any folder, which report
// themselves as files) is never taken for a regular file.
ruk::result_t GetFileKind(const boost::filesystem::path& path, boost::optional<FileKind>* kind);

// True only when the path names a regular file now; false on any failure.
inline bool IsRegularFile(const boost::filesystem::path& path) {
    boost::optional<FileKind> kind;
    return ruk::Succeeded(GetFileKind(path, &kind)) && kind == FileKind::Regular;
}

// Gives `copy` the owner, group and access rights of `original`.
ruk::result_t CopyOwnership(const boost::filesystem::path& original,
                            const boost::filesystem::path& copy);

}  // namespace integrity_check_tool::platform
