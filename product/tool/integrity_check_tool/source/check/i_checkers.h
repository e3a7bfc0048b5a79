#pragma once

#include <memory>
#include <string>

#include <boost/filesystem/path.hpp>

#include "common/enumerations.h"

namespace integrity_check_tool {

// A file test: returns when it passes, throws when it does not.
class IFileChecker {
public:
    virtual ~IFileChecker() = default;
    virtual std::string GetName() const = 0;
    virtual void CheckFileValue(const boost::filesystem::path& path) const = 0;
};

// A registry-value test: returns when it passes, throws when it does not.
class IRegistryChecker {
public:
    virtual ~IRegistryChecker() = default;
    virtual void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                                    RegistryType type) const = 0;
};

using IFileCheckerPtr = std::shared_ptr<IFileChecker>;
using IRegistryCheckerPtr = std::shared_ptr<IRegistryChecker>;

}  // namespace integrity_check_tool
