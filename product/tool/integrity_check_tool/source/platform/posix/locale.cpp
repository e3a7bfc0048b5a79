#include "platform/locale.h"

#include <stdlib.h>

#include <codecvt>
#include <locale>
#include <stdexcept>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool::platform {

void SetUserLocale() {
    std::locale user = std::locale::classic();
    try {
        user = std::locale("");
    } catch (const std::runtime_error&) {
        // LANG or LC_* names a locale that is not installed. Libraries that
        // ask for the user's locale themselves (Boost.Filesystem does, on
        // first use) would fail the same way, so the classic locale is made
        // the user's for the whole process.
        ::setenv("LC_ALL", "C", 1);
    }
    std::locale::global(user);
    // File names here are UTF-8 whatever the locale says; the classic locale
    // would refuse every non-ASCII character of a wide manifest path.
    boost::filesystem::path::imbue(std::locale(user, new std::codecvt_utf8<wchar_t>()));
}

}  // namespace integrity_check_tool::platform
