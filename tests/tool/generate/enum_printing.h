#pragma once

#include <ostream>

#include <boost/optional/optional_io.hpp>

#include "common/enumerations.h"

// Lets assertions print the named enumerations (alone or inside an optional)
// by name when they fail.
namespace integrity_check_tool {

inline std::ostream& operator<<(std::ostream& stream, Arch value) {
    return stream << ToName(value);
}
inline std::ostream& operator<<(std::ostream& stream, Os value) {
    return stream << ToName(value);
}
inline std::ostream& operator<<(std::ostream& stream, OsEdition value) {
    return stream << ToName(value);
}
inline std::ostream& operator<<(std::ostream& stream, Bitness value) {
    return stream << ToName(value);
}
inline std::ostream& operator<<(std::ostream& stream, CheckType value) {
    return stream << ToName(value);
}
inline std::ostream& operator<<(std::ostream& stream, RegistryType value) {
    return stream << ToName(value);
}

}  // namespace integrity_check_tool
