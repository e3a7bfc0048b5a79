#include "action/verify.h"

#include <set>

#include "action/manifest_loading.h"
#include "action/object_checkers.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "system_info.h"

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

Verify::Verify(VerifySettings settings, TracerPtr tracer, std::shared_ptr<const Factory> factory,
               RunStatisticsPtr statistics)
    : ManifestAction(std::move(settings), std::move(tracer), std::move(factory),
                     std::move(statistics)) {}

std::string Verify::GetName() const {
    return "Verify";
}

void Verify::Process() {
    const SystemInfo system(
        std::set<std::string>(settings_.definitions.begin(), settings_.definitions.end()));
    const FilterEvaluator filter(tracer_, system);
    const ManifestPtr manifest = LoadManifests(settings_.manifestPaths, tracer_, filter);
    if (settings_.singleFilePath) {
        SelectSingleFile(*manifest, *settings_.singleFilePath, manifestName_, *tracer_);
    }
    tracer_->Trace(trace_level::Detail, Verifying(),
                   Describe(object_word::Manifest, manifestName_));
    // Both walks run whatever the first one gives.
    const bool filesPassed = VerifyFiles(*manifest, filter);
    const bool registriesPassed = VerifyRegistries(*manifest, filter);
    if (!filesPassed || !registriesPassed) {
        ICT_THROW(
            Exception(MessageFormat(VerificationFailed(), object_word::Manifest, manifestName_)));
    }
}

bool Verify::VerifyFiles(const Manifest& manifest, const FilterEvaluator& filter) {
    bool allPassed = true;
    for (const auto& entry : manifest.files) {
        const FileInfo& file = *entry.second;
        const std::string name = file.path.string();
        if (filter.IsFiltered(file.filter, GetPrintableName(file))) {
            statistics_->Skip(Files, object_word::File, name);
            continue;
        }
        allPassed &= statistics_->Run(Files, object_word::File, name, [&] {
            const std::string described = Describe(object_word::File, name);
            tracer_->Trace(trace_level::Detail, Verifying(), described);
            CreateObjectFileChecker(*factory_, file.checks)->CheckFileValue(file.path);
            tracer_->Trace(trace_level::Detail, VerificationCompleted(), described);
        });
    }
    return allPassed;
}

bool Verify::VerifyRegistries(const Manifest& manifest, const FilterEvaluator& filter) {
    bool allPassed = true;
    for (const auto& key : manifest.registries) {
        if (filter.IsFiltered(key->filter, key->path)) {
            statistics_->Skip(Registries, object_word::RegistryPath, key->path);
            continue;
        }
        allPassed &= statistics_->Run(Registries, object_word::RegistryPath, key->path,
                                      [&] { VerifyRegistryKey(*key, filter); });
    }
    return allPassed;
}

void Verify::VerifyRegistryKey(const RegistryInfo& key, const FilterEvaluator& filter) {
    const std::string described = Describe(object_word::RegistryPath, key.path);
    tracer_->Trace(trace_level::Detail, Verifying(), described);
    bool allPassed = true;
    for (const auto& value : key.values) {
        if (filter.IsFiltered(value->filter, GetPrintableName(*value))) {
            statistics_->Skip(RegistryValues, object_word::RegistryValue, value->name);
            continue;
        }
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
