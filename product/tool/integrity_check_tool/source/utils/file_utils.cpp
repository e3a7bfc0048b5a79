#include "utils/file_utils.h"

#include "common/exception.h"
#include "common/message_format.h"
#include "ruk/io.h"
#include "utils/read_blocks.h"

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

constexpr std::size_t kBlockSize = 1024 * 1024;

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
    std::uint64_t size = 0;
    if (ruk::Succeeded(io->GetSize(&size)) && size < kBlockSize * 1024) {
        contents.reserve(static_cast<std::size_t>(size));
    }
    // Read to the end rather than trusting the size: the file may change meanwhile.
    result = ReadBlocks(*io, kBlockSize, [&contents](const std::uint8_t* data, std::size_t count) {
        contents.insert(contents.end(), data, data + count);
    });
    if (ruk::Failed(result)) {
        ThrowCantRead(path, ruk::GetResultText(result));
    }
    return contents;
}

}  // namespace integrity_check_tool
