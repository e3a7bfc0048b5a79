#pragma once

#include <cstddef>

#include "check/i_value_provider.h"

namespace integrity_check_tool::check {

// "Raw": every byte of the object's stream, in order.
class RawValueProvider : public IValueProvider {
public:
    // The longest value it gives. A manifest (at most 256 MiB of text) can't
    // hold a longer one in base64, and a 32-bit process can't hold a much
    // longer one together with its hexadecimal form.
    static constexpr std::size_t kMaxSize = 64 * 1024 * 1024;

    std::string GetName() const override;
    // A longer object fails with "The value is %1% bytes long; a Value holds
    // at most %2% bytes" before it is read.
    void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const override;
};

}  // namespace integrity_check_tool::check
