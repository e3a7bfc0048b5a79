#pragma once

#include <memory>
#include <string>

// Where the service's and the result handler's lines go. The service has
// no log of its own: its client connects one (the checker: its tracer at
// the detail level).
namespace crypto::vds::service {

class ILogSink {
public:
    virtual ~ILogSink() = default;
    // Lines are composed only when this is true.
    virtual bool IsEnabled() const = 0;
    virtual void Write(const std::string& line) = 0;
};

// Installs the process-wide sink (null: lines are dropped) and returns the
// previous one.
std::shared_ptr<ILogSink> SetLogSink(std::shared_ptr<ILogSink> sink);

// Installs a sink for the lifetime of the object, then restores the old one.
class ScopedLogSink {
public:
    explicit ScopedLogSink(std::shared_ptr<ILogSink> sink)
        : previous_(SetLogSink(std::move(sink))) {}
    ~ScopedLogSink() { SetLogSink(std::move(previous_)); }
    ScopedLogSink(const ScopedLogSink&) = delete;
    ScopedLogSink& operator=(const ScopedLogSink&) = delete;

private:
    std::shared_ptr<ILogSink> previous_;
};

}  // namespace crypto::vds::service
