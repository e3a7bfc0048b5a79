#pragma once

#include <openssl/types.h>

namespace integrity_check_tool::openssl {

// A digest that OpenSSL's GOST engine provides, with the engine to use it through.
struct GostDigest {
    ENGINE* engine;
    const EVP_MD* algorithm;
};

// The GOST R 34.11-2012 256-bit digest. The engine "gost" is loaded and
// initialised once per process (thread-safe) and kept until exit; when it
// cannot be loaded, every call raises Exception with OpenSSL's reason.
GostDigest GetGost2012_256Digest();

}  // namespace integrity_check_tool::openssl
