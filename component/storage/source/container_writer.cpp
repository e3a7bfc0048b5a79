#include "storage/container_writer.h"

#include <fstream>

#include <boost/filesystem/operations.hpp>

#include "container_name.h"
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
    const boost::filesystem::path target = directory / name;
    const boost::filesystem::path temporary =
        directory / boost::filesystem::unique_path("." + name + ".%%%%%%%%.tmp");
    {
        std::ofstream stream(temporary.string(), std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char*>(file.data()),
                     static_cast<std::streamsize>(file.size()));
        stream.close();
        if (!stream) {
            boost::filesystem::remove(temporary, error);
            return ruk::result::IoError;
        }
    }
    boost::filesystem::rename(temporary, target, error);
    if (error) {
        boost::filesystem::remove(temporary, error);
        return ruk::result::IoError;
    }
    return ruk::result::Success;
}

}  // namespace storage
