#pragma once

#include <string>

namespace openssl_support {

// The text of the oldest error on this thread's OpenSSL error queue, or
// `whenNone` when the queue is empty; the queue is left empty.
std::string TakeErrorText(const char* whenNone);

}  // namespace openssl_support
