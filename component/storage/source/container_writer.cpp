#include "storage/container_writer.h"

#include <boost/filesystem/operations.hpp>

#include "container_name.h"
#include "ruk/file_replacement.h"
#include "storage/container_format.h"

namespace storage {

ruk::result_t WriteContainer(const boost::filesystem::path& directory, const std::string& name,
                             const std::vector<std::uint8_t>& content, ContainerEncoding encoding) {
    if (!detail::IsValidContainerName(name)) {
        return ruk::result::InvalidArgument;
    }
    boost::system::error_code error;
    if (!boost::filesystem::is_directory(directory, error)) {
        return ruk::result::NotFound;
    }
    std::vector<std::uint8_t> file;
    ruk::result_t code = format::EncodeContainer(content, encoding, &file);
    if (ruk::Failed(code)) {
        return code;
    }
    // Put on disk before it takes the old container's place: a crash right
    // after the rename must not leave an empty container behind.
    ruk::FileReplacement replacement;
    std::size_t written = 0;
    if (ruk::Failed(replacement.Create(directory / name)) ||
        ruk::Failed(replacement.Stream().Write(file.data(), file.size(), &written)) ||
        ruk::Failed(replacement.Close()) || ruk::Failed(replacement.Commit())) {
        return ruk::result::IoError;
    }
    return ruk::result::Success;
}

}  // namespace storage
