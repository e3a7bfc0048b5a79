#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>
#include <boost/process/search_path.hpp>

#include "support/file_helpers.h"
#include "support/host_tools.h"
#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

using testing::HasSubstr;

// The revocation policy of a trust set is read at build time; a misspelt
// root would silently require nothing, so the build refuses it.
TEST(TrustPolicyTest, OnlyRootNamesMayRequireARevocationList) {
    ICT_NEEDS_LINUX_TOOL("cmake");
    const auto cmake = boost::process::search_path("cmake");
    const struct {
        const char* policy;
        bool accepted;
    } cases[] = {
        {"# deployment roots without which nothing passes\n3020d1\n4823d1  # the release root\n",
         true},
        {"\n   \n", true},
        {"3020d2\n", false},
        {"3520p1 4820d1\n", false},  // one name a line
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.policy);
        ict_test::TempDir dir;
        boost::filesystem::create_directories(dir / "set" / "roots");
        ict_test::WriteText(dir / "set" / "roots" / "crl-must-exist.txt", test.policy);
        ict_test::RunOptions options;
        options.arguments = {"-DTRUST_DIR=" + (dir / "set").string(),
                             "-DOUTPUT=" + (dir / "out.cpp").string(),
                             "-DFILES=roots/crl-must-exist.txt", "-P",
                             (ict_test::SourceDir() / "trust" / "embed_trust.cmake").string()};
        const auto run = ict_test::RunProgram(cmake, options);
        if (test.accepted) {
            EXPECT_EQ(run.exitCode, 0) << run.Describe();
            EXPECT_THAT(ict_test::ReadText(dir / "out.cpp"),
                        HasSubstr("{\"roots/crl-must-exist.txt\", kData0, "));
        } else {
            EXPECT_NE(run.exitCode, 0) << run.Describe();
            // CMake wraps its message; the file and the word are enough.
            EXPECT_THAT(run.err, HasSubstr("crl-must-exist.txt: unknown"));
        }
    }
}

}  // namespace
