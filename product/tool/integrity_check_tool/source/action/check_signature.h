#pragma once

#include <memory>
#include <string>

#include "action/manifest_action.h"
#include "check/i_factory.h"
#include "common/configuration.h"
#include "common/run_statistics.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// "CheckSignature" (signature-only mode): every file of the merged, filtered
// manifest, or only the requested single file, goes to the run's one
// signature verifier; each is counted under "Files".
class CheckSignature : public ManifestAction {
public:
    CheckSignature(VerifySettings settings, TracerPtr tracer, IFactoryPtr factory,
                   RunStatisticsPtr statistics);

    std::string GetName() const override;

    void Process() override;
};

}  // namespace integrity_check_tool::action
