#include "utils/atomic_file.h"

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "ruk/exception.h"

namespace integrity_check_tool {
namespace {

const char* CantWriteFile() {
    return "Can't write file %1%. Reason: %2%";
}

namespace fs = boost::filesystem;

fs::path ResolveTarget(const fs::path& target) {
    boost::system::error_code error;
    if (fs::is_symlink(fs::symlink_status(target, error))) {
        const fs::path resolved = fs::canonical(target, error);
        if (!error) {
            return resolved;
        }
    }
    return target;
}

// A name in the target's own folder, so that the rename never crosses volumes.
fs::path MakeTemporaryPath(const fs::path& target) {
    return target.parent_path() / fs::unique_path(target.filename().string() + ".%%%%-%%%%.tmp");
}

void WriteTemporary(const fs::path& temporary, const fs::path& target,
                    const std::function<void(ruk::IIO&)>& write) {
    ruk::intrusive_ptr<ruk::IIO> io;
    RUK_CHECK(ruk::OpenFileIO(temporary, ruk::OpenMode::CreateReadWrite, &io));
    write(*io);
    RUK_CHECK(io->Flush());
    io.reset();  // closed before the rename: Windows cannot rename an open file

    boost::system::error_code error;
    const auto status = fs::status(target, error);
    if (fs::is_regular_file(status)) {
        fs::permissions(temporary, status.permissions(), error);
    }
    fs::rename(temporary, target);
}

}  // namespace

void WriteFileAtomically(const fs::path& target, const std::function<void(ruk::IIO&)>& write) {
    const fs::path resolved = ResolveTarget(target);
    fs::path temporary;
    try {
        temporary = MakeTemporaryPath(resolved);
        WriteTemporary(temporary, resolved, write);
    } catch (...) {
        const std::string reason = CurrentExceptionText();
        if (!temporary.empty()) {
            boost::system::error_code ignored;
            fs::remove(temporary, ignored);
        }
        ICT_THROW(Exception(MessageFormat(CantWriteFile(), target.string(), reason)));
    }
}

}  // namespace integrity_check_tool
