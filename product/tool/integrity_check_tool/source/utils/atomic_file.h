#pragma once

#include <functional>

#include <boost/filesystem/path.hpp>

#include "ruk/io.h"

namespace integrity_check_tool {

// Replaces `target` as a whole or not at all. `write` fills a temporary file
// beside the target (empty, positioned at 0); the temporary is then flushed,
// closed and renamed over the target, keeping the target's permissions. On
// any failure the temporary is removed, the target is left byte for byte as
// it was, and Exception "Can't write file %1%. Reason: %2%" names the target.
// A target that is a symbolic link is written through to the file it names.
void WriteFileAtomically(const boost::filesystem::path& target,
                         const std::function<void(ruk::IIO&)>& write);

}  // namespace integrity_check_tool
