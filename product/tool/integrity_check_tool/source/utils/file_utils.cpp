#include "utils/file_utils.h"

#include <boost/filesystem/operations.hpp>

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
    boost::system::error_code error;
    const auto status = boost::filesystem::status(path, error);
    if (status.type() == boost::filesystem::file_not_found) {
        ThrowCantRead(path, NotFound());
    }
    if (error) {
        ThrowCantRead(path, error.message());
    }
    // A FIFO or device could block or never end.
    if (status.type() != boost::filesystem::regular_file) {
        ThrowCantRead(path, NotRegularFile());
    }

    ruk::intrusive_ptr<ruk::IIO> io;
    ruk::result_t result = ruk::OpenFileIO(path, ruk::OpenMode::Read, &io);
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
