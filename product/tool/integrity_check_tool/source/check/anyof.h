#pragma once

#include <functional>
#include <vector>

#include "check/i_checkers.h"
#include "tracer.h"

namespace integrity_check_tool::check {

// Several checks on one object: passes as soon as one member passes, in
// manifest order. With every member failed it rethrows the only failure, or
// throws AllChecksFailedException over all of them.
class AnyOf : public IFileChecker, public IRegistryChecker {
public:
    AnyOf(TracerPtr tracer, std::vector<IFileCheckerPtr> members);
    AnyOf(TracerPtr tracer, std::vector<IRegistryCheckerPtr> members);

    std::string GetName() const override;
    void CheckFileValue(const boost::filesystem::path& path) const override;
    void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                            RegistryType type) const override;

private:
    void CheckSequence(const std::vector<std::function<void()>>& checks) const;

    TracerPtr tracer_;
    std::vector<IFileCheckerPtr> fileMembers_;
    std::vector<IRegistryCheckerPtr> registryMembers_;
};

}  // namespace integrity_check_tool::check
