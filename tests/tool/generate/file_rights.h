#pragma once

#ifdef __linux__
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include "support/e2e.h"

namespace ict_test {

// While it lives, file permissions bind this process even when it runs as
// root: the capabilities that override them leave the effective set, and
// come back from the permitted set afterwards. `Binding()` tells whether a
// folder of mode 000 is now closed to the process.
class ObeyFilePermissions {
public:
    ObeyFilePermissions() {
#ifdef __linux__
        if (syscall(SYS_capget, &header_, saved_) != 0) {
            return;
        }
        __user_cap_data_struct lowered[2] = {saved_[0], saved_[1]};
        lowered[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        lowered_ = syscall(SYS_capset, &header_, lowered) == 0;
#endif
    }
    ~ObeyFilePermissions() {
#ifdef __linux__
        if (lowered_) {
            syscall(SYS_capset, &header_, saved_);
        }
#endif
    }
    ObeyFilePermissions(const ObeyFilePermissions&) = delete;
    ObeyFilePermissions& operator=(const ObeyFilePermissions&) = delete;

    bool Binding() const {
#ifdef _WIN32
        // Windows keeps rights in access lists; the permission bits are only
        // the read-only attribute, which never closes a folder.
        return false;
#else
        return lowered_ || !CanReadEverything();
#endif
    }

private:
#ifdef __linux__
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct saved_[2] = {};
#endif
    bool lowered_ = false;
};

}  // namespace ict_test
