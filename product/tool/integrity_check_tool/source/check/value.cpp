#include "check/value.h"

#include "check/stream_compare.h"
#include "check/verification_mismatch.h"

namespace integrity_check_tool::check {
namespace {

const char* CheckingFile() {
    return "Checking value of file %1% ...";
}
const char* FileExpected() {
    return "File %1% has expected value";
}
const char* FileUnexpected() {
    return "File %1% has unexpected value";
}
const char* CheckingRegistry() {
    return "Checking registry key %1% in %2% ...";
}
const char* RegistryExpected() {
    return "Registry key %1% in %2% has expected value";
}
const char* RegistryUnexpected() {
    return "Registry key %1% in %2% has unexpected value";
}

}  // namespace

Value::Value(TracerPtr tracer, IDataObjectSourcePtr source, std::vector<std::uint8_t> expected)
    : tracer_(std::move(tracer)), source_(std::move(source)), expected_(std::move(expected)) {}

std::string Value::GetName() const {
    return "Value";
}

void Value::CheckFileValue(const boost::filesystem::path& path) const {
    tracer_->Trace(trace_level::Detail, CheckingFile(), path.string());
    if (!StreamHolds(*source_->CreateFile(path)->GetData(), expected_)) {
        ICT_THROW(
            VerificationMismatch(CheckType::Value, MessageFormat(FileUnexpected(), path.string())));
    }
    tracer_->Trace(trace_level::Detail, FileExpected(), path.string());
}

void Value::CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                               RegistryType type) const {
    tracer_->Trace(trace_level::Detail, CheckingRegistry(), valueName, keyPath);
    if (!StreamHolds(*source_->CreateRegistry(valueName, keyPath, type)->GetData(), expected_)) {
        ICT_THROW(VerificationMismatch(CheckType::Value,
                                       MessageFormat(RegistryUnexpected(), valueName, keyPath)));
    }
    tracer_->Trace(trace_level::Detail, RegistryExpected(), valueName, keyPath);
}

}  // namespace integrity_check_tool::check
