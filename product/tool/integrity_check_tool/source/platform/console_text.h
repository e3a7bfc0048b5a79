#pragma once

namespace integrity_check_tool::platform {

// Text is narrow and in the user's code page throughout the program. A
// console shows bytes in a code page of its own (the OEM one on Windows), so
// where standard output or standard error is a console, their text is handed
// to the console as characters instead. Redirected output keeps its bytes.
void ShowTextOnConsoleAsCharacters();

}  // namespace integrity_check_tool::platform
