#pragma once

#include <string>

#include <boost/optional.hpp>

#include "ruk/result.h"

namespace integrity_check_tool::platform {

// Looks a name up in the process environment the way the system expands
// "%NAME%" in a string. `value` is left empty when the variable is not set;
// the result is a failure only when the lookup itself failed.
ruk::result_t LookupProcessVariable(const std::string& name, boost::optional<std::string>* value);

}  // namespace integrity_check_tool::platform
