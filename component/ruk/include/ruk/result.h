#pragma once

#include <cstdint>
#include <string>

namespace ruk {

// Signed 32-bit result codes: zero and positive values are success, negative
// values are failures. Framework codes live in the "ruk.result" category;
// operating-system error numbers are wrapped into the "os.result" category.
using result_t = std::int32_t;

namespace result {
constexpr result_t Success = 0;
constexpr result_t Fail = -1;
constexpr result_t NotFound = -2;
constexpr result_t AccessDenied = -3;
constexpr result_t InvalidArgument = -4;
constexpr result_t OutOfMemory = -5;
constexpr result_t NotImplemented = -6;
constexpr result_t EndOfStream = -7;
constexpr result_t NotSupported = -8;
// The untrusted-object failure keeps its historical value.
constexpr result_t ObjectUntrusted = static_cast<result_t>(0x80000106u);
constexpr result_t InvalidFormat = -10;
constexpr result_t AlreadyExists = -11;
constexpr result_t IoError = -12;
constexpr result_t BufferTooSmall = -13;
constexpr result_t OutOfRange = -14;
constexpr result_t NotRegularFile = -15;
}  // namespace result

inline bool Succeeded(result_t code) {
    return code >= 0;
}
inline bool Failed(result_t code) {
    return code < 0;
}

// Wraps an operating-system error number (errno, GetLastError) as a failure
// of the "os.result" category; zero stays success.
result_t MakeOsResult(std::uint32_t osError);
bool IsOsResult(result_t code);
std::uint32_t GetOsError(result_t code);

// "ruk.result" or "os.result".
const char* GetResultCategory(result_t code);
// The code's text from the framework's table ("Success", "Not found", ...),
// the operating system's message for os codes, "Unknown result code" otherwise.
std::string GetResultText(result_t code);

}  // namespace ruk
