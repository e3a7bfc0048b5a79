#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>

namespace ict_test {

// Each helper creates missing parent directories where it writes and throws
// std::runtime_error naming the path when it fails.

// Writes `text` as it is (no line-end translation), replacing any old content.
void WriteText(const boost::filesystem::path& path, const std::string& text);
void WriteBytes(const boost::filesystem::path& path, const std::vector<std::uint8_t>& bytes);
std::string ReadText(const boost::filesystem::path& path);

// `size` bytes that do not repeat with any short period, so that a piece read
// from the wrong place or twice shows.
std::vector<std::uint8_t> PatternBytes(std::size_t size);

// Creates a named pipe (POSIX only; throws elsewhere). Nothing ever writes to
// it, so a program that opens it for reading would wait: tests use it to
// prove a path is never opened.
void MakeFifo(const boost::filesystem::path& path);

// A path that names something other than a file or folder: on POSIX a named
// pipe made at `path` (MakeFifo); on Windows the reserved device name "NUL" in the folder of `path`
// (that name opens the null device whatever folder it stands in). Use the path returned.
boost::filesystem::path MakeSpecialFile(const boost::filesystem::path& path);

// Whether this system lets the test make symbolic links in `folder`: always
// on POSIX; on Windows only with the right to make them (and never under
// Wine 8, whose CreateSymbolicLink reports success but makes nothing).
bool SymbolicLinksWork(const boost::filesystem::path& folder);

// Sets the permission bits exactly (e.g. boost::filesystem::no_perms).
void SetPermissions(const boost::filesystem::path& path, boost::filesystem::perms permissions);

// True when the process has the rights to read any file (root on POSIX):
// permission-based tests cannot fail a read then.
bool CanReadEverything();

}  // namespace ict_test
