#pragma once

namespace integrity_check_tool::platform {

// Makes the user's default locale the process's global locale (the classic
// locale when the environment names one that is not installed) and sets the
// conversion that narrow path strings use.
void SetUserLocale();

}  // namespace integrity_check_tool::platform
