#pragma once

#include <string>

#include <boost/regex.hpp>
#include <gmock/gmock.h>

namespace ict_test {

// True when the whole of `text` matches the Perl-style regular expression.
// GoogleTest's own MatchesRegex uses a simple dialect without character
// classes on Windows; this one means the same on every system.
MATCHER_P(FullyMatches, pattern, "matches regular expression \"" + std::string(pattern) + "\"") {
    return boost::regex_match(std::string(arg), boost::regex(pattern));
}

}  // namespace ict_test
