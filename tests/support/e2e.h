#pragma once

// Everything an end-to-end test needs, in one include:
//
//   #include "support/e2e.h"
//
//   ict_test::TempDir dir;                                   // removed at scope end
//   ict_test::WriteText(dir / "integrity_check.xml", "<Manifest .../>");
//   ict_test::RunOptions options;
//   options.arguments = {"--verbose", (dir / "integrity_check.xml").string()};
//   options.workingDirectory = dir.Path();
//   options.environment["HOME"] = dir.Path().string();       // set or replace
//   options.removedEnvironment = {"LANG"};                   // unset
//   const ict_test::RunResult run = ict_test::RunProgram(ict_test::CheckerPath(), options);
//   EXPECT_EQ(run.exitCode, 0) << run.Describe();
//   EXPECT_THAT(run.out, testing::HasSubstr("SUCCEEDED"));
//
// Link the test with `ict_test_support` and make it depend on the program it
// runs (add_dependencies) so that the program is built first.

#include "support/file_helpers.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
