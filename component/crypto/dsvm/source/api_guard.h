#pragma once

#include <new>

#include "dsvm/dsvm.h"
#include "library_state.h"

namespace dsvm::detail {

// Runs one public call: refuses it while the library is not initialised and
// turns any C++ failure into a result code, since nothing may be thrown
// across the C interface.
template <typename Operation>
DsvmResult Guarded(Operation&& operation) noexcept {
    if (!IsInitialized()) {
        return DSVM_E_NOT_INITIALIZED;
    }
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return DSVM_E_OUT_OF_MEMORY;
    } catch (...) {
        return DSVM_E_INTERNAL;
    }
}

}  // namespace dsvm::detail
