#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dsvm/dsvm.h"
#include "support/file_helpers.h"
#include "support/run_program.h"

// The development key files: "release-1" .. "test-2" (public parts from the
// trust set, private parts from its private folder) and "foreign".
namespace dsvm_test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

inline std::string KeyText(const std::string& file) {
    return ict_test::ReadText(ict_test::SourceDir() / "trust" / "development" / file);
}

inline Bytes PublicKey(const std::string& name) {
    return ToBytes(
        KeyText(name == "foreign" ? "private/dsvm/foreign.der" : "dsvm/" + name + ".der"));
}

inline std::string PrivateKeyPem(const std::string& name) {
    return KeyText("private/dsvm/" + name + ".pem");
}

// GOST R 34.11-2012 256 through DsvmHash.
inline Bytes Digest(const Bytes& data) {
    DsvmHash* hash = nullptr;
    EXPECT_EQ(DsvmHashCreate(&hash), DSVM_OK);
    EXPECT_EQ(DsvmHashUpdate(hash, data.data(), data.size()), DSVM_OK);
    Bytes value(DSVM_HASH_SIZE);
    EXPECT_EQ(DsvmHashFinish(hash, value.data(), value.size()), DSVM_OK);
    DsvmHashDestroy(hash);
    return value;
}

// A reader of `object`, which must outlive it.
inline DsvmObjectReader Reader(const Bytes& object) {
    DsvmObjectReader reader;
    DsvmInitMemoryReader(&reader, object.data(), object.size());
    return reader;
}

// `content` with a signature by the named key appended; fails the test when
// the library refuses.
inline Bytes Sign(const Bytes& content, const std::string& keyName) {
    DsvmParams* keys = nullptr;
    DsvmHandle* handle = nullptr;
    EXPECT_EQ(DsvmParamsCreate(&keys), DSVM_OK);
    const std::string pem = PrivateKeyPem(keyName);
    EXPECT_EQ(DsvmParamsAddPrivateKey(keys, pem.data(), pem.size()), DSVM_OK);
    EXPECT_EQ(DsvmHandleCreate(DSVM_GOST_2012, &handle), DSVM_OK);
    const DsvmObjectReader reader = Reader(content);
    Bytes signature(DSVM_MAX_SIGNATURE_SIZE);
    std::size_t size = signature.size();
    EXPECT_EQ(DsvmSignObject(handle, keys, &reader, signature.data(), &size), DSVM_OK);
    DsvmHandleDestroy(handle);
    DsvmParamsDestroy(keys);
    Bytes result = content;
    result.insert(result.end(), signature.begin(), signature.begin() + size);
    return result;
}

// Verifies one object against the named public keys.
inline DsvmResult Verify(const DsvmObjectReader& reader, const std::vector<std::string>& keyNames) {
    DsvmParams* keys = nullptr;
    DsvmParams* objects = nullptr;
    DsvmHandle* handle = nullptr;
    EXPECT_EQ(DsvmParamsCreate(&keys), DSVM_OK);
    for (const auto& name : keyNames) {
        const Bytes blob = PublicKey(name);
        EXPECT_EQ(DsvmParamsAddKey(keys, blob.data(), blob.size()), DSVM_OK) << name;
    }
    EXPECT_EQ(DsvmHandleCreate(DSVM_GOST_2012, &handle), DSVM_OK);
    EXPECT_EQ(DsvmPrepareRegistrySet(handle, keys), DSVM_OK);
    EXPECT_EQ(DsvmParamsCreate(&objects), DSVM_OK);
    EXPECT_EQ(DsvmParamsAddObject(objects, &reader, nullptr), DSVM_OK);
    const DsvmResult result = DsvmVerifyObjects(handle, objects);
    DsvmParamsDestroy(objects);
    DsvmHandleDestroy(handle);
    DsvmParamsDestroy(keys);
    return result;
}

inline DsvmResult Verify(const Bytes& object, const std::vector<std::string>& keyNames) {
    return Verify(Reader(object), keyNames);
}

// An initialised library for the test's lifetime.
class DsvmTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(DsvmInitialize(), DSVM_OK); }
    void TearDown() override { EXPECT_EQ(DsvmRelease(), DSVM_OK); }
};

}  // namespace dsvm_test
