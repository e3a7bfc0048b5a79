// The ENGINE interface is deprecated in OpenSSL 3 but is the only way the
// distribution's GOST implementation is offered.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "library_state.h"

#include <atomic>
#include <mutex>

#include <openssl/engine.h>
#include <openssl/err.h>

#include "gost_engine/linked_engine.h"

namespace dsvm::detail {
namespace {

std::mutex gCountMutex;
long gInitializations = 0;
std::atomic<bool> gInitialized{false};

std::once_flag gEngineOnce;
ENGINE* gEngine = nullptr;
DsvmResult gEngineResult = DSVM_E_CRYPTO;

// Loads the engine once per process and keeps its functional reference: the
// engine's algorithms must stay registered for every later handle, and
// reloading an engine several times per process is not something OpenSSL
// supports well.
void LoadEngine() {
    OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC | OPENSSL_INIT_LOAD_CONFIG, nullptr);
    gost_engine::AddLinkedEngine();
    ENGINE* engine = ENGINE_by_id("gost");
    if (engine == nullptr) {
        ERR_clear_error();
        return;
    }
    if (ENGINE_init(engine) != 1) {
        ENGINE_free(engine);
        ERR_clear_error();
        return;
    }
    // Key decoding (d2i_PUBKEY, PEM) and EVP_PKEY operations find the GOST
    // methods through these tables.
    if (ENGINE_register_pkey_asn1_meths(engine) != 1 || ENGINE_register_pkey_meths(engine) != 1 ||
        ENGINE_register_digests(engine) != 1) {
        ENGINE_finish(engine);
        ENGINE_free(engine);
        ERR_clear_error();
        return;
    }
    // The functional reference keeps the engine alive; the structural one is
    // no longer needed.
    ENGINE_free(engine);
    gEngine = engine;
    gEngineResult = DSVM_OK;
}

}  // namespace

DsvmResult AddInitialization() {
    std::call_once(gEngineOnce, LoadEngine);
    if (gEngineResult != DSVM_OK) {
        return gEngineResult;
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
    return gEngine;
}

}  // namespace dsvm::detail

extern "C" DsvmResult DsvmInitialize(void) {
    return dsvm::detail::AddInitialization();
}

extern "C" DsvmResult DsvmRelease(void) {
    return dsvm::detail::RemoveInitialization();
}
