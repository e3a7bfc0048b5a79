#include "data_object/file.h"

#include <boost/filesystem/operations.hpp>

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
        return boost::filesystem::status(path_).type() == boost::filesystem::regular_file;
    });
}

ruk::intrusive_ptr<ruk::IIO> File::GetData() const {
    return UnifyError([this] {
        const platform::FileSystemRedirectionGuard redirectionOff;
        if (!static_cast<const IDataObject&>(*this).IsExists()) {
            ICT_THROW(Exception(MessageFormat(NotFound(), path_.string())));
        }
        ruk::intrusive_ptr<ruk::IIO> io;
        RUK_CHECK(ruk::OpenFileIO(path_, ruk::OpenMode::Read, &io));
        return io;
    });
}

}  // namespace integrity_check_tool::data_object
