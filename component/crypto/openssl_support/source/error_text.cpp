#include "openssl_support/error_text.h"

#include <openssl/err.h>

namespace openssl_support {

std::string TakeErrorText(const char* whenNone) {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) {
        return whenNone;
    }
    char text[256];
    ERR_error_string_n(code, text, sizeof(text));
    return text;
}

}  // namespace openssl_support
