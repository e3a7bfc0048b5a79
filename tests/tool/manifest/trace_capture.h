#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ruk/trace.h"
#include "tracer.h"

namespace integrity_check_tool::testing {

// A detail-level tracer whose lines the test can read back.
struct TraceCapture {
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> channel{new ruk::MemoryTraceChannel()};
    TracerPtr tracer = std::make_shared<Tracer>(800u, channel);

    std::vector<std::string> Lines() const { return channel->Lines(); }
};

}  // namespace integrity_check_tool::testing
