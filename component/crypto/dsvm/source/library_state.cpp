#include "library_state.h"

#include <atomic>
#include <mutex>

#include "openssl_support/gost_engine.h"

namespace dsvm::detail {
namespace {

std::mutex gCountMutex;
long gInitializations = 0;
std::atomic<bool> gInitialized{false};

}  // namespace

DsvmResult AddInitialization() {
    if (openssl_support::GostEngine() == nullptr) {
        return DSVM_E_CRYPTO;
    }
    std::lock_guard<std::mutex> lock(gCountMutex);
    ++gInitializations;
    gInitialized.store(true, std::memory_order_release);
    return DSVM_OK;
}

DsvmResult RemoveInitialization() {
    std::lock_guard<std::mutex> lock(gCountMutex);
    if (gInitializations == 0) {
        return DSVM_E_NOT_INITIALIZED;
    }
    --gInitializations;
    gInitialized.store(gInitializations > 0, std::memory_order_release);
    return DSVM_OK;
}

bool IsInitialized() {
    return gInitialized.load(std::memory_order_acquire);
}

ENGINE* GetGostEngine() {
    return openssl_support::GostEngine();
}

}  // namespace dsvm::detail

extern "C" DsvmResult DsvmInitialize(void) {
    return dsvm::detail::AddInitialization();
}

extern "C" DsvmResult DsvmRelease(void) {
    return dsvm::detail::RemoveInitialization();
}
