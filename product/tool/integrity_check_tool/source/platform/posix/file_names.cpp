#include "platform/file_names.h"

namespace integrity_check_tool::platform {

boost::filesystem::path::string_type FileNameKey(const boost::filesystem::path& path) {
    return path.native();
}

}  // namespace integrity_check_tool::platform
