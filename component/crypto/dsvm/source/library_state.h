#pragma once

#include "dsvm/dsvm.h"

// OpenSSL's ENGINE type, without pulling the deprecated engine API into
// every file of the library.
typedef struct engine_st ENGINE;

namespace dsvm::detail {

// Counts DsvmInitialize calls; the first loads the GOST engine for good.
DsvmResult AddInitialization();
DsvmResult RemoveInitialization();
bool IsInitialized();

// The loaded "gost" engine; valid while the library is initialised.
ENGINE* GetGostEngine();

}  // namespace dsvm::detail
