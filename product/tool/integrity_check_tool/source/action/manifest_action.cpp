#include "action/manifest_action.h"

#include "action/manifest_loading.h"

namespace integrity_check_tool::action {

ManifestAction::ManifestAction(VerifySettings settings, TracerPtr tracer,
                               std::shared_ptr<const Factory> factory, RunStatisticsPtr statistics)
    : settings_(std::move(settings)),
      tracer_(std::move(tracer)),
      factory_(std::move(factory)),
      statistics_(std::move(statistics)),
      manifestName_(JoinManifestNames(settings_.manifestPaths)) {}

bool ManifestAction::Execute() {
    const bool passed =
        statistics_->Run(Manifests, object_word::Manifest, manifestName_, [this] { Process(); });
    statistics_->PrintSummary();
    return passed;
}

}  // namespace integrity_check_tool::action
