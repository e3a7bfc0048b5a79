#include "utils/atomic_file.h"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "ruk/exception.h"
#include "ruk/file_replacement.h"

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

void CheckUnchanged(const fs::path& target, const platform::FileStamp& expected) {
    boost::optional<platform::FileStamp> now;
    RUK_CHECK(platform::GetFileStamp(target, &now));
    if (!now || *now != expected) {
        ICT_THROW(Exception(ChangedMeanwhile()));
    }
}

void Replace(const fs::path& target, const std::function<void(ruk::IIO&)>& write,
             const platform::FileStamp* expected) {
    ruk::FileReplacement replacement;
    const ruk::result_t created = replacement.Create(target);
    if (created == ruk::result::AlreadyExists) {
        ICT_THROW(Exception(NoTemporaryName()));
    }
    RUK_CHECK(created);
    write(replacement.Stream());
    RUK_CHECK(replacement.Close());  // closed before the rename: Windows cannot rename an open file

    const fs::path& temporary = replacement.TemporaryPath();
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
    const ruk::result_t renamed = replacement.Commit();
    if (ruk::Failed(renamed)) {
        // Told as the file system library tells a failed rename.
        throw fs::filesystem_error(
            "boost::filesystem::rename", temporary, target,
            boost::system::error_code(static_cast<int>(ruk::GetOsError(renamed)),
                                      boost::system::system_category()));
    }
}

}  // namespace

void WriteFileAtomically(const fs::path& target, const std::function<void(ruk::IIO&)>& write,
                         const platform::FileStamp* expected) {
    try {
        Replace(ResolveTarget(target), write, expected);
    } catch (...) {
        ICT_THROW(
            Exception(MessageFormat(CantWriteFile(), target.string(), CurrentExceptionText())));
    }
}

}  // namespace integrity_check_tool
