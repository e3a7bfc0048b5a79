#include "platform/file_system.h"

namespace integrity_check_tool::platform {

// No file-system redirection exists here.
FileSystemRedirectionGuard::FileSystemRedirectionGuard() = default;
FileSystemRedirectionGuard::~FileSystemRedirectionGuard() = default;

}  // namespace integrity_check_tool::platform
