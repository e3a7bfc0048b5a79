#pragma once

#include <string>

#include <boost/format.hpp>

namespace integrity_check_tool {

// Fills a message template ("%1%", "%2%", ... in order) with Boost.Format.
// Too many or too few arguments surface as Boost.Format's exceptions: a
// template and its call site must agree.
template <typename... Args>
std::string MessageFormat(const char* format, const Args&... args) {
    boost::format formatter(format);
    ((void)(formatter % args), ...);
    return formatter.str();
}

}  // namespace integrity_check_tool
