#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "ruk/result.h"
#include "storage/storage.h"

namespace storage {

// Writes the container `name` into `directory` (which must exist), replacing
// an existing one. The file is written beside its final name and renamed, so
// readers never see half a container.
ruk::result_t WriteContainer(const boost::filesystem::path& directory, const std::string& name,
                             const std::vector<std::uint8_t>& content, ContainerEncoding encoding);

}  // namespace storage
