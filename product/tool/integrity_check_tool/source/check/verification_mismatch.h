#pragma once

#include <string>

#include "common/enumerations.h"
#include "common/exception.h"

namespace integrity_check_tool::check {

// A check got a wrong answer (as opposed to failing to read the object):
// "Verification mismatch with '%1%' checker. Reason: %2%".
class VerificationMismatch : public Exception {
public:
    VerificationMismatch(CheckType type, const std::string& reason);
};

}  // namespace integrity_check_tool::check
