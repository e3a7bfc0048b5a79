#pragma once

#include <cstdint>
#include <string>

// The system's own numbers for the failures tests provoke: errno values on
// POSIX, Win32 error codes on Windows.
namespace ict_test::os_error {

#ifdef _WIN32
constexpr std::uint32_t kNoEntry = 2;           // ERROR_FILE_NOT_FOUND
constexpr std::uint32_t kNoFolderOnTheWay = 3;  // ERROR_PATH_NOT_FOUND
constexpr std::uint32_t kNotAFolderOnTheWay = 3;
constexpr std::uint32_t kIsAFolder = 267;  // ERROR_DIRECTORY
constexpr std::uint32_t kAccessDenied = 5;
constexpr std::uint32_t kDiskFull = 112;
#else
constexpr std::uint32_t kNoEntry = 2;              // ENOENT
constexpr std::uint32_t kNoFolderOnTheWay = 2;     // ENOENT
constexpr std::uint32_t kNotAFolderOnTheWay = 20;  // ENOTDIR
constexpr std::uint32_t kIsAFolder = 21;           // EISDIR
constexpr std::uint32_t kAccessDenied = 13;        // EACCES
constexpr std::uint32_t kDiskFull = 28;            // ENOSPC
#endif

// The system's message for `error` (strerror on POSIX, FormatMessage on
// Windows), without the trailing full stop and line end Windows adds.
std::string Text(std::uint32_t error);

}  // namespace ict_test::os_error
