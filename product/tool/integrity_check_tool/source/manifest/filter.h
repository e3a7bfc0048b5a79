#pragma once

#include <cstdint>
#include <string>

#include <boost/optional.hpp>

#include "common/enumerations.h"

namespace integrity_check_tool {

// Conditions under which a manifest record applies; unset means "any". One
// is held by every record, so it is kept small: the enumerations are a byte
// each, and an empty `defined` is no condition (the writer leaves it out).
struct Filter {
    boost::optional<Arch> arch;
    boost::optional<Os> os;
    boost::optional<OsEdition> osEdition;
    boost::optional<Bitness> bitness;
    boost::optional<std::uint32_t> minVersionNt;
    boost::optional<std::uint32_t> maxVersionNt;
    boost::optional<std::uint32_t> linuxKernelVersion;
    std::string defined;
};

}  // namespace integrity_check_tool
