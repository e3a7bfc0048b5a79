#pragma once

#include "check/presence.h"

namespace integrity_check_tool::check {

// Passes when the file (as a regular file) or the registry value is absent.
class NotExists : public Presence {
public:
    NotExists(TracerPtr tracer, IDataObjectSourcePtr source)
        : Presence(false, std::move(tracer), std::move(source)) {}
};

}  // namespace integrity_check_tool::check
