#include "command.h"

#include <iostream>

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool::signer {
namespace {

const char* Signed() {
    return "Signed %1%";
}
const char* Failed() {
    return "integrity_signer: %1%";
}

}  // namespace

std::vector<Command> GetCommands() {
    return {
#define ICT_SIGNER_COMMAND(Name) Name##Command(),
#include "command_list.h"
#undef ICT_SIGNER_COMMAND
    };
}

int SignEach(const std::vector<std::string>& files,
             const std::function<void(const boost::filesystem::path&)>& sign) {
    int exitCode = 0;
    for (const auto& file : files) {
        try {
            sign(boost::filesystem::path(file));
            std::cout << MessageFormat(Signed(), file) << std::endl;
        } catch (...) {
            std::cerr << MessageFormat(Failed(), CurrentExceptionText()) << std::endl;
            exitCode = 1;
        }
    }
    return exitCode;
}

}  // namespace integrity_check_tool::signer
