#include "action/verify.h"

#include "action/object_checkers.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/manifest_operations.h"

namespace integrity_check_tool::action {
namespace {

const char* Verifying() {
    return "Verifying %1% ...";
}
const char* VerificationCompleted() {
    return "Verification of %1% completed";
}
const char* VerificationFailed() {
    return "Verification of %1% %2% failed";
}

std::string Describe(const char* word, const std::string& name) {
    return std::string(word) + " " + name;
}

}  // namespace

Verify::Verify(VerifySettings settings, TracerPtr tracer, IFactoryPtr factory,
               RunStatisticsPtr statistics)
    : ManifestAction(std::move(settings), std::move(tracer), std::move(factory),
                     std::move(statistics)) {}

std::string Verify::GetName() const {
    return "Verify";
}

void Verify::Process() {
    LoadedManifests loaded = LoadRunManifests();
    tracer_->Trace(trace_level::Detail, Verifying(),
                   Describe(object_word::Manifest, manifestName_));

    CountFiltered(loaded.filtered, *statistics_);
    // Both walks run whatever the first one gives.
    const bool filesPassed = VerifyFiles(*loaded.manifest);
    const bool registriesPassed = VerifyRegistries(*loaded.manifest);
    if (!filesPassed || !registriesPassed) {
        ICT_THROW(
            Exception(MessageFormat(VerificationFailed(), object_word::Manifest, manifestName_)));
    }
}

bool Verify::VerifyFiles(const Manifest& manifest) {
    bool allPassed = true;
    for (const auto& entry : manifest.files) {
        const FileInfo& file = *entry.second;
        const std::string name = file.path.string();
        allPassed &= statistics_->Run(Files, object_word::File, name, [&] {
            const std::string described = Describe(object_word::File, name);
            tracer_->Trace(trace_level::Detail, Verifying(), described);
            CreateObjectFileChecker(*factory_, file.checks)->CheckFileValue(file.path);
            tracer_->Trace(trace_level::Detail, VerificationCompleted(), described);
        });
    }
    return allPassed;
}

bool Verify::VerifyRegistries(const Manifest& manifest) {
    bool allPassed = true;
    for (const auto& key : manifest.registries) {
        allPassed &= statistics_->Run(Registries, object_word::RegistryPath, key->path,
                                      [&] { VerifyRegistryKey(*key); });
    }
    return allPassed;
}

void Verify::VerifyRegistryKey(const RegistryInfo& key) {
    const std::string described = Describe(object_word::RegistryPath, key.path);
    tracer_->Trace(trace_level::Detail, Verifying(), described);
    bool allPassed = true;
    for (const auto& value : key.values) {
        allPassed &= statistics_->Run(RegistryValues, object_word::RegistryValue, value->name, [&] {
            const std::string valueDescribed = Describe(object_word::RegistryValue, value->name);
            tracer_->Trace(trace_level::Detail, Verifying(), valueDescribed);
            CreateObjectRegistryChecker(*factory_, value->checks)
                ->CheckRegistryValue(key.path, value->name, value->type);
            tracer_->Trace(trace_level::Detail, VerificationCompleted(), valueDescribed);
        });
    }
    if (!allPassed) {
        ICT_THROW(
            Exception(MessageFormat(VerificationFailed(), object_word::RegistryPath, key.path)));
    }
    tracer_->Trace(trace_level::Detail, VerificationCompleted(), described);
}

}  // namespace integrity_check_tool::action
