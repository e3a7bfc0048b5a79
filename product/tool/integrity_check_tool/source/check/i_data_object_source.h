#pragma once

#include <memory>
#include <string>

#include <boost/filesystem/path.hpp>

#include "common/enumerations.h"
#include "data_object/i_data_object.h"

namespace integrity_check_tool {

// Where checks get the objects they look at (the Factory in a run).
class IDataObjectSource {
public:
    virtual ~IDataObjectSource() = default;
    virtual IDataObjectPtr CreateFile(const boost::filesystem::path& path) const = 0;
    virtual IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& keyPath,
                                          RegistryType expectedType) const = 0;
};

using IDataObjectSourcePtr = std::shared_ptr<const IDataObjectSource>;

}  // namespace integrity_check_tool
