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
