#pragma once

#include <cstdint>
#include <vector>

#include "check/i_checkers.h"
#include "check/i_data_object_source.h"
#include "tracer.h"

namespace integrity_check_tool::check {

// Passes when the object's raw bytes equal the expected bytes. They are
// compared while they are read, so an object of any size is never held.
class Value : public IFileChecker, public IRegistryChecker {
public:
    Value(TracerPtr tracer, IDataObjectSourcePtr source, std::vector<std::uint8_t> expected);

    std::string GetName() const override;
    void CheckFileValue(const boost::filesystem::path& path) const override;
    void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                            RegistryType type) const override;

private:
    TracerPtr tracer_;
    IDataObjectSourcePtr source_;
    std::vector<std::uint8_t> expected_;
};

}  // namespace integrity_check_tool::check
