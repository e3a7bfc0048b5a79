#pragma once

#include <string>

#include <gtest/gtest.h>
#include <boost/process/search_path.hpp>

namespace ict_test {

// Why a Linux command-line tool (openssl, osslsigncode, MinGW's gcc,
// sha256sum, cmake) cannot serve this test process, or "" when it can: a
// Windows process cannot start the host's tools, and elsewhere the tool may
// not be installed.
inline std::string LinuxToolUnavailable(const std::string& name) {
#ifdef _WIN32
    return "needs the Linux command-line tool " + name +
           ", which a Windows test process cannot run";
#else
    return boost::process::search_path(name).empty()
               ? name + " is not installed (scripts/install-deps.sh)"
               : std::string();
#endif
}

}  // namespace ict_test

// For a test that runs a Linux command-line tool: skipped on Windows, where
// it cannot run; on Linux a missing tool fails the test, never skips it.
#ifdef _WIN32
#define ICT_NEEDS_LINUX_TOOL(name) GTEST_SKIP() << ict_test::LinuxToolUnavailable(name)
#else
#define ICT_NEEDS_LINUX_TOOL(name) ASSERT_EQ(ict_test::LinuxToolUnavailable(name), "")
#endif
