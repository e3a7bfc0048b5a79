#pragma once

#include <memory>
#include <string>

namespace integrity_check_tool::action {

// One unit of work of a run; Execute reports success as true.
class IAction {
public:
    virtual ~IAction() = default;
    virtual std::string GetName() const = 0;
    virtual bool Execute() = 0;
};

using IActionPtr = std::shared_ptr<IAction>;

}  // namespace integrity_check_tool::action
