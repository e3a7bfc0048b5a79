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

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    SwapIfWatched(path);
    static const auto next = Next<OpenFunction>("open");
    return next(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    SwapIfWatched(path);
    static const auto next = Next<OpenFunction>("open64");
    return next(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    SwapIfWatched(path);
    static const auto next = Next<OpenAtFunction>("openat");
    return next(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    SwapIfWatched(path);
    static const auto next = Next<OpenAtFunction>("openat64");
    return next(directory, path, flags, mode);
}

}  // extern "C"
