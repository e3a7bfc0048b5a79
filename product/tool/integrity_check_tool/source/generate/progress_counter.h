#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

namespace integrity_check_tool::generate {

// A counter line redrawn in place with a carriage return, for long runs on a
// terminal. Disabled, it writes nothing at all, so redirected output stays clean.
class ProgressCounter {
public:
    ProgressCounter(std::ostream& stream, bool enabled, std::size_t every = 100);
    ~ProgressCounter();
    ProgressCounter(const ProgressCounter&) = delete;
    ProgressCounter& operator=(const ProgressCounter&) = delete;

    // One more file done; the line is redrawn every `every` files.
    void Step();
    // Erases the line, so that other output starts on a clean line.
    void Clear();

    std::size_t GetCount() const { return count_; }

private:
    std::ostream& stream_;
    bool enabled_;
    std::size_t every_;
    std::size_t count_ = 0;
    std::size_t shownLength_ = 0;
};

}  // namespace integrity_check_tool::generate
