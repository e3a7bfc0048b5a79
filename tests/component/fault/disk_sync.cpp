#include "disk_sync.h"

#if defined(__linux__)
#include <dlfcn.h>
#include <sys/stat.h>

#include <atomic>
#include <cstddef>

namespace fault_test {
namespace {

struct FileId {
    dev_t device;
    ino_t index;
};

// A fixed table: noting a sync must not allocate, or it would disturb the
// allocation counting of the other tests in this program.
constexpr std::size_t kMostSyncs = 256;
FileId synced[kMostSyncs];
std::atomic<std::size_t> syncCount{0};

void Note(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        return;
    }
    const std::size_t slot = syncCount.fetch_add(1);
    if (slot < kMostSyncs) {
        synced[slot] = {info.st_dev, info.st_ino};
    }
}

template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

void ForgetDiskSyncs() {
    syncCount = 0;
}

bool WasSyncedToDisk(const boost::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return false;
    }
    const std::size_t count = std::min(syncCount.load(), kMostSyncs);
    for (std::size_t index = 0; index < count; ++index) {
        if (synced[index].device == info.st_dev && synced[index].index == info.st_ino) {
            return true;
        }
    }
    return false;
}

}  // namespace fault_test

using SyncFunction = int (*)(int);

extern "C" int fsync(int fd) {
    static const auto next = fault_test::Next<SyncFunction>("fsync");
    fault_test::Note(fd);
    return next(fd);
}

extern "C" int fdatasync(int fd) {
    static const auto next = fault_test::Next<SyncFunction>("fdatasync");
    fault_test::Note(fd);
    return next(fd);
}

#endif
