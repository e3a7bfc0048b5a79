#include "action/display_version.h"

#include "common/message_format.h"
#include "common/version.h"

namespace integrity_check_tool::action {
namespace {

const char* VersionLine() {
    return "Version %1%";
}

}  // namespace

DisplayVersion::DisplayVersion(ConsoleOutputPtr output) : output_(std::move(output)) {}

std::string DisplayVersion::GetName() const {
    return "DisplayVersion";
}

bool DisplayVersion::Execute() {
    output_->Write(ConsoleOutput::Result, MessageFormat(VersionLine(), GetProductVersion()));
    return true;
}

}  // namespace integrity_check_tool::action
