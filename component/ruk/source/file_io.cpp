#include "platform/platform.h"
#include "ruk/io.h"

namespace ruk {

result_t OpenFileIO(const boost::filesystem::path& path, OpenMode mode, intrusive_ptr<IIO>* io) {
    if (io == nullptr) {
        return result::InvalidArgument;
    }
    return platform::OpenFile(path, mode, io);
}

}  // namespace ruk

namespace ruk {

bool IsFileMissing(result_t code) {
    return IsOsResult(code) && platform::IsMissingError(GetOsError(code));
}

bool IsNotRegularFile(result_t code) {
    return code == result::NotRegularFile ||
           (IsOsResult(code) && platform::IsFolderError(GetOsError(code)));
}

}  // namespace ruk
