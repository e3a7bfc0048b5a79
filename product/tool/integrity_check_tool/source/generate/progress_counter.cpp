#include "generate/progress_counter.h"

#include <algorithm>
#include <ostream>

#include "common/message_format.h"

namespace integrity_check_tool::generate {
namespace {

const char* ProgressLine() {
    return "Generating: %1% files";
}

}  // namespace

ProgressCounter::ProgressCounter(std::ostream& stream, bool enabled, std::size_t every)
    : stream_(stream), enabled_(enabled), every_(std::max<std::size_t>(every, 1)) {}

ProgressCounter::~ProgressCounter() {
    Clear();
}

void ProgressCounter::Step() {
    ++count_;
    if (!enabled_ || count_ % every_ != 0) {
        return;
    }
    const std::string line = MessageFormat(ProgressLine(), count_);
    stream_ << '\r' << line << std::flush;
    shownLength_ = line.size();
}

void ProgressCounter::Clear() {
    if (shownLength_ == 0) {
        return;
    }
    stream_ << '\r' << std::string(shownLength_, ' ') << '\r' << std::flush;
    shownLength_ = 0;
}

}  // namespace integrity_check_tool::generate
