#pragma once

#include <memory>
#include <string>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "common/message_format.h"
#include "common/trace_level.h"
#include "ruk/service_locator.h"
#include "ruk/trace.h"

namespace integrity_check_tool {

// The tool's leveled log over one framework channel: the console, or the file
// named by "trace". A message passes when its level is not greater than the
// tracer's level.
class Tracer {
public:
    // Throws Exception "Can't create tracer. Reason: %1%" on any failure.
    Tracer(ruk::IServiceLocator* locator, unsigned level,
           const boost::optional<boost::filesystem::path>& tracePath);
    // Writes to the given channel instead; for tests that read what was traced.
    Tracer(unsigned level, ruk::intrusive_ptr<ruk::ITraceChannel> channel);

    bool IsEnabled(unsigned level) const { return level <= level_; }
    unsigned GetLevel() const { return level_; }
    // True when the lines go to a trace file rather than the console.
    bool WritesToFile() const { return writesToFile_; }

    void Write(unsigned level, const std::string& text) const;

    // Composes the message only when the level is enabled.
    template <typename... Args>
    void Trace(unsigned level, const char* format, const Args&... args) const {
        if (IsEnabled(level)) {
            Write(level, MessageFormat(format, args...));
        }
    }

private:
    void PrivateConstruct(ruk::IServiceLocator* locator, unsigned level,
                          const boost::optional<boost::filesystem::path>& tracePath);

    unsigned level_ = 0;
    bool writesToFile_ = false;
    ruk::intrusive_ptr<ruk::ITracer> tracer_;
};

using TracerPtr = std::shared_ptr<Tracer>;

}  // namespace integrity_check_tool
