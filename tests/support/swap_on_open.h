#pragma once

#include <boost/filesystem/path.hpp>

#include "support/run_program.h"

namespace ict_test {

// Makes the program started with `options` find `path` replaced by a
// symbolic link to `target` at the moment it first opens it (POSIX only; a
// preloaded library does the swap). `path` must be given exactly as the
// program will pass it to open().
void SwapOnOpen(RunOptions& options, const boost::filesystem::path& path,
                const boost::filesystem::path& target);

// False where no preloaded library can do the swap (Windows).
bool CanSwapOnOpen();

}  // namespace ict_test
