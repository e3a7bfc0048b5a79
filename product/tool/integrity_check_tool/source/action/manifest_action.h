#pragma once

#include <memory>
#include <string>

#include "action/i_action.h"
#include "common/configuration.h"
#include "common/run_statistics.h"
#include "factory/factory.h"
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
    ManifestAction(VerifySettings settings, TracerPtr tracer,
                   std::shared_ptr<const Factory> factory, RunStatisticsPtr statistics);

    VerifySettings settings_;
    TracerPtr tracer_;
    std::shared_ptr<const Factory> factory_;
    RunStatisticsPtr statistics_;
    std::string manifestName_;
};

}  // namespace integrity_check_tool::action
