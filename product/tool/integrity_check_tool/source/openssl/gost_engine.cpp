// The engine interface is deprecated in OpenSSL 3 but is the one the GOST
// engine package offers.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "openssl/gost_engine.h"

#include <string>

#include <openssl/engine.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include "common/exception.h"
#include "common/message_format.h"
#include "openssl/digest.h"

namespace integrity_check_tool::openssl {
namespace {

const char* EngineUnavailable() {
    return "Can't load OpenSSL engine '%1%'. Reason: %2%";
}
const char* DigestUnavailable() {
    return "OpenSSL engine '%1%' has no digest %2%";
}

constexpr const char* kEngineId = "gost";

// The outcome of the one-time load: the digest, or why there is none.
struct LoadedDigest {
    GostDigest digest{nullptr, nullptr};
    std::string error;
};

LoadedDigest LoadDigest(int nid) {
    LoadedDigest loaded;
    ENGINE* engine = ENGINE_by_id(kEngineId);
    if (engine == nullptr) {
        loaded.error = MessageFormat(EngineUnavailable(), kEngineId, TakeOpenSslError());
        return loaded;
    }
    if (ENGINE_init(engine) != 1) {
        loaded.error = MessageFormat(EngineUnavailable(), kEngineId, TakeOpenSslError());
        ENGINE_free(engine);
        return loaded;
    }
    // The structural reference is no longer needed; the functional one from
    // ENGINE_init keeps the engine loaded for the rest of the process.
    ENGINE_free(engine);
    const EVP_MD* algorithm = ENGINE_get_digest(engine, nid);
    if (algorithm == nullptr) {
        loaded.error = MessageFormat(DigestUnavailable(), kEngineId, OBJ_nid2sn(nid));
        return loaded;
    }
    loaded.digest = GostDigest{engine, algorithm};
    return loaded;
}

}  // namespace

GostDigest GetGost2012_256Digest() {
    // Function-local static: loaded once, thread-safe.
    static const LoadedDigest loaded = LoadDigest(NID_id_GostR3411_2012_256);
    if (loaded.digest.algorithm == nullptr) {
        ICT_THROW(Exception(loaded.error));
    }
    return loaded.digest;
}

}  // namespace integrity_check_tool::openssl
