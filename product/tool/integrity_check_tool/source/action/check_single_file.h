#pragma once

#include <memory>
#include <string>

#include "action/i_action.h"
#include "check/i_factory.h"
#include "common/configuration.h"
#include "common/console_output.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// "CheckSingleFile": evaluates one file's value for a check type and writes
// it in hexadecimal form as the result.
class CheckSingleFile : public IAction {
public:
    CheckSingleFile(SingleFileCheckSettings settings, TracerPtr tracer, IFactoryPtr factory,
                    ConsoleOutputPtr output);

    std::string GetName() const override;
    // False, with the reason on the error stream, when the value can't be evaluated.
    bool Execute() override;

private:
    SingleFileCheckSettings settings_;
    TracerPtr tracer_;
    IFactoryPtr factory_;
    ConsoleOutputPtr output_;
};

}  // namespace integrity_check_tool::action
