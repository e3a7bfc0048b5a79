#pragma once

#include "check/i_checkers.h"
#include "check/i_data_object_source.h"
#include "tracer.h"

namespace integrity_check_tool::check {

// Exists and NotExists: each looks whether the object is there and reports what
// it found, so the success text of one is the failure text of the other.
class Presence : public IFileChecker, public IRegistryChecker {
public:
    std::string GetName() const override;
    void CheckFileValue(const boost::filesystem::path& path) const override;
    void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                            RegistryType type) const override;

protected:
    Presence(bool mustExist, TracerPtr tracer, IDataObjectSourcePtr source);

private:
    CheckType Kind() const { return mustExist_ ? CheckType::Exists : CheckType::NotExists; }

    bool mustExist_;
    TracerPtr tracer_;
    IDataObjectSourcePtr source_;
};

}  // namespace integrity_check_tool::check
