#include <boost/filesystem/operations.hpp>

#include "compressed_container.h"
#include "container_name.h"
#include "raw_container.h"
#include "ruk/io.h"
#include "storage/container_format.h"
#include "storage/storage.h"

namespace storage {
namespace {

class DirectoryStorage : public IStorage {
public:
    explicit DirectoryStorage(boost::filesystem::path directory)
        : directory_(std::move(directory)) {}

    ruk::result_t OpenContainer(const std::string& name, IContainerPtr* container) override {
        if (container == nullptr || !detail::IsValidContainerName(name)) {
            return ruk::result::InvalidArgument;
        }
        const boost::filesystem::path path = directory_ / name;
        boost::system::error_code error;
        const auto status = boost::filesystem::status(path, error);
        if (status.type() == boost::filesystem::file_not_found) {
            return ruk::result::NotFound;
        }
        if (status.type() != boost::filesystem::regular_file) {
            return error ? ruk::MakeOsResult(static_cast<std::uint32_t>(error.value()))
                         : ruk::result::InvalidArgument;
        }
        ruk::intrusive_ptr<ruk::IIO> io;
        const ruk::result_t code = ruk::OpenFileIO(path, ruk::OpenMode::Read, &io);
        if (ruk::Failed(code)) {
            return code;
        }
        return OpenContainerFromStream(io, container);
    }

private:
    boost::filesystem::path directory_;
};

}  // namespace

ruk::result_t OpenContainerFromStream(ruk::intrusive_ptr<ruk::IIO> io, IContainerPtr* container) {
    if (!io || container == nullptr) {
        return ruk::result::InvalidArgument;
    }
    ruk::result_t code = io->Seek(0, ruk::SeekOrigin::Begin, nullptr);
    if (ruk::Failed(code)) {
        return code;
    }
    std::uint64_t fileSize = 0;
    code = io->GetSize(&fileSize);
    if (ruk::Failed(code)) {
        return code;
    }
    std::uint8_t prefix[format::kHeaderSize] = {};
    std::size_t prefixSize = 0;
    code = ruk::ReadFully(*io, prefix, sizeof(prefix), &prefixSize);
    if (ruk::Failed(code)) {
        return code;
    }
    format::Header header;
    code = format::ParseHeader(prefix, prefixSize, fileSize, &header);
    if (ruk::Failed(code)) {
        return code;
    }
    if (header.encoding == ContainerEncoding::Raw) {
        code = io->Seek(0, ruk::SeekOrigin::Begin, nullptr);
        if (ruk::Failed(code)) {
            return code;
        }
        *container = ruk::MakeIntrusive<detail::RawContainer>(io, header.contentSize);
    } else {
        *container = ruk::MakeIntrusive<detail::CompressedContainer>(io, header.contentSize);
    }
    return ruk::result::Success;
}

ruk::result_t OpenDirectoryStorage(const boost::filesystem::path& directory, IStoragePtr* storage) {
    if (storage == nullptr) {
        return ruk::result::InvalidArgument;
    }
    boost::system::error_code error;
    const auto status = boost::filesystem::status(directory, error);
    if (status.type() == boost::filesystem::file_not_found) {
        return ruk::result::NotFound;
    }
    if (status.type() != boost::filesystem::directory_file) {
        return error ? ruk::MakeOsResult(static_cast<std::uint32_t>(error.value()))
                     : ruk::result::InvalidArgument;
    }
    *storage = ruk::MakeIntrusive<DirectoryStorage>(directory);
    return ruk::result::Success;
}

}  // namespace storage
