#pragma once

#include <gtest/gtest.h>
#include <boost/process/search_path.hpp>

// For a test that runs a Linux command-line tool (openssl, osslsigncode,
// sha256sum, cmake): a Windows test process cannot start it, so there the
// test is skipped; on Linux a missing tool fails the test, never skips it.
#ifdef _WIN32
#define ICT_NEEDS_LINUX_TOOL(name)                                 \
    GTEST_SKIP() << "needs the Linux command-line tool " << (name) \
                 << ", which a Windows test process cannot run"
#else
#define ICT_NEEDS_LINUX_TOOL(name)                          \
    ASSERT_FALSE(boost::process::search_path(name).empty()) \
        << (name) << " is not installed (scripts/install-deps.sh)"
#endif
