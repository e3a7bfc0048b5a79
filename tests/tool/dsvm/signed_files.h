#pragma once

#include <string>

#include <boost/filesystem/path.hpp>

#include "dsvm_fixture.h"
#include "support/file_helpers.h"

namespace dsvm_test {

// Writes `content` signed by the named development key to `path`.
inline void WriteSigned(const boost::filesystem::path& path, const std::string& content,
                        const std::string& keyName) {
    // Signing needs the library; the count keeps a verifier's own use intact.
    EXPECT_EQ(DsvmInitialize(), DSVM_OK);
    ict_test::WriteBytes(path, Sign(ToBytes(content), keyName));
    EXPECT_EQ(DsvmRelease(), DSVM_OK);
}

}  // namespace dsvm_test
