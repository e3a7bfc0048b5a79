#include "container_name.h"

namespace storage::detail {

bool IsValidContainerName(const std::string& name) {
    if (name.empty() || name == "." || name == "..") {
        return false;
    }
    return name.find_first_of(std::string("/\\:\0", 4)) == std::string::npos;
}

}  // namespace storage::detail
