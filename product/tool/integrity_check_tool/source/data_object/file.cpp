#include "data_object/file.h"

#include <boost/filesystem/operations.hpp>

#include "platform/file_replacement.h"
#include "platform/file_system.h"
#include "ruk/exception.h"

namespace integrity_check_tool::data_object {

const char* File::CantReadOrAccess() {
    return "Can't read or access file %1%. Reason: %2%";
}
const char* File::NotFound() {
    return "File %1% not found";
}

File::File(boost::filesystem::path path) : path_(std::move(path)) {}

std::string File::GetTypeName() const {
    return "File";
}

bool File::IsExists() const {
    return UnifyError([this] {
        const platform::FileSystemRedirectionGuard redirectionOff;
        boost::optional<platform::FileKind> kind;
        RUK_CHECK(platform::GetFileKind(path_, &kind));
        return kind == platform::FileKind::Regular;
    });
}

ruk::intrusive_ptr<ruk::IIO> File::GetData() const {
    return UnifyError([this] {
        const platform::FileSystemRedirectionGuard redirectionOff;
        // Opened first and judged by the open handle: a path swapped after an
        // existence check for a FIFO, a device or a link to one is not read.
        ruk::intrusive_ptr<ruk::IIO> io;
        const ruk::result_t opened = ruk::OpenFileIO(path_, ruk::OpenMode::Read, &io);
        if (ruk::IsFileMissing(opened) || ruk::IsNotRegularFile(opened)) {
            ICT_THROW(Exception(MessageFormat(NotFound(), path_.string())));
        }
        RUK_CHECK(opened);
        return io;
    });
}

}  // namespace integrity_check_tool::data_object
