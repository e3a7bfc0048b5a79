#pragma once

#include <memory>

#include "action/i_action.h"
#include "check/i_factory.h"
#include "common/console_output.h"

namespace integrity_check_tool::action {

// "Generate": reads the generation configuration of the run's generate
// section, builds the manifest it describes and writes it to the section's
// manifest path in one piece. When any object fails, nothing is written and
// the action fails; the summary of generated objects ends the output.
class Generate : public IAction {
public:
    Generate(IFactoryPtr factory, ConsoleOutputPtr output);

    std::string GetName() const override;
    bool Execute() override;

private:
    IFactoryPtr factory_;
    ConsoleOutputPtr output_;
};

}  // namespace integrity_check_tool::action
