#include "ruk/exception.h"

#include <cstdio>

namespace ruk {
namespace {

std::string DescribeResult(result_t code) {
    char number[16];
    std::snprintf(number, sizeof(number), "0x%08X", static_cast<unsigned>(code));
    return GetResultText(code) + " (" + GetResultCategory(code) + " " + number + ")";
}

}  // namespace

ResultException::ResultException(result_t code) : code_(code), text_(DescribeResult(code)) {
    *this << ResultCodeInfo(code);
}

AssertionFailed::AssertionFailed(const char* expression, const char* file, int line)
    : file_(file), line_(line) {
    text_ = std::string("Expression failed: ") + expression + " at " + file_ + ":" +
            std::to_string(line_);
}

void ThrowResult(result_t code, const char* function, const char* file, int line) {
    boost::throw_exception(ResultException(code),
                           boost::source_location(file, static_cast<unsigned>(line), function));
}

void ThrowAssertion(const char* expression, const char* file, int line, const char* function) {
    boost::throw_exception(AssertionFailed(expression, file, line),
                           boost::source_location(file, static_cast<unsigned>(line), function));
}

}  // namespace ruk
