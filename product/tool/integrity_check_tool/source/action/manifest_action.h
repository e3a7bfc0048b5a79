#pragma once

#include <memory>
#include <string>

#include "action/i_action.h"
#include "action/manifest_loading.h"
#include "check/i_factory.h"
#include "common/configuration.h"
#include "common/run_statistics.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// An action over the run's manifests: its work (Process) is the run's one
// manifest object, named by the manifest paths; the summary follows it.
class ManifestAction : public IAction {
public:
    // Runs Process as the manifest object, prints the summary and returns
    // whether everything passed.
    bool Execute() override;
    // Returns when every object passed; throws when any failed.
    virtual void Process() = 0;

protected:
    ManifestAction(VerifySettings settings, TracerPtr tracer, IFactoryPtr factory,
                   RunStatisticsPtr statistics);

    // The run's manifests read, merged and filtered for this system (and the
    // run's definitions), narrowed to the single file when one is asked for.
    LoadedManifests LoadRunManifests() const;

    VerifySettings settings_;
    TracerPtr tracer_;
    IFactoryPtr factory_;
    RunStatisticsPtr statistics_;
    std::string manifestName_;
};

}  // namespace integrity_check_tool::action
