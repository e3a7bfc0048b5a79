#include "platform/terminal.h"

#include <windows.h>

namespace integrity_check_tool::platform {

// Only a console answers GetConsoleMode; pipes and files do not.
bool IsStandardErrorTerminal() {
    const HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return handle != nullptr && handle != INVALID_HANDLE_VALUE &&
           ::GetConsoleMode(handle, &mode) != 0;
}

}  // namespace integrity_check_tool::platform
