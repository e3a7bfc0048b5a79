#pragma once

namespace integrity_check_tool::platform {

// True when standard error is an interactive terminal (a console window on
// Windows), where a self-overwriting progress line makes sense.
bool IsStandardErrorTerminal();

}  // namespace integrity_check_tool::platform
