#include "support/os_errors.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <cstring>
#endif

namespace ict_test::os_error {

std::string Text(std::uint32_t error) {
#ifdef _WIN32
    char buffer[512] = {};
    const DWORD length =
        ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                         0, buffer, sizeof(buffer), nullptr);
    std::string text(buffer, length);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == '.')) {
        text.pop_back();
    }
    return text;
#else
    return std::strerror(static_cast<int>(error));
#endif
}

}  // namespace ict_test::os_error
