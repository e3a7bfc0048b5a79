#pragma once

#include "check/i_value_provider.h"
#include "dsvm/gost2012.h"
#include "tracer.h"

namespace integrity_check_tool::dsvm {

// "Gost2012Hash": the GOST R 34.11-2012 256-bit digest of every byte of the
// object, computed through the DSVM2 library, in the byte order
// `openssl dgst -md_gost12_256` prints.
class Gost2012Hash : public IValueProvider {
public:
    // Throws dsvm::Exception "Can't initialize DSVM2 library".
    explicit Gost2012Hash(TracerPtr tracer);
    ~Gost2012Hash() override;
    Gost2012Hash(const Gost2012Hash&) = delete;
    Gost2012Hash& operator=(const Gost2012Hash&) = delete;

    std::string GetName() const override;
    // A failing read raises the stream's ruk::ResultException; a failing
    // digest raises dsvm::Exception "Can't calculate hash".
    void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const override;

private:
    // Kept like every provider's tracer; the digest itself has nothing to trace.
    [[maybe_unused]] TracerPtr tracer_;
};

}  // namespace integrity_check_tool::dsvm
