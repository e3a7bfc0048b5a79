#include "platform/program.h"

#include <boost/dll/runtime_symbol_info.hpp>

#include "build_info.h"
#include "ruk/exception.h"

namespace integrity_check_tool::platform {

boost::filesystem::path GetProgramLocation() {
    boost::system::error_code error;
    boost::filesystem::path location = boost::dll::program_location(error);
    if (error) {
        RUK_THROW_RESULT(ruk::MakeOsResult(static_cast<std::uint32_t>(error.value())));
    }
    return location;
}

// There is no version resource here: the build's version is the product version.
std::string ReadProductVersion() {
    return ICT_PRODUCT_VERSION;
}

}  // namespace integrity_check_tool::platform
