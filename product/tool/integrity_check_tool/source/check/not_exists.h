#pragma once

#include "check/i_checkers.h"
#include "check/i_data_object_source.h"
#include "tracer.h"

namespace integrity_check_tool::check {

// Passes when the file (as a regular file) or the registry value is absent.
class NotExists : public IFileChecker, public IRegistryChecker {
public:
    NotExists(TracerPtr tracer, IDataObjectSourcePtr source);

    std::string GetName() const override;
    void CheckFileValue(const boost::filesystem::path& path) const override;
    void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                            RegistryType type) const override;

private:
    TracerPtr tracer_;
    IDataObjectSourcePtr source_;
};

}  // namespace integrity_check_tool::check
