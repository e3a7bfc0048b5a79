#include "action/check_single_file.h"

#include <cstdint>
#include <vector>

#include "check/hex.h"
#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool::action {
namespace {

const char* CheckingFile() {
    return "Checking file %1% ...";
}
const char* FileValue() {
    return "%1%";
}
const char* CheckFailed() {
    return "Checking file %1% failed. Reason: %2%";
}

}  // namespace

CheckSingleFile::CheckSingleFile(SingleFileCheckSettings settings, TracerPtr tracer,
                                 IFactoryPtr factory, ConsoleOutputPtr output)
    : settings_(std::move(settings)),
      tracer_(std::move(tracer)),
      factory_(std::move(factory)),
      output_(std::move(output)) {}

std::string CheckSingleFile::GetName() const {
    return "CheckSingleFile";
}

bool CheckSingleFile::Execute() {
    const std::string path = settings_.filePath.string();
    tracer_->Trace(trace_level::Detail, CheckingFile(), path);
    try {
        const IValueProviderPtr provider = factory_->CreateValueProvider(settings_.checkType);
        const IDataObjectPtr file = factory_->CreateFile(settings_.filePath);
        std::vector<std::uint8_t> value;
        provider->Evaluate(*file, value);
        output_->Write(ConsoleOutput::Result, MessageFormat(FileValue(), check::ToHex(value)));
    } catch (...) {
        output_->Write(ConsoleOutput::Error,
                       MessageFormat(CheckFailed(), path, CurrentExceptionText()));
        return false;
    }
    return true;
}

}  // namespace integrity_check_tool::action
