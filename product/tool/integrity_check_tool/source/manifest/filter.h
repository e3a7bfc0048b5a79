#pragma once

#include <cstdint>
#include <string>

#include <boost/optional.hpp>

#include "common/enumerations.h"

namespace integrity_check_tool {

// Conditions under which a manifest record applies; unset means "any".
struct Filter {
    boost::optional<Arch> arch;
    boost::optional<Os> os;
    boost::optional<OsEdition> osEdition;
    boost::optional<Bitness> bitness;
    boost::optional<std::uint32_t> minVersionNt;
    boost::optional<std::uint32_t> maxVersionNt;
    boost::optional<std::uint32_t> linuxKernelVersion;
    boost::optional<std::string> defined;
};

}  // namespace integrity_check_tool
