#pragma once

// Running the Windows build's programs under Wine from a host test.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e_product.h"

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
inline ict_test::RunResult RunChecker(const std::vector<std::string>& arguments,
                                      const boost::filesystem::path& workingDirectory = {}) {
    return ict_test::e2e::Run(ict_test::WindowsCheckerPath(), arguments, workingDirectory);
}

// Imports registry data in REGEDIT4 form into the test prefix (wine regedit).
void ImportRegistry(const std::string& regedit4Text);

// A registry key path of this test alone, below HKLM\Software\IctTest.
std::string TestKeyPath();

// The GOST R 34.11-2012 256-bit digest of `bytes` as base64, through the
// openssl command line and its GOST engine.
std::string Gost2012Base64(const std::string& bytes);

// Lines of `text` with every occurrence of `root` replaced by "<root>": the
// part of a run that must not depend on the platform.
std::vector<std::string> ObjectLines(const std::string& text, const std::string& root);

}  // namespace wine_e2e
