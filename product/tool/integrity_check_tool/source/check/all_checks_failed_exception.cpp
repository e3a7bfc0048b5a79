#include "check/all_checks_failed_exception.h"

#include <cstddef>
#include <string>

#include "common/message_format.h"

namespace integrity_check_tool::check {
namespace {

const char* AllChecksFailed() {
    return "All checks failed:";
}
const char* CheckerFailure() {
    return "Checker [%1%]: %2%";
}

std::string TextOf(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (...) {
        return CurrentExceptionText();
    }
}

std::string ComposeMessage(const std::vector<std::exception_ptr>& failures) {
    std::string message = AllChecksFailed();
    for (std::size_t index = 0; index < failures.size(); ++index) {
        message += "\n\t";
        message += MessageFormat(CheckerFailure(), index + 1, TextOf(failures[index]));
    }
    return message;
}

}  // namespace

AllChecksFailedException::AllChecksFailedException(const std::vector<std::exception_ptr>& failures)
    : Exception(ComposeMessage(failures)) {}

}  // namespace integrity_check_tool::check
