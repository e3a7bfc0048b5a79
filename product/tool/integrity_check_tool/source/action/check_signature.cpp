#include "action/check_signature.h"

#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/manifest_operations.h"

namespace integrity_check_tool::action {
namespace {

const char* VerificationFailed() {
    return "Verification of %1% %2% failed";
}
const char* SignatureFailure() {
    return "%1%";
}

}  // namespace

CheckSignature::CheckSignature(VerifySettings settings, TracerPtr tracer, IFactoryPtr factory,
                               RunStatisticsPtr statistics)
    : ManifestAction(std::move(settings), std::move(tracer), std::move(factory),
                     std::move(statistics)) {}

std::string CheckSignature::GetName() const {
    return "CheckSignature";
}

void CheckSignature::Process() {
    // Made first: an unusable verifier fails before any file is read.
    const ISignatureVerifierPtr verifier = factory_->CreateSignatureVerifier();

    LoadedManifests loaded = LoadRunManifests();

    // Only files carry signatures: filtered registry records are not this mode's objects.
    for (const auto& file : loaded.filtered.files) {
        statistics_->Skip(Files, object_word::File, file.first.string());
    }
    bool allPassed = true;
    for (const auto& entry : loaded.manifest->files) {
        const FileInfo& file = *entry.second;
        const std::string name = file.path.string();
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
