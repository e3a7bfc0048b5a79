#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"

namespace integrity_check_tool {

void RegisterEnvironment(Manifest& manifest, const EnvironmentPtr& environment,
                         const FilterEvaluator* filter) {
    for (auto& entry : manifest.environments) {
        entry.environment = environment;
        // An entry meant for another system must not replace the value that
        // applies here.
        if (filter == nullptr || !filter->IsFiltered(entry.filter, entry.key)) {
            environment->SetValue(entry.key, entry.value);
        }
    }
    for (auto& file : manifest.files) {
        file.second->environment = environment;
    }
    for (auto& directory : manifest.directories) {
        directory->environment = environment;
        for (auto& file : directory->files) {
            file->environment = environment;
        }
    }
    for (auto& registry : manifest.registries) {
        registry->environment = environment;
    }
}

}  // namespace integrity_check_tool
