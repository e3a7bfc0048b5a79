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
    // Nothing is loaded yet: the library starts with the first evaluation, so
    // that a check that never runs (an any-of member after one that passed)
    // does not need the GOST engine, and one that does fails alone.
    explicit Gost2012Hash(TracerPtr tracer);
    ~Gost2012Hash() override;
    Gost2012Hash(const Gost2012Hash&) = delete;
    Gost2012Hash& operator=(const Gost2012Hash&) = delete;

    std::string GetName() const override;
    // A library that can't start raises dsvm::Exception "Can't initialize
    // DSVM2 library" saying that the GOST engine could not be loaded; a
    // failing read raises the stream's ruk::ResultException; a failing digest
    // raises dsvm::Exception "Can't calculate hash".
    void Evaluate(const IDataObject& object, std::vector<std::uint8_t>& value) const override;

private:
    void Initialize() const;

    // Kept like every provider's tracer; the digest itself has nothing to trace.
    [[maybe_unused]] TracerPtr tracer_;
    mutable bool initialized_ = false;
};

}  // namespace integrity_check_tool::dsvm
