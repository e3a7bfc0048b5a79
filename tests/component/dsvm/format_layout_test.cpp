#include <cstring>

#include <gtest/gtest.h>

#include "dsvm_fixture.h"

namespace {

using dsvm_test::Bytes;
using dsvm_test::DsvmTest;

std::uint32_t U16(const Bytes& bytes, std::size_t offset) {
    return bytes[offset] | (bytes[offset + 1] << 8);
}

std::uint32_t U32(const Bytes& bytes, std::size_t offset) {
    return U16(bytes, offset) | (U16(bytes, offset + 2) << 16);
}

// The layout other implementations rely on: little-endian fields at fixed
// offsets, as the library's README documents them.
TEST_F(DsvmTest, SignedObjectHasTheDocumentedLayout) {
    const Bytes content = dsvm_test::ToBytes("layout");
    for (const auto& [key, algorithm, signatureSize] :
         {std::make_tuple("test-1", 1u, 64u), std::make_tuple("test-2", 2u, 128u)}) {
        const Bytes object = dsvm_test::Sign(content, key);
        const std::size_t block = content.size();
        const std::size_t trailer = object.size() - 16;

        EXPECT_EQ(U16(object, block + 0), 1u) << "digest algorithm";
        EXPECT_EQ(U16(object, block + 2), algorithm) << "signature algorithm";
        EXPECT_EQ(Bytes(object.begin() + block + 4, object.begin() + block + 36),
                  dsvm_test::Digest(dsvm_test::PublicKey(key)))
            << "key id";
        EXPECT_EQ(U16(object, block + 36), signatureSize);
        EXPECT_EQ(U16(object, block + 38), 0u) << "reserved";
        EXPECT_EQ(trailer - block, 40 + signatureSize);

        EXPECT_EQ(std::memcmp(object.data() + trailer, "DSVM2SIG", 8), 0);
        EXPECT_EQ(U32(object, trailer + 8), 40 + signatureSize) << "block size";
        EXPECT_EQ(U32(object, trailer + 12), 1u) << "format version";
    }
}

}  // namespace
