#include "ruk/result.h"

#include "platform/platform.h"

namespace ruk {
namespace {

// Bit pattern of wrapped system errors: failure bit, facility 7, error in the low word.
constexpr std::uint32_t kOsFacility = 0x80070000u;
constexpr std::uint32_t kFacilityMask = 0xFFFF0000u;

struct ResultText {
    result_t code;
    const char* text;
};

constexpr ResultText kTexts[] = {
    {result::Success, "Success"},
    {result::Fail, "Generic failure"},
    {result::NotFound, "Not found"},
    {result::AccessDenied, "Access denied"},
    {result::InvalidArgument, "Invalid argument"},
    {result::OutOfMemory, "Out of memory"},
    {result::NotImplemented, "Not implemented"},
    {result::EndOfStream, "Unexpected end of stream"},
    {result::NotSupported, "Not supported"},
    {result::ObjectUntrusted, "Object is not trusted"},
    {result::InvalidFormat, "Invalid data format"},
    {result::AlreadyExists, "Already exists"},
    {result::IoError, "Input/output error"},
    {result::BufferTooSmall, "Buffer too small"},
    {result::OutOfRange, "Out of range"},
    {result::NotRegularFile, "Not a regular file"},
};

}  // namespace

result_t MakeOsResult(std::uint32_t osError) {
    if (osError == 0) {
        return result::Success;
    }
    return static_cast<result_t>(kOsFacility | (osError & 0xFFFFu));
}

bool IsOsResult(result_t code) {
    return (static_cast<std::uint32_t>(code) & kFacilityMask) == kOsFacility;
}

std::uint32_t GetOsError(result_t code) {
    return IsOsResult(code) ? (static_cast<std::uint32_t>(code) & 0xFFFFu) : 0u;
}

const char* GetResultCategory(result_t code) {
    return IsOsResult(code) ? "os.result" : "ruk.result";
}

std::string GetResultText(result_t code) {
    if (IsOsResult(code)) {
        return platform::GetOsErrorText(GetOsError(code));
    }
    for (const auto& entry : kTexts) {
        if (entry.code == code) {
            return entry.text;
        }
    }
    return "Unknown result code";
}

}  // namespace ruk
