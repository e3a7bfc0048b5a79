#pragma once

// Running the Windows build's programs under Wine from a host test.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"

namespace wine_e2e {

// Skips the test, saying why, when no Windows build was named.
#define ICT_REQUIRE_WINDOWS_BUILD()                                                       \
    do {                                                                                  \
        if (ict_test::WindowsBuildDir().empty()) {                                        \
            GTEST_SKIP() << "ICT_WINDOWS_BUILD_DIR is not set (scripts/windows-test.sh)"; \
        }                                                                                 \
    } while (false)

// The wine program (ICT_WINE, else "wine" on the PATH); Wine's own tools run
// as programs of the prefix.
boost::filesystem::path Wine();

// Runs the Windows checker under Wine.
ict_test::RunResult RunChecker(const std::vector<std::string>& arguments,
                               const boost::filesystem::path& workingDirectory = {});

// Runs the checker of the Linux build on the same arguments.
ict_test::RunResult RunLinuxChecker(const std::vector<std::string>& arguments);

// Imports registry data in REGEDIT4 form into the test prefix (wine regedit).
void ImportRegistry(const std::string& regedit4Text);

// A registry key path of this test alone, below HKLM\Software\IctTest.
std::string TestKeyPath();

// Bytes as base64 and their digests (SHA-256 and GOST R 34.11-2012 256-bit,
// the latter through the openssl command line and its GOST engine).
std::string Base64(const std::string& bytes);
std::string Sha256Base64(const std::string& bytes);
std::string Gost2012Base64(const std::string& bytes);

// The product version of the CMake project.
std::string ProjectVersion();

// Lines of `text` that belong to the per-object report and the summary, with
// every occurrence of `root` replaced by "<root>": the part of a run that must
// not depend on the platform.
std::vector<std::string> ObjectLines(const std::string& text, const std::string& root);

}  // namespace wine_e2e
