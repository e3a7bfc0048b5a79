// Preloaded into a program under test, this replaces one path by a symbolic
// link at the moment the program opens it, after whatever look at the path
// the program took before: the swap an attacker races for, made certain.
//
//   ICT_SWAP_PATH    the path exactly as the program passes it to open()
//   ICT_SWAP_TARGET  what the link points to (a FIFO, /dev/zero, ...)
//
// Only the first open of the path swaps; later opens see the link as it is.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

std::atomic<bool> gSwapped{false};

void SwapIfWatched(const char* path) {
    const char* watched = std::getenv("ICT_SWAP_PATH");
    const char* target = std::getenv("ICT_SWAP_TARGET");
    if (path == nullptr || watched == nullptr || target == nullptr ||
        std::strcmp(path, watched) != 0 || gSwapped.exchange(true)) {
        return;
    }
    ::unlink(path);
    if (::symlink(target, path) != 0) {
        std::abort();  // the test would prove nothing
    }
}

mode_t ModeOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

using OpenFunction = int (*)(const char*, int, ...);
using OpenAtFunction = int (*)(int, const char*, int, ...);

}  // namespace

// Each interceptor takes the mode only where open() reads one, swaps, and
// hands the call on to the C library's own function of its name.
#define ICT_SWAP_AND_CALL(Function, name, ...)     \
    va_list arguments;                             \
    va_start(arguments, flags);                    \
    const mode_t mode = ModeOf(flags, arguments);  \
    va_end(arguments);                             \
    SwapIfWatched(path);                           \
    static const auto next = Next<Function>(name); \
    return next(__VA_ARGS__, flags, mode)

extern "C" {

int open(const char* path, int flags, ...) {
    ICT_SWAP_AND_CALL(OpenFunction, "open", path);
}

int open64(const char* path, int flags, ...) {
    ICT_SWAP_AND_CALL(OpenFunction, "open64", path);
}

int openat(int directory, const char* path, int flags, ...) {
    ICT_SWAP_AND_CALL(OpenAtFunction, "openat", directory, path);
}

int openat64(int directory, const char* path, int flags, ...) {
    ICT_SWAP_AND_CALL(OpenAtFunction, "openat64", directory, path);
}

}  // extern "C"
