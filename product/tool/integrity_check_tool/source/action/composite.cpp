#include "action/composite.h"

namespace integrity_check_tool::action {

Composite::Composite(std::vector<IActionPtr> children) : children_(std::move(children)) {}

std::string Composite::GetName() const {
    return "Composite";
}

bool Composite::Execute() {
    bool succeeded = true;
    for (const auto& child : children_) {
        // Evaluated first, so a failure never skips the remaining children.
        const bool childSucceeded = child->Execute();
        succeeded = succeeded && childSucceeded;
    }
    return succeeded;
}

}  // namespace integrity_check_tool::action
