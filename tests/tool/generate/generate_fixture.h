#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/configuration.h"
#include "common/console_output.h"
#include "factory/factory.h"
#include "support/e2e.h"
#include "support/trace_capture.h"
#include "tracer.h"

namespace ict_test {

// A product tree in a temporary folder, a tracer whose lines can be read
// back, console streams in memory, and a factory over a configuration that
// a test fills.
class GenerateFixture {
protected:
    GenerateFixture()
        : output_(std::make_shared<integrity_check_tool::ConsoleOutput>(true, out_, err_)) {}

    std::shared_ptr<integrity_check_tool::Factory> MakeFactory(
        const integrity_check_tool::ApplicationConfiguration& configuration) const {
        return std::make_shared<integrity_check_tool::Factory>(
            tracer_,
            std::make_shared<integrity_check_tool::ApplicationConfiguration>(configuration),
            nullptr);
    }

    std::vector<std::string> Messages() const { return trace_.Messages(); }

    TempDir dir_;
    TraceCapture trace_;
    const integrity_check_tool::TracerPtr& tracer_ = trace_.Tracer();
    std::ostringstream out_;
    std::ostringstream err_;
    integrity_check_tool::ConsoleOutputPtr output_;
};

}  // namespace ict_test
