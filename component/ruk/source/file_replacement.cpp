#include "ruk/file_replacement.h"

#include <boost/filesystem/operations.hpp>

namespace ruk {
namespace {

namespace fs = boost::filesystem;

// Tries before giving up on finding a free temporary name.
constexpr int kNameAttempts = 16;

}  // namespace

FileReplacement::~FileReplacement() {
    stream_.reset();  // Windows removes no open file
    if (!temporary_.empty() && !committed_) {
        boost::system::error_code ignored;
        fs::remove(temporary_, ignored);
    }
}

result_t FileReplacement::Create(const fs::path& target) {
    if (!temporary_.empty()) {
        return result::InvalidArgument;  // one replacement, one temporary
    }
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const fs::path candidate = folder / fs::unique_path(".ict-%%%%%%%%.tmp");
        const result_t created = OpenFileIO(candidate, OpenMode::CreateNew, &stream_);
        if (Succeeded(created)) {
            target_ = target;
            temporary_ = candidate;
            return created;
        }
        if (created != result::AlreadyExists) {
            return created;
        }
    }
    return result::AlreadyExists;
}

result_t FileReplacement::Close() {
    if (!stream_) {
        return result::InvalidArgument;
    }
    const result_t flushed = stream_->Flush();
    stream_.reset();
    closed_ = Succeeded(flushed);
    return flushed;
}

result_t FileReplacement::Commit() {
    if (!closed_ || committed_) {
        return result::InvalidArgument;  // not on disk whole, or done already
    }
    boost::system::error_code error;
    fs::rename(temporary_, target_, error);
    if (error) {
        return MakeOsResult(static_cast<std::uint32_t>(error.value()));
    }
    committed_ = true;
    return result::Success;
}

}  // namespace ruk
