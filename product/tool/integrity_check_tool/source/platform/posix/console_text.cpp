#include "platform/console_text.h"

namespace integrity_check_tool::platform {

// A terminal here shows the locale's own encoding: the bytes are right as they are.
void ShowTextOnConsoleAsCharacters() {}

}  // namespace integrity_check_tool::platform
