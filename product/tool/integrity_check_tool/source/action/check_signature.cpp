#include "action/check_signature.h"

#include <set>

#include "action/manifest_loading.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "system_info.h"

namespace integrity_check_tool::action {
namespace {

const char* VerificationFailed() {
    return "Verification of %1% %2% failed";
}
const char* SignatureFailure() {
    return "%1%";
}

}  // namespace

CheckSignature::CheckSignature(VerifySettings settings, TracerPtr tracer,
                               std::shared_ptr<const Factory> factory, RunStatisticsPtr statistics)
    : ManifestAction(std::move(settings), std::move(tracer), std::move(factory),
                     std::move(statistics)) {}

std::string CheckSignature::GetName() const {
    return "CheckSignature";
}

void CheckSignature::Process() {
    // Made first: an unusable verifier fails before any file is read.
    const ISignatureVerifierPtr verifier = factory_->CreateSignatureVerifier();

    const SystemInfo system(
        std::set<std::string>(settings_.definitions.begin(), settings_.definitions.end()));
    const FilterEvaluator filter(tracer_, system);
    const ManifestPtr manifest = LoadManifests(settings_.manifestPaths, tracer_, filter);
    if (settings_.singleFilePath) {
        SelectSingleFile(*manifest, *settings_.singleFilePath, manifestName_, *tracer_);
    }

    bool allPassed = true;
    for (const auto& entry : manifest->files) {
        const FileInfo& file = *entry.second;
        const std::string name = file.path.string();
        if (filter.IsFiltered(file.filter, GetPrintableName(file))) {
            statistics_->Skip(Files, object_word::File, name);
            continue;
        }
        allPassed &= statistics_->Run(Files, object_word::File, name, [&] {
            try {
                verifier->Verify(file.path, nullptr);
            } catch (...) {
                tracer_->Trace(trace_level::Error, SignatureFailure(), CurrentExceptionText());
                throw;
            }
        });
    }
    if (!allPassed) {
        ICT_THROW(
            Exception(MessageFormat(VerificationFailed(), object_word::Manifest, manifestName_)));
    }
}

}  // namespace integrity_check_tool::action
