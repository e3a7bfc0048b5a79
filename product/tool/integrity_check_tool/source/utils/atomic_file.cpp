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
const char* ChangedMeanwhile() {
    return "it was changed or replaced by someone else meanwhile";
}
const char* CantKeepOwnership() {
    return "the new file can't get the owner and permissions of the old one: %1%";
}
const char* NoTemporaryName() {
    return "no free name for a temporary file in its folder";
}

namespace fs = boost::filesystem;

// Tries before giving up on finding a free temporary name.
constexpr int kNameAttempts = 16;

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

// A short name in the target's own folder, so that the rename never crosses
// volumes and a target whose name is as long as a name may be still gets one.
fs::path CreateTemporary(const fs::path& target) {
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const fs::path candidate = folder / fs::unique_path(".ict-%%%%%%%%.tmp");
        const ruk::result_t created = platform::CreateNewFile(candidate);
        if (ruk::Succeeded(created)) {
            return candidate;
        }
        if (created != ruk::result::AlreadyExists) {
            RUK_THROW_RESULT(created);
        }
    }
    ICT_THROW(Exception(NoTemporaryName()));
}

void CheckUnchanged(const fs::path& target, const platform::FileStamp& expected) {
    boost::optional<platform::FileStamp> now;
    RUK_CHECK(platform::GetFileStamp(target, &now));
    if (!now || *now != expected) {
        ICT_THROW(Exception(ChangedMeanwhile()));
    }
}

void Replace(const fs::path& temporary, const fs::path& target,
             const std::function<void(ruk::IIO&)>& write, const platform::FileStamp* expected) {
    {
        ruk::intrusive_ptr<ruk::IIO> io;
        RUK_CHECK(ruk::OpenFileIO(temporary, ruk::OpenMode::ReadWrite, &io));
        write(*io);
        RUK_CHECK(io->Flush());
    }  // closed before the rename: Windows cannot rename an open file

    boost::system::error_code error;
    if (fs::is_regular_file(fs::status(target, error))) {
        const ruk::result_t kept = platform::CopyOwnership(target, temporary);
        if (ruk::Failed(kept)) {
            ICT_THROW(Exception(MessageFormat(CantKeepOwnership(), ruk::GetResultText(kept))));
        }
    }
    if (expected != nullptr) {
        CheckUnchanged(target, *expected);
    }
    fs::rename(temporary, target);
}

}  // namespace

void WriteFileAtomically(const fs::path& target, const std::function<void(ruk::IIO&)>& write,
                         const platform::FileStamp* expected) {
    const fs::path resolved = ResolveTarget(target);
    fs::path temporary;
    try {
        temporary = CreateTemporary(resolved);
        Replace(temporary, resolved, write, expected);
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
