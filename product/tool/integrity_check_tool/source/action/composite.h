#pragma once

#include <vector>

#include "action/i_action.h"

namespace integrity_check_tool::action {

// Runs its children in order, each exactly once, also after one has failed;
// succeeds only when every child succeeded (and when it holds none).
class Composite : public IAction {
public:
    explicit Composite(std::vector<IActionPtr> children);

    std::string GetName() const override;
    bool Execute() override;

private:
    std::vector<IActionPtr> children_;
};

}  // namespace integrity_check_tool::action
