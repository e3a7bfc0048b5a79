#pragma once

// Running the Windows build's programs under Wine from a host test.

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e_product.h"

// Skips the test, saying why, when no Windows build was named.
#define ICT_REQUIRE_WINDOWS_BUILD()                                                       \
    do {                                                                                  \
        if (wine_e2e::WindowsBuildDir().empty()) {                                        \
            GTEST_SKIP() << "ICT_WINDOWS_BUILD_DIR is not set (scripts/windows-test.sh)"; \
        }                                                                                 \
    } while (false)

namespace wine_e2e {

// The Windows build tree whose programs the tests run (ICT_WINDOWS_BUILD_DIR;
// empty when none was given) and its checker.
boost::filesystem::path WindowsBuildDir();
boost::filesystem::path WindowsCheckerPath();

// The wine program (ICT_WINE, else "wine" on the PATH); Wine's own tools run
// as programs of the prefix.
boost::filesystem::path Wine();

// "/tmp/a/b.xml" -> "Z:\tmp\a\b.xml": how a Windows program under Wine
// names a file of the host (Wine maps "/" to drive Z:).
std::string ToWinePath(const boost::filesystem::path& hostPath);

// Runs a Windows program through Wine with the WINEPREFIX of the
// environment: arguments that are absolute host paths ("/x" or
// "--option=/x") become Wine paths, WINEDEBUG defaults to "-all" so that
// Wine's own notes stay out of the streams, "\r\n" is read back as "\n".
ict_test::RunResult RunUnderWine(const boost::filesystem::path& program,
                                 ict_test::RunOptions options);

inline ict_test::RunResult RunChecker(const std::vector<std::string>& arguments) {
    ict_test::RunOptions options;
    options.arguments = arguments;
    return RunUnderWine(WindowsCheckerPath(), options);
}

// Imports registry data in REGEDIT4 form into the test prefix (wine regedit).
void ImportRegistry(const std::string& regedit4Text);

}  // namespace wine_e2e
