#include <windows.h>

#include "platform/file_system.h"
#include "ruk/exception.h"

namespace integrity_check_tool::platform {
namespace {

using IsWow64 = BOOL(WINAPI*)(HANDLE, PBOOL);
using DisableRedirection = BOOL(WINAPI*)(PVOID*);
using RevertRedirection = BOOL(WINAPI*)(PVOID);

// Looked up at run time: 32-bit systems without WOW64 lack these functions.
FARPROC FindKernelFunction(const char* name) {
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32");
    return kernel == nullptr ? nullptr : ::GetProcAddress(kernel, name);
}

// Only a 32-bit process on 64-bit Windows is redirected; elsewhere the
// disable call exists but fails, so it must not be made.
bool IsRunningUnderWow64() {
    const auto isWow64 = reinterpret_cast<IsWow64>(
        reinterpret_cast<void (*)()>(FindKernelFunction("IsWow64Process")));
    BOOL result = FALSE;
    return isWow64 != nullptr && isWow64(::GetCurrentProcess(), &result) != FALSE &&
           result != FALSE;
}

}  // namespace

FileSystemRedirectionGuard::FileSystemRedirectionGuard() {
    const auto disable = reinterpret_cast<DisableRedirection>(
        reinterpret_cast<void (*)()>(FindKernelFunction("Wow64DisableWow64FsRedirection")));
    if (disable == nullptr || !IsRunningUnderWow64()) {
        return;
    }
    RUK_ASSERT(disable(&previousState_) != FALSE);
    disabled_ = true;
}

FileSystemRedirectionGuard::~FileSystemRedirectionGuard() {
    if (!disabled_) {
        return;
    }
    const auto revert = reinterpret_cast<RevertRedirection>(
        reinterpret_cast<void (*)()>(FindKernelFunction("Wow64RevertWow64FsRedirection")));
    if (revert != nullptr) {
        revert(previousState_);
    }
}

}  // namespace integrity_check_tool::platform
