#include "check_cache.h"

#include <map>
#include <mutex>

namespace vds::core {
namespace {

// Few distinct roots and CRLs exist in one process; the bound only keeps a
// stream of odd inputs from growing the map without end.
constexpr std::size_t kMaxEntries = 256;

std::mutex& CacheMutex() {
    static std::mutex mutex;
    return mutex;
}

std::map<std::string, bool>& Cache() {
    static std::map<std::string, bool> cache;
    return cache;
}

}  // namespace

bool CachedCheck(const std::string& key, const std::function<bool()>& check) {
    {
        std::lock_guard<std::mutex> lock(CacheMutex());
        const auto found = Cache().find(key);
        if (found != Cache().end()) {
            return found->second;
        }
    }
    const bool outcome = check();
    std::lock_guard<std::mutex> lock(CacheMutex());
    if (Cache().size() >= kMaxEntries) {
        Cache().clear();
    }
    Cache().emplace(key, outcome);
    return outcome;
}

}  // namespace vds::core
