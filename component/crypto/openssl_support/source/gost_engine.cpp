// The ENGINE interface is deprecated in OpenSSL 3, yet the GOST algorithms
// are only offered through the "gost" engine.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "openssl_support/gost_engine.h"

#include <openssl/crypto.h>
#include <openssl/engine.h>
#include <openssl/err.h>

#ifdef ICT_GOST_ENGINE_LINKED
extern "C" void ENGINE_load_gost(void);
#endif

namespace openssl_support {
namespace {

ENGINE* Load() {
    OPENSSL_init_crypto(OPENSSL_INIT_ENGINE_DYNAMIC | OPENSSL_INIT_LOAD_CONFIG, nullptr);
#ifdef ICT_GOST_ENGINE_LINKED
    // A linked-in engine must be on OpenSSL's list before it is looked up.
    ENGINE_load_gost();
#endif
    ENGINE* engine = ENGINE_by_id("gost");
    if (engine == nullptr) {
        ERR_clear_error();
        return nullptr;
    }
    if (ENGINE_init(engine) != 1) {
        ENGINE_free(engine);
        ERR_clear_error();
        return nullptr;
    }
    if (ENGINE_set_default(engine, ENGINE_METHOD_ALL) != 1) {
        ENGINE_finish(engine);
        ENGINE_free(engine);
        ERR_clear_error();
        return nullptr;
    }
    // The functional reference taken by ENGINE_init stays for the life of
    // the process; the structural one is no longer needed. Loading an engine
    // again and again is not something OpenSSL supports well.
    ENGINE_free(engine);
    ERR_clear_error();
    return engine;
}

}  // namespace

ENGINE* GostEngine() {
    static ENGINE* const engine = Load();
    return engine;
}

}  // namespace openssl_support
