#include "service/log.h"

#include <mutex>

#include "crypto/vds/service/log_sink.h"

namespace crypto::vds::service {
namespace {

std::mutex& SinkMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<ILogSink>& Sink() {
    static std::shared_ptr<ILogSink> sink;
    return sink;
}

std::shared_ptr<ILogSink> CurrentSink() {
    std::lock_guard<std::mutex> lock(SinkMutex());
    return Sink();
}

}  // namespace

std::shared_ptr<ILogSink> SetLogSink(std::shared_ptr<ILogSink> sink) {
    std::lock_guard<std::mutex> lock(SinkMutex());
    std::swap(Sink(), sink);
    return sink;
}

bool IsLogEnabled() {
    const auto sink = CurrentSink();
    return sink && sink->IsEnabled();
}

void WriteLogLine(const std::string& line) {
    if (const auto sink = CurrentSink()) {
        sink->Write(line);
    }
}

}  // namespace crypto::vds::service
