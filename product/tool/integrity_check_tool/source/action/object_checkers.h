#pragma once

#include <vector>

#include "check/i_factory.h"

namespace integrity_check_tool::action {

// The checker of one object: the factory's checker for a single check, an
// AnyOf over the checkers of several checks (manifest order), and for no
// check an AnyOf that reports "There are no checks ...".
IFileCheckerPtr CreateObjectFileChecker(const IFactory& factory,
                                        const std::vector<CheckInfo>& checks);
IRegistryCheckerPtr CreateObjectRegistryChecker(const IFactory& factory,
                                                const std::vector<CheckInfo>& checks);

}  // namespace integrity_check_tool::action
