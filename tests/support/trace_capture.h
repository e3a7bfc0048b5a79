#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "ruk/trace.h"
#include "tracer.h"

namespace ict_test {

// A tracer (detail level unless told) whose lines the test reads back.
class TraceCapture {
public:
    explicit TraceCapture(unsigned level = 800)
        : channel_(new ruk::MemoryTraceChannel()),
          tracer_(std::make_shared<integrity_check_tool::Tracer>(level, channel_)) {}

    const integrity_check_tool::TracerPtr& Tracer() const { return tracer_; }
    const ruk::intrusive_ptr<ruk::MemoryTraceChannel>& Channel() const { return channel_; }

    // Whole lines, with the channel's time, thread and level word.
    std::vector<std::string> Lines() const { return channel_->Lines(); }

    // The messages alone, without that prefix.
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

    // Whether a message holds `text`.
    bool Traced(const std::string& text) const {
        const auto messages = Messages();
        return std::any_of(messages.begin(), messages.end(), [&](const std::string& message) {
            return message.find(text) != std::string::npos;
        });
    }

private:
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> channel_;
    integrity_check_tool::TracerPtr tracer_;
};

}  // namespace ict_test
