#pragma once

#include <cstddef>
#include <string>

#include <boost/optional.hpp>

namespace integrity_check_tool {

// One match of the placeholder pattern "%([^%]+)%" in a text.
struct PlaceholderMatch {
    std::size_t begin = 0;     // the opening '%'
    std::size_t keyBegin = 0;  // the first character of the key
    std::size_t end = 0;       // one past the closing '%'

    std::size_t KeyLength() const { return end - 1 - keyBegin; }
};

// The leftmost match of "%([^%]+)%" at or after `from`, exactly as a regular
// expression search would find it ("%%" holds none, "%%A%" holds "%A%"),
// without the cost of a regular expression per path.
boost::optional<PlaceholderMatch> FindPlaceholder(const std::string& text, std::size_t from);

}  // namespace integrity_check_tool
