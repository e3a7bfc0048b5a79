#pragma once

#include <regex>
#include <string>

#include <gmock/gmock.h>

namespace ict_test {

// True when the whole of `text` matches the ECMAScript regular expression.
// GoogleTest's own MatchesRegex uses a simple dialect without character
// classes on Windows; this one means the same on every system.
MATCHER_P(FullyMatches, pattern, "matches regular expression \"" + std::string(pattern) + "\"") {
    return std::regex_match(std::string(arg), std::regex(pattern));
}

// The same for a match anywhere in `text`.
MATCHER_P(ContainsMatch, pattern, "contains regular expression \"" + std::string(pattern) + "\"") {
    return std::regex_search(std::string(arg), std::regex(pattern));
}

}  // namespace ict_test
