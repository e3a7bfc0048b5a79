#include "check/exists.h"

#include "check/verification_mismatch.h"

namespace integrity_check_tool::check {
namespace {

const char* CheckingFile() {
    return "Checking existence of file %1% ...";
}
const char* FileExists() {
    return "File %1% exists";
}
const char* FileNotExists() {
    return "File %1% not exists.";
}
const char* CheckingRegistry() {
    return "Checking existence of registry key %1% in %2% ...";
}
const char* RegistryExists() {
    return "Registry key %1% exists in %2%";
}
const char* RegistryNotExists() {
    return "Registry key %1% not exists in %2%";
}

}  // namespace

Exists::Exists(TracerPtr tracer, IDataObjectSourcePtr source)
    : tracer_(std::move(tracer)), source_(std::move(source)) {}

std::string Exists::GetName() const {
    return "Exists";
}

void Exists::CheckFileValue(const boost::filesystem::path& path) const {
    tracer_->Trace(trace_level::Detail, CheckingFile(), path.string());
    if (!source_->CreateFile(path)->IsExists()) {
        ICT_THROW(
            VerificationMismatch(CheckType::Exists, MessageFormat(FileNotExists(), path.string())));
    }
    tracer_->Trace(trace_level::Detail, FileExists(), path.string());
}

void Exists::CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                                RegistryType type) const {
    tracer_->Trace(trace_level::Detail, CheckingRegistry(), valueName, keyPath);
    if (!source_->CreateRegistry(valueName, keyPath, type)->IsExists()) {
        ICT_THROW(VerificationMismatch(CheckType::Exists,
                                       MessageFormat(RegistryNotExists(), valueName, keyPath)));
    }
    tracer_->Trace(trace_level::Detail, RegistryExists(), valueName, keyPath);
}

}  // namespace integrity_check_tool::check
