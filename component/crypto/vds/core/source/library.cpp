// The ENGINE interface is deprecated in OpenSSL 3, yet the GOST algorithms
// are only available through the "gost" engine.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "library.h"

#include <atomic>

#include <openssl/engine.h>
#include <openssl/err.h>

#include "gost_engine/linked_engine.h"
#include "vds/vds_core.h"

namespace vds::core {
namespace {

std::atomic<bool> initialized{false};

bool LoadGostEngine() {
    gost_engine::AddLinkedEngine();
    ENGINE* engine = ENGINE_by_id("gost");
    if (engine == nullptr) {
        ERR_clear_error();
        return false;
    }
    // The functional reference taken by ENGINE_init is kept for the life of
    // the process: the engine's algorithms stay registered as defaults.
    const bool loaded =
        ENGINE_init(engine) == 1 && ENGINE_set_default(engine, ENGINE_METHOD_ALL) == 1;
    ENGINE_free(engine);
    ERR_clear_error();
    return loaded;
}

}  // namespace

bool IsLibraryInitialized() {
    return initialized.load(std::memory_order_acquire);
}

}  // namespace vds::core

VdsResult VdsInitializeLibrary() {
    return vds::core::Guard([]() -> VdsResult {
        // Thread-safe, once per process; a failure is final.
        static const bool loaded = vds::core::LoadGostEngine();
        if (!loaded) {
            return vdsErrCryptoLib;
        }
        vds::core::initialized.store(true, std::memory_order_release);
        return vdsOk;
    });
}
