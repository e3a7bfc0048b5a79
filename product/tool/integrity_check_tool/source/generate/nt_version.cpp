#include "generate/nt_version.h"

#include <boost/regex.hpp>

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool::generate {
namespace {

const char* InvalidVersion() {
    return "Invalid version %1%: expected major.minor (10.0) or a number (1000)";
}

}  // namespace

std::uint32_t ParseNtVersion(const std::string& text) {
    static const boost::regex dotted("([0-9]{1,5})\\.([0-9]{1,2})");
    static const boost::regex decimal("[0-9]{1,9}");
    static const boost::regex hexadecimal("0[xX]([0-9a-fA-F]{1,8})");
    boost::smatch match;
    if (boost::regex_match(text, match, dotted)) {
        return static_cast<std::uint32_t>(std::stoul(match[1]) * 100 + std::stoul(match[2]));
    }
    if (boost::regex_match(text, match, hexadecimal)) {
        return static_cast<std::uint32_t>(std::stoul(match[1], nullptr, 16));
    }
    if (boost::regex_match(text, decimal)) {
        return static_cast<std::uint32_t>(std::stoul(text));
    }
    ICT_THROW(Exception(MessageFormat(InvalidVersion(), text)));
}

}  // namespace integrity_check_tool::generate
