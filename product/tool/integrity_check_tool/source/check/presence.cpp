#include "check/presence.h"

#include "check/verification_mismatch.h"

namespace integrity_check_tool::check {

Presence::Presence(bool mustExist, TracerPtr tracer, IDataObjectSourcePtr source)
    : mustExist_(mustExist), tracer_(std::move(tracer)), source_(std::move(source)) {}

std::string Presence::GetName() const {
    return mustExist_ ? "Exists" : "NotExists";
}

void Presence::CheckFileValue(const boost::filesystem::path& path) const {
    tracer_->Trace(
        trace_level::Detail,
        mustExist_ ? "Checking existence of file %1% ..." : "Checking absence of file %1% ...",
        path.string());
    const bool exists = source_->CreateFile(path)->IsExists();
    const char* found = exists ? "File %1% exists" : "File %1% not exists.";
    if (exists != mustExist_) {
        ICT_THROW(VerificationMismatch(Kind(), MessageFormat(found, path.string())));
    }
    tracer_->Trace(trace_level::Detail, found, path.string());
}

void Presence::CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                                  RegistryType type) const {
    tracer_->Trace(trace_level::Detail,
                   mustExist_ ? "Checking existence of registry key %1% in %2% ..."
                              : "Checking absence of registry key %1% in %2% ...",
                   valueName, keyPath);
    const bool exists = source_->CreateRegistry(valueName, keyPath, type)->IsExists();
    const char* found =
        exists ? "Registry key %1% exists in %2%" : "Registry key %1% not exists in %2%";
    if (exists != mustExist_) {
        ICT_THROW(VerificationMismatch(Kind(), MessageFormat(found, valueName, keyPath)));
    }
    tracer_->Trace(trace_level::Detail, found, valueName, keyPath);
}

}  // namespace integrity_check_tool::check
