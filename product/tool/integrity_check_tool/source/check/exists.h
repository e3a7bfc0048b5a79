#pragma once

#include "check/presence.h"

namespace integrity_check_tool::check {

// Passes when the file (a regular file) or the registry value exists.
class Exists : public Presence {
public:
    Exists(TracerPtr tracer, IDataObjectSourcePtr source)
        : Presence(true, std::move(tracer), std::move(source)) {}
};

}  // namespace integrity_check_tool::check
