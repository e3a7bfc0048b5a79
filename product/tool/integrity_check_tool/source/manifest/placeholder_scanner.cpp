#include "manifest/placeholder_scanner.h"

namespace integrity_check_tool {

boost::optional<PlaceholderMatch> FindPlaceholder(const std::string& text, std::size_t from) {
    std::size_t open = text.find('%', from);
    while (open != std::string::npos) {
        const std::size_t close = text.find('%', open + 1);
        if (close == std::string::npos) {
            return boost::none;
        }
        if (close > open + 1) {
            return PlaceholderMatch{open, open + 1, close + 1};
        }
        // "%%": an empty key; the second '%' may open the next match.
        open = close;
    }
    return boost::none;
}

}  // namespace integrity_check_tool
