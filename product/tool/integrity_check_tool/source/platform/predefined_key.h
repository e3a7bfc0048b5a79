#pragma once

namespace integrity_check_tool {

// The registry's predefined root keys, by our own names; only the Windows
// registry code maps them to the system's handles.
enum class PredefinedKey {
    ClassesRoot,
    CurrentConfig,
    CurrentUser,
    DynData,
    LocalMachine,
    Users,
    PerformanceData,
    PerformanceText,
    PerformanceNlsText,
};

}  // namespace integrity_check_tool
