#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ruk/trace.h"
#include "tracer.h"

namespace ict_test {

// A detail-level tracer whose lines the test can read back, without the
// channel's time, thread and level prefix.
class TraceCapture {
public:
    explicit TraceCapture(unsigned level = 800)
        : channel_(new ruk::MemoryTraceChannel()),
          tracer_(std::make_shared<integrity_check_tool::Tracer>(level, channel_)) {}

    const integrity_check_tool::TracerPtr& Tracer() const { return tracer_; }

    std::vector<std::string> Messages() const {
        static const char* const kLevelWords[] = {" ERROR ", " WARNING ", " INFO ", " START ",
                                                  " DEBUG "};
        std::vector<std::string> messages;
        for (const std::string& line : channel_->Lines()) {
            std::string message = line;
            for (const char* word : kLevelWords) {
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

private:
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> channel_;
    integrity_check_tool::TracerPtr tracer_;
};

}  // namespace ict_test
