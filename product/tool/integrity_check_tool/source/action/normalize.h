#pragma once

#include "action/i_action.h"
#include "common/configuration.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// "Normalize": reads a manifest of either dialect and writes it back over
// itself in the current dialect, placeholders and groups as they were. Only
// a regular file is read. The file is replaced in one piece, keeping its
// owner and permissions, and only when nobody changed or replaced it while it
// was rewritten; on any failure it stays byte for byte as it was and the
// action fails.
class Normalize : public IAction {
public:
    Normalize(TracerPtr tracer, NormalizeSettings settings);

    std::string GetName() const override;
    bool Execute() override;

private:
    TracerPtr tracer_;
    NormalizeSettings settings_;
};

}  // namespace integrity_check_tool::action
