#pragma once

#include <memory>
#include <string>

#include "action/manifest_action.h"
#include "check/i_factory.h"
#include "common/configuration.h"
#include "common/run_statistics.h"
#include "manifest/manifest.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// "Verify": reads and merges the manifests and checks every file, then every
// registry key with its values, counting each object in the run statistics.
class Verify : public ManifestAction {
public:
    Verify(VerifySettings settings, TracerPtr tracer, IFactoryPtr factory,
           RunStatisticsPtr statistics);

    std::string GetName() const override;
    void Process() override;

private:
    bool VerifyFiles(const Manifest& manifest);
    bool VerifyRegistries(const Manifest& manifest);
    void VerifyRegistryKey(const RegistryInfo& key);
};

}  // namespace integrity_check_tool::action
