#pragma once

#include <memory>

#include "arguments/arguments.h"

namespace integrity_check_tool {

class CheckerArguments;

// The body of every program of the tool: locale, parsing, help, the
// application run and the final word ("SUCCEEDED" / "FAILED"), with the
// catch-all diagnostic print. Returns the process exit code.
// `checkerArguments` is the same object as `arguments` for the checker and
// null for programs that never verify.
int RunProgramMain(int argc, char* argv[], std::shared_ptr<Arguments> arguments,
                   std::shared_ptr<const CheckerArguments> checkerArguments);

}  // namespace integrity_check_tool
