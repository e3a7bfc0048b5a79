#include "manifest/manifest_operations.h"

namespace integrity_check_tool {

void RegisterEnvironment(Manifest& manifest, const EnvironmentPtr& environment) {
    for (auto& entry : manifest.environments) {
        entry.environment = environment;
        environment->SetValue(entry.key, entry.value);
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
