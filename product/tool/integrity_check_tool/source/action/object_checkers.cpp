#include "action/object_checkers.h"

#include "check/anyof.h"

namespace integrity_check_tool::action {

IFileCheckerPtr CreateObjectFileChecker(const IFactory& factory,
                                        const std::vector<CheckInfo>& checks) {
    if (checks.size() == 1) {
        return factory.CreateFileChecker(checks.front());
    }
    std::vector<IFileCheckerPtr> members;
    for (const auto& check : checks) {
        members.push_back(factory.CreateFileChecker(check));
    }
    return std::make_shared<check::AnyOf>(factory.GetTracer(), std::move(members));
}

IRegistryCheckerPtr CreateObjectRegistryChecker(const IFactory& factory,
                                                const std::vector<CheckInfo>& checks) {
    if (checks.size() == 1) {
        return factory.CreateRegistryChecker(checks.front());
    }
    std::vector<IRegistryCheckerPtr> members;
    for (const auto& check : checks) {
        members.push_back(factory.CreateRegistryChecker(check));
    }
    return std::make_shared<check::AnyOf>(factory.GetTracer(), std::move(members));
}

}  // namespace integrity_check_tool::action
