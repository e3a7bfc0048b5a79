#include "utils/file_utils.h"

#include <limits>

#include "common/exception.h"
#include "common/message_format.h"
#include "ruk/io.h"

namespace integrity_check_tool {
namespace {

const char* CantReadFile() {
    return "Can't read file %1%. Reason: %2%";
}
const char* NotRegularFile() {
    return "not a regular file";
}
const char* NotFound() {
    return "not found";
}

[[noreturn]] void ThrowCantRead(const boost::filesystem::path& path, const std::string& reason) {
    ICT_THROW(Exception(MessageFormat(CantReadFile(), path.string(), reason)));
}

}  // namespace

Bytes ReadWholeFile(const boost::filesystem::path& path) {
    // The type is judged on the opened handle (see OpenFileIO), never on an
    // earlier look at the path that a swap could outdate.
    ruk::intrusive_ptr<ruk::IIO> io;
    ruk::result_t result = ruk::OpenFileIO(path, ruk::OpenMode::Read, &io);
    if (ruk::IsFileMissing(result)) {
        ThrowCantRead(path, NotFound());
    }
    if (ruk::IsNotRegularFile(result)) {
        ThrowCantRead(path, NotRegularFile());
    }
    if (ruk::Failed(result)) {
        ThrowCantRead(path, ruk::GetResultText(result));
    }
    Bytes contents;
    result = ruk::ReadWhole(*io, std::numeric_limits<std::size_t>::max(), &contents);
    if (ruk::Failed(result)) {
        ThrowCantRead(path, ruk::GetResultText(result));
    }
    return contents;
}

}  // namespace integrity_check_tool
