#pragma once

#include "check/i_value_provider.h"

namespace integrity_check_tool::check {

// "Raw": every byte of the object's stream, in order.
class RawValueProvider : public IValueProvider {
public:
    std::string GetName() const override;
    void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const override;
};

}  // namespace integrity_check_tool::check
