#pragma once

#include "action/i_action.h"
#include "common/console_output.h"

namespace integrity_check_tool::action {

// Writes "Version <product version>" to standard output.
class DisplayVersion : public IAction {
public:
    explicit DisplayVersion(ConsoleOutputPtr output);

    std::string GetName() const override;
    bool Execute() override;

private:
    ConsoleOutputPtr output_;
};

}  // namespace integrity_check_tool::action
