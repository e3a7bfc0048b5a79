#pragma once

#include <boost/filesystem/path.hpp>

#include "ruk/intrusive_ptr.h"
#include "ruk/io.h"

namespace ruk {

// A new content for a file that takes the file's place whole or not at all.
// It is written to a temporary file of its own, new and with a short name,
// in the target's folder (so that the rename stays on one volume and a long
// target name still leaves room); Close() puts it on disk, so that after a
// crash the target holds either its old content or the whole new one, and
// Commit() renames it over the target. Until then, and whenever a step
// fails, the destructor removes the temporary and the target stays as it was.
class FileReplacement {
public:
    FileReplacement() = default;
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;
    ~FileReplacement();

    // Creates the temporary, empty, open for reading and writing at 0.
    // result::AlreadyExists when no free name was found.
    result_t Create(const boost::filesystem::path& target);
    // The temporary's stream; valid between Create() and Close().
    IIO& Stream() { return *stream_; }
    const boost::filesystem::path& TemporaryPath() const { return temporary_; }
    // Flushes the content to disk and closes the temporary.
    result_t Close();
    // Renames the temporary, once closed without failure, over the target;
    // the system's error when it can't.
    result_t Commit();

private:
    boost::filesystem::path target_;
    boost::filesystem::path temporary_;
    intrusive_ptr<IIO> stream_;
    bool closed_ = false;  // flushed and closed
    bool committed_ = false;
};

}  // namespace ruk
