#pragma once

#include <exception>
#include <vector>

#include "common/exception.h"

namespace integrity_check_tool::check {

// Every member of an AnyOf failed: "All checks failed:" and, per failure n,
// a newline, a tab and "Checker [n]: <its text>".
class AllChecksFailedException : public Exception {
public:
    explicit AllChecksFailedException(const std::vector<std::exception_ptr>& failures);
};

}  // namespace integrity_check_tool::check
