#pragma once

#include "check/i_value_provider.h"
#include "tracer.h"

namespace integrity_check_tool::openssl {

// The GOST R 34.11-2012 256-bit digest of the object's bytes through
// OpenSSL's GOST engine, in the byte order `openssl dgst -md_gost12_256`
// prints.
class Gost2012Hash : public IValueProvider {
public:
    explicit Gost2012Hash(TracerPtr tracer);

    std::string GetName() const override;
    void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const override;

private:
    TracerPtr tracer_;
};

}  // namespace integrity_check_tool::openssl
