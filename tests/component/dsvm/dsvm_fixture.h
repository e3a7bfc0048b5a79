#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dsvm/dsvm.h"

namespace dsvm_test {

using Bytes = std::vector<std::uint8_t>;

// The development key files: "release-1" .. "test-2" (public parts from the
// trust set, private parts from its private folder) and "foreign".
Bytes PublicKey(const std::string& name);
std::string PrivateKeyPem(const std::string& name);

Bytes ToBytes(const std::string& text);
Bytes Digest(const Bytes& data);  // GOST R 34.11-2012 256 through DsvmHash

// `content` with a signature by the named key appended; fails the test when
// the library refuses.
Bytes Sign(const Bytes& content, const std::string& keyName);

// Verifies one object against the named public keys.
DsvmResult Verify(const DsvmObjectReader& reader, const std::vector<std::string>& keyNames);
DsvmResult Verify(const Bytes& object, const std::vector<std::string>& keyNames);

// An initialised library for the test's lifetime.
class DsvmTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(DsvmInitialize(), DSVM_OK); }
    void TearDown() override { EXPECT_EQ(DsvmRelease(), DSVM_OK); }
};

}  // namespace dsvm_test
