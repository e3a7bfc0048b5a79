#pragma once

#include <string>

#include "common/enumerations.h"

namespace integrity_check_tool {

// Converts an option's text through the enumeration's name table; an unknown
// name throws Exception "Invalid name: %1%".
template <typename Enum>
Enum ParseOptionValue(const std::string& text) {
    return FromName<Enum>(text);
}

// The enumeration's names in value order, joined by " | ".
template <typename Enum>
std::string JoinNames() {
    std::string joined;
    for (const char* name : NamedValuesOf<Enum>::Get().names) {
        if (!joined.empty()) {
            joined += " | ";
        }
        joined += name;
    }
    return joined;
}

}  // namespace integrity_check_tool
