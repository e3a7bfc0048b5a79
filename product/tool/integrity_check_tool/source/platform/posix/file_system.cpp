#include "platform/file_system.h"

namespace integrity_check_tool::platform {

// No file-system redirection exists here; the state the Windows guard keeps
// stays unused.
FileSystemRedirectionGuard::FileSystemRedirectionGuard() {
    static_cast<void>(previousState_);
    static_cast<void>(disabled_);
}

FileSystemRedirectionGuard::~FileSystemRedirectionGuard() = default;

}  // namespace integrity_check_tool::platform
