#pragma once

// Everything an end-to-end test needs, in one include: temporary trees
// (TempDir), small file helpers and running the built programs (RunProgram,
// CheckerPath). Link the test with `ict_test_support` and make it depend on
// the programs it runs (add_dependencies) so that they are built first.

#include "support/file_helpers.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
