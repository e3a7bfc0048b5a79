#pragma once

namespace integrity_check_tool::platform {

// Switches WOW64 file-system redirection off for the calling thread while it
// lives, so that a 32-bit process reads the native system folders. Does
// nothing where there is no such redirection. Failing to switch it off is
// the framework's "Expression failed" error.
class FileSystemRedirectionGuard {
public:
    FileSystemRedirectionGuard();
    ~FileSystemRedirectionGuard();
    FileSystemRedirectionGuard(const FileSystemRedirectionGuard&) = delete;
    FileSystemRedirectionGuard& operator=(const FileSystemRedirectionGuard&) = delete;

private:
    void* previousState_ = nullptr;
    bool disabled_ = false;
};

}  // namespace integrity_check_tool::platform
