#include "action/manifest_action.h"

#include <set>

#include "manifest/filter_evaluator.h"
#include "system_info.h"

namespace integrity_check_tool::action {

ManifestAction::ManifestAction(VerifySettings settings, TracerPtr tracer, IFactoryPtr factory,
                               RunStatisticsPtr statistics)
    : settings_(std::move(settings)),
      tracer_(std::move(tracer)),
      factory_(std::move(factory)),
      statistics_(std::move(statistics)),
      manifestName_(JoinManifestNames(settings_.manifestPaths)) {}

LoadedManifests ManifestAction::LoadRunManifests() const {
    const SystemInfo system(
        std::set<std::string>(settings_.definitions.begin(), settings_.definitions.end()));
    const FilterEvaluator filter(tracer_, system);
    LoadedManifests loaded = LoadManifests(settings_.manifestPaths, tracer_, filter);
    if (settings_.singleFilePath) {
        SelectSingleFile(loaded, *settings_.singleFilePath, manifestName_, *tracer_);
    }
    return loaded;
}

bool ManifestAction::Execute() {
    const bool passed =
        statistics_->Run(Manifests, object_word::Manifest, manifestName_, [this] { Process(); });
    statistics_->PrintSummary();
    return passed;
}

}  // namespace integrity_check_tool::action
