#pragma once

#include <memory>
#include <string>

#include "ruk/intrusive_ptr.h"
#include "ruk/io.h"

namespace integrity_check_tool {

// The thing a check looks at: a file or one registry value.
class IDataObject {
public:
    virtual ~IDataObject() = default;
    virtual std::string GetTypeName() const = 0;
    virtual bool IsExists() const = 0;
    // A readable stream of the object's bytes, positioned at its start.
    virtual ruk::intrusive_ptr<ruk::IIO> GetData() const = 0;
};

using IDataObjectPtr = std::shared_ptr<IDataObject>;

}  // namespace integrity_check_tool
