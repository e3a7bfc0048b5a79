#include <windows.h>

#include "platform/system_facts.h"

namespace integrity_check_tool::platform {
namespace {

// The extended version record as RtlGetVersion fills it (284 bytes).
struct VersionRecord {
    ULONG dwOSVersionInfoSize;
    ULONG dwMajorVersion;
    ULONG dwMinorVersion;
    ULONG dwBuildNumber;
    ULONG dwPlatformId;
    WCHAR szCSDVersion[128];
    USHORT wServicePackMajor;
    USHORT wServicePackMinor;
    USHORT wSuiteMask;
    UCHAR wProductType;
    UCHAR wReserved;
};
static_assert(sizeof(VersionRecord) == 284, "RtlGetVersion expects the extended record");

using RtlGetVersionFunction = LONG(WINAPI*)(VersionRecord*);
using GetNativeSystemInfoFunction = void(WINAPI*)(LPSYSTEM_INFO);
using GetProductInfoFunction = BOOL(WINAPI*)(DWORD, DWORD, DWORD, DWORD, PDWORD);

constexpr UCHAR kWorkstation = 1;  // VER_NT_WORKSTATION

ruk::result_t LastError() {
    return ruk::MakeOsResult(::GetLastError());
}

template <typename Function>
ruk::result_t Resolve(const char* moduleName, const char* entryName, Function* function) {
    const HMODULE module = ::GetModuleHandleA(moduleName);
    if (module == nullptr) {
        return LastError();
    }
    const FARPROC entry = ::GetProcAddress(module, entryName);
    if (entry == nullptr) {
        return LastError();
    }
    *function = reinterpret_cast<Function>(reinterpret_cast<void*>(entry));
    return ruk::result::Success;
}

std::uint32_t ArchCodeFromProcessor(WORD processorArchitecture) {
    switch (processorArchitecture) {
        case 0:  // PROCESSOR_ARCHITECTURE_INTEL
            return kArchX86;
        case 9:  // PROCESSOR_ARCHITECTURE_AMD64
            return kArchX86_64;
        case 6:  // PROCESSOR_ARCHITECTURE_IA64
            return kArchIA64;
        case 5:  // PROCESSOR_ARCHITECTURE_ARM
            return kArchARM32;
        case 12:  // PROCESSOR_ARCHITECTURE_ARM64
            return kArchARM64;
        default:
            return kArchUnknown;
    }
}

// The update build revision; 0 when the value is absent or unreadable. The
// 64-bit view is asked for because a 32-bit process would otherwise see the
// redirected copy of the key.
std::uint32_t ReadUpdateBuildRevision() {
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0,
                        KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) {
        return 0;
    }
    DWORD type = 0;
    DWORD value = 0;
    DWORD size = sizeof(value);
    const LONG status =
        ::RegQueryValueExW(key, L"UBR", nullptr, &type, reinterpret_cast<LPBYTE>(&value), &size);
    ::RegCloseKey(key);
    if (status != ERROR_SUCCESS || type != REG_DWORD || size != sizeof(value)) {
        return 0;
    }
    return value;
}

}  // namespace

ruk::result_t QuerySystemFacts(SystemFacts* facts) {
    if (facts == nullptr) {
        return ruk::result::InvalidArgument;
    }
    RtlGetVersionFunction rtlGetVersion = nullptr;
    ruk::result_t code = Resolve("ntdll.dll", "RtlGetVersion", &rtlGetVersion);
    if (ruk::Failed(code)) {
        return code;
    }
    VersionRecord version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (rtlGetVersion(&version) != 0) {
        return ruk::result::Fail;
    }

    GetNativeSystemInfoFunction getNativeSystemInfo = nullptr;
    code = Resolve("kernel32.dll", "GetNativeSystemInfo", &getNativeSystemInfo);
    if (ruk::Failed(code)) {
        return code;
    }
    SYSTEM_INFO system{};
    getNativeSystemInfo(&system);

    GetProductInfoFunction getProductInfo = nullptr;
    code = Resolve("kernel32.dll", "GetProductInfo", &getProductInfo);
    if (ruk::Failed(code)) {
        return code;
    }
    DWORD productType = 0;
    if (!getProductInfo(version.dwMajorVersion, version.dwMinorVersion, version.wServicePackMajor,
                        version.wServicePackMinor, &productType)) {
        productType = 0;
    }

    SystemFacts result;
    result.platform = kPlatformWindows;
    result.majorVersion = version.dwMajorVersion;
    result.minorVersion = version.dwMinorVersion;
    result.buildNumber = version.dwBuildNumber;
    result.servicePackMajor = version.wServicePackMajor;
    result.updateBuildRevision = ReadUpdateBuildRevision();
    result.archCode = ArchCodeFromProcessor(system.wProcessorArchitecture);
    result.isServer = version.wProductType != kWorkstation;
    result.productType = productType;
    *facts = result;
    return ruk::result::Success;
}

}  // namespace integrity_check_tool::platform
