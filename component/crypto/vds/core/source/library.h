#pragma once

#include <exception>
#include <new>

#include "vds/vds_types.h"

namespace vds::core {

// True once VdsInitializeLibrary succeeded.
bool IsLibraryInitialized();

// Runs a call body; exceptions never cross the core's interface.
template <typename Body>
VdsResult Guard(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return vdsErrBadAlloc;
    } catch (...) {
        return vdsErrUnknown;
    }
}

}  // namespace vds::core
