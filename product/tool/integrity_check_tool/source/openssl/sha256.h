#pragma once

#include "check/i_value_provider.h"

namespace integrity_check_tool::openssl {

// The SHA-256 digest (32 bytes) of the object's bytes, read in 1 MiB blocks.
// A failing read raises the framework's result exception.
class Sha256 : public IValueProvider {
public:
    std::string GetName() const override;
    void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const override;
};

}  // namespace integrity_check_tool::openssl
