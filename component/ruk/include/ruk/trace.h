#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "ruk/intrusive_ptr.h"
#include "ruk/result.h"

namespace ruk {

// Where trace lines go. Channels are safe for concurrent writers.
class ITraceChannel : public RefCounted {
public:
    virtual void WriteLine(const std::string& line) = 0;
};

// The framework tracer: a level and the attached channels. Each message is
// written as "%X %I %p <text>": local time, thread id and level word.
class ITracer : public RefCounted {
public:
    virtual result_t SetLevel(unsigned level) = 0;
    virtual unsigned GetLevel() const = 0;
    virtual result_t AttachChannel(const intrusive_ptr<ITraceChannel>& channel) = 0;
    virtual void Write(unsigned level, const std::string& text) = 0;
};

// Level word of the prefix: ERROR (<=300), WARNING (<=400), INFO (<=600),
// START (<=700), DEBUG otherwise.
const char* GetLevelWord(unsigned level);
std::string FormatTracePrefix(unsigned level);

// Writes to standard error.
result_t CreateConsoleTraceChannel(intrusive_ptr<ITraceChannel>* channel);
// Creates the file or opens it for appending (an existing file is never
// truncated) and appends every line to it. On failure the result carries the
// system's error. The first line that can't be written is reported on
// standard error, once per channel.
result_t CreateFileTraceChannel(const boost::filesystem::path& path,
                                intrusive_ptr<ITraceChannel>* channel);

// Keeps lines in memory; used by tests to see what was traced.
class MemoryTraceChannel : public ITraceChannel {
public:
    void WriteLine(const std::string& line) override;
    std::vector<std::string> Lines() const;

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace ruk
