#include "platform/program.h"

#include <windows.h>

#include <vector>

#include "ruk/exception.h"

namespace integrity_check_tool::platform {
namespace {

[[noreturn]] void ThrowLastError() {
    RUK_THROW_RESULT(ruk::MakeOsResult(static_cast<std::uint32_t>(::GetLastError())));
}

std::wstring GetModulePath() {
    std::vector<wchar_t> buffer(MAX_PATH);
    for (;;) {
        const DWORD length =
            ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (length == 0) {
            ThrowLastError();
        }
        // A full buffer means the path may have been cut: grow and ask again.
        if (length < buffer.size()) {
            return std::wstring(buffer.data(), length);
        }
        buffer.resize(buffer.size() * 2);
    }
}

std::string ToUtf8(const wchar_t* text, int length) {
    if (length <= 0) {
        return std::string();
    }
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
    if (size <= 0) {
        ThrowLastError();
    }
    std::string result(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, length, &result[0], size, nullptr, nullptr);
    return result;
}

}  // namespace

boost::filesystem::path GetProgramLocation() {
    return boost::filesystem::path(GetModulePath());
}

std::string ReadProductVersion() {
    const std::wstring module = GetModulePath();
    DWORD handle = 0;
    const DWORD size = ::GetFileVersionInfoSizeW(module.c_str(), &handle);
    if (size == 0) {
        ThrowLastError();
    }
    std::vector<unsigned char> block(size);
    if (!::GetFileVersionInfoW(module.c_str(), 0, size, block.data())) {
        ThrowLastError();
    }
    void* value = nullptr;
    UINT length = 0;
    if (!::VerQueryValueW(block.data(), L"\\StringFileInfo\\040904B0\\ProductVersion", &value,
                          &length) ||
        value == nullptr) {
        RUK_THROW_RESULT(ruk::result::NotFound);
    }
    // The length counts characters including the terminating zero.
    const auto* text = static_cast<const wchar_t*>(value);
    int characters = static_cast<int>(length);
    while (characters > 0 && text[characters - 1] == L'\0') {
        --characters;
    }
    return ToUtf8(text, characters);
}

}  // namespace integrity_check_tool::platform
