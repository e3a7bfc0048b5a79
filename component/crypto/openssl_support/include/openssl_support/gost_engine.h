#pragma once

#include <openssl/types.h>

namespace openssl_support {

// The GOST engine, initialised on first use and kept for the life of the
// process with its algorithms as OpenSSL's defaults (digests, key methods and
// key encodings), so that lookups by name and key decoding find them. Null
// when the engine can't be loaded; that answer is final. Thread-safe.
//
// On Linux OpenSSL loads the distribution's engine module by name; the
// Windows programs have the engine linked in (no engine DLL, no engine path).
ENGINE* GostEngine();

}  // namespace openssl_support
