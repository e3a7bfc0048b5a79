#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "data_object/i_data_object.h"

namespace integrity_check_tool {

// Turns a data object into the bytes a check compares: nothing, the raw
// bytes or a digest of them.
class IValueProvider {
public:
    virtual ~IValueProvider() = default;
    virtual std::string GetName() const = 0;
    // Replaces the contents of `value`.
    virtual void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const = 0;
};

using IValueProviderPtr = std::shared_ptr<IValueProvider>;

}  // namespace integrity_check_tool
