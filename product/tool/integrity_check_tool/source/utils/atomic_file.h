#pragma once

#include <functional>

#include <boost/filesystem/path.hpp>

#include "platform/file_replacement.h"
#include "ruk/io.h"

namespace integrity_check_tool {

// Replaces `target` as a whole or not at all. `write` fills a temporary file
// with a short name in the target's own folder (empty, positioned at 0); the
// temporary is then flushed, closed, given the owner, group and permissions
// of the file it replaces, and renamed over the target. With `expected`, the
// target must still be that very file, unchanged, just before the rename.
// On any failure the temporary is removed, the target is left byte for byte
// as it was, and Exception "Can't write file %1%. Reason: %2%" names the
// target. A target that is a symbolic link is written through to the file
// it names, and the link stays.
void WriteFileAtomically(const boost::filesystem::path& target,
                         const std::function<void(ruk::IIO&)>& write,
                         const platform::FileStamp* expected = nullptr);

}  // namespace integrity_check_tool
