#include "ruk/trace.h"

#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "ruk/io.h"

namespace ruk {
namespace {

std::mutex& ClockMutex() {
    static std::mutex mutex;
    return mutex;
}

class Tracer : public ITracer {
public:
    result_t SetLevel(unsigned level) override {
        std::lock_guard<std::mutex> lock(mutex_);
        level_ = level;
        return result::Success;
    }

    unsigned GetLevel() const override {
        std::lock_guard<std::mutex> lock(mutex_);
        return level_;
    }

    result_t AttachChannel(const intrusive_ptr<ITraceChannel>& channel) override {
        if (!channel) {
            return result::InvalidArgument;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        channels_.push_back(channel);
        return result::Success;
    }

    void Write(unsigned level, const std::string& text) override {
        std::vector<intrusive_ptr<ITraceChannel>> channels;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (level > level_) {
                return;
            }
            channels = channels_;
        }
        const std::string line = FormatTracePrefix(level) + " " + text;
        for (const auto& channel : channels) {
            channel->WriteLine(line);
        }
    }

private:
    mutable std::mutex mutex_;
    unsigned level_ = 0;
    std::vector<intrusive_ptr<ITraceChannel>> channels_;
};

class ConsoleChannel : public ITraceChannel {
public:
    void WriteLine(const std::string& line) override {
        std::lock_guard<std::mutex> lock(mutex_);
        std::cerr << line << '\n';
        std::cerr.flush();
    }

private:
    std::mutex mutex_;
};

class FileChannel : public ITraceChannel {
public:
    FileChannel(boost::filesystem::path path, intrusive_ptr<IIO> file)
        : path_(std::move(path)), file_(std::move(file)) {}

    void WriteLine(const std::string& line) override {
        std::lock_guard<std::mutex> lock(mutex_);
        // One write per line, unbuffered, so that a crash still leaves the log
        // readable and a full disk is noticed at the line it hits.
        const std::string text = line + '\n';
        std::size_t written = 0;
        result_t code = file_->Write(text.data(), text.size(), &written);
        if (Succeeded(code) && written != text.size()) {
            code = result::IoError;
        }
        if (Failed(code) && !reported_) {
            reported_ = true;
            std::cerr << "Can't write trace file " << path_.string()
                      << ". Reason: " << GetResultText(code) << std::endl;
        }
    }

private:
    std::mutex mutex_;
    boost::filesystem::path path_;
    intrusive_ptr<IIO> file_;
    bool reported_ = false;
};

}  // namespace

const char* GetLevelWord(unsigned level) {
    if (level <= 300) {
        return "ERROR";
    }
    if (level <= 400) {
        return "WARNING";
    }
    if (level <= 600) {
        return "INFO";
    }
    if (level <= 700) {
        return "START";
    }
    return "DEBUG";
}

std::string FormatTracePrefix(unsigned level) {
    char time[64] = {};
    const std::time_t now = std::time(nullptr);
    {
        std::lock_guard<std::mutex> lock(ClockMutex());
        if (const std::tm* local = std::localtime(&now)) {
            std::strftime(time, sizeof(time), "%X", local);
        }
    }
    std::ostringstream prefix;
    prefix << time << ' ' << std::this_thread::get_id() << ' ' << GetLevelWord(level);
    return prefix.str();
}

result_t CreateConsoleTraceChannel(intrusive_ptr<ITraceChannel>* channel) {
    *channel = new ConsoleChannel();
    return result::Success;
}

result_t CreateFileTraceChannel(const boost::filesystem::path& path,
                                intrusive_ptr<ITraceChannel>* channel) {
    intrusive_ptr<IIO> file;
    const result_t code = OpenFileIO(path, OpenMode::CreateAppend, &file);
    if (Failed(code)) {
        return code;
    }
    *channel = new FileChannel(path, std::move(file));
    return result::Success;
}

void MemoryTraceChannel::WriteLine(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(line);
}

std::vector<std::string> MemoryTraceChannel::Lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

intrusive_ptr<ITracer> NewTracer() {
    return intrusive_ptr<ITracer>(new Tracer());
}

}  // namespace ruk
