#include "platform/locale.h"

#include <locale>
#include <stdexcept>

namespace integrity_check_tool::platform {

void SetUserLocale() {
    std::locale user = std::locale::classic();
    try {
        user = std::locale("");
    } catch (const std::runtime_error&) {
        // The runtime knows no locale of that name: keep the classic one.
    }
    std::locale::global(user);
    // Paths keep Boost.Filesystem's own conversion here: it already uses the
    // code page of the system's file API, which is the user's code page, and
    // the runtime's locale facets would not.
}

}  // namespace integrity_check_tool::platform
