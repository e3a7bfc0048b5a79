#include "support/swap_on_open.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace ict_test {

bool CanSwapOnOpen() {
#ifdef ICT_SWAP_ON_OPEN_LIBRARY
    return true;
#else
    return false;
#endif
}

void SwapOnOpen(RunOptions& options, const boost::filesystem::path& path,
                const boost::filesystem::path& target) {
#ifdef ICT_SWAP_ON_OPEN_LIBRARY
    options.environment["LD_PRELOAD"] = ICT_SWAP_ON_OPEN_LIBRARY;
    options.environment["ICT_SWAP_PATH"] = path.string();
    options.environment["ICT_SWAP_TARGET"] = target.string();
    // A sanitizer runtime insists on coming first among the preloaded
    // libraries; the swap library intercepts nothing it needs.
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] =
        std::string(sanitizer != nullptr ? sanitizer : "") + ":verify_asan_link_order=0";
#else
    (void)options;
    throw std::runtime_error("Can't swap " + path.string() + " for " + target.string() +
                             " on this system");
#endif
}

}  // namespace ict_test
