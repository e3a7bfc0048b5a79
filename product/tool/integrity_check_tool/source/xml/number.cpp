#include <cctype>
#include <cstdio>

#include "common/exception.h"
#include "common/message_format.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

const char* InvalidNumber() {
    return "Invalid number: %1%";
}

bool HasHexPrefix(const char* text) {
    return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

std::uint32_t ReadNumber(const std::string& text) {
    const char* start = text.c_str();
    while (*start != '\0' && std::isspace(static_cast<unsigned char>(*start))) {
        ++start;
    }
    unsigned long long value = 0;
    if (std::sscanf(start, HasHexPrefix(start) ? "%llx" : "%llu", &value) != 1) {
        ICT_THROW(Exception(MessageFormat(InvalidNumber(), text)));
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace integrity_check_tool::xml
