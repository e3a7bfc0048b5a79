#pragma once

#include <ostream>

#include <boost/optional/optional_io.hpp>

#include "common/enumerations.h"

// Failed assertions name the enumeration values (alone or in an optional).
namespace integrity_check_tool {

#define ICT_TEST_PRINT_BY_NAME(Enum)                                 \
    inline std::ostream& operator<<(std::ostream& out, Enum value) { \
        return out << ToName(value);                                 \
    }
ICT_TEST_PRINT_BY_NAME(CheckType)
ICT_TEST_PRINT_BY_NAME(Bitness)
ICT_TEST_PRINT_BY_NAME(OsEdition)
ICT_TEST_PRINT_BY_NAME(Os)
ICT_TEST_PRINT_BY_NAME(Arch)
ICT_TEST_PRINT_BY_NAME(RegistryType)
#undef ICT_TEST_PRINT_BY_NAME

}  // namespace integrity_check_tool
