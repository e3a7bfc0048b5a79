#include "library.h"

#include <atomic>

#include "openssl_support/gost_engine.h"
#include "vds/vds_core.h"

namespace vds::core {
namespace {

std::atomic<bool> initialized{false};

}  // namespace

bool IsLibraryInitialized() {
    return initialized.load(std::memory_order_acquire);
}

}  // namespace vds::core

VdsResult VdsInitializeLibrary() {
    return vds::core::Guard([]() -> VdsResult {
        // Thread-safe, once per process; a failure is final.
        static const bool loaded = openssl_support::GostEngine() != nullptr;
        if (!loaded) {
            return vdsErrCryptoLib;
        }
        vds::core::initialized.store(true, std::memory_order_release);
        return vdsOk;
    });
}
