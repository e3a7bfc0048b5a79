#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/configuration.h"
#include "common/console_output.h"
#include "factory/factory.h"
#include "ruk/trace.h"
#include "support/e2e.h"
#include "tracer.h"

namespace ict_test {

// A product tree in a temporary folder, a tracer whose lines can be read
// back, console streams in memory, and a factory over a configuration that
// a test fills.
class GenerateFixture {
protected:
    GenerateFixture()
        : channel_(new ruk::MemoryTraceChannel()),
          tracer_(std::make_shared<integrity_check_tool::Tracer>(800, channel_)),
          output_(std::make_shared<integrity_check_tool::ConsoleOutput>(true, out_, err_)) {}

    std::shared_ptr<integrity_check_tool::Factory> MakeFactory(
        const integrity_check_tool::ApplicationConfiguration& configuration) const {
        return std::make_shared<integrity_check_tool::Factory>(
            tracer_,
            std::make_shared<integrity_check_tool::ApplicationConfiguration>(configuration),
            nullptr);
    }

    // The traced messages without the time, thread and level prefix.
    std::vector<std::string> Messages() const {
        std::vector<std::string> messages;
        for (const std::string& line : channel_->Lines()) {
            std::string message = line;
            for (const char* word : {" ERROR ", " WARNING ", " INFO ", " START ", " DEBUG "}) {
                const auto position = line.find(word);
                if (position != std::string::npos) {
                    message = line.substr(position + std::string(word).size());
                    break;
                }
            }
            messages.push_back(message);
        }
        return messages;
    }

    TempDir dir_;
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> channel_;
    integrity_check_tool::TracerPtr tracer_;
    std::ostringstream out_;
    std::ostringstream err_;
    integrity_check_tool::ConsoleOutputPtr output_;
};

}  // namespace ict_test
