#include "platform/terminal.h"

#include <unistd.h>

namespace integrity_check_tool::platform {

bool IsStandardErrorTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace integrity_check_tool::platform
