#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "dsvm_fixture.h"

namespace {

using dsvm_test::Bytes;
using dsvm_test::DsvmTest;
using dsvm_test::Sign;
using dsvm_test::Verify;

const std::vector<std::string> kReleasePair = {"release-1", "release-2"};
const std::vector<std::string> kTestPair = {"test-1", "test-2"};

constexpr std::size_t kTrailerSize = 16;

Bytes Content() {
    return dsvm_test::ToBytes("The installed product's file.\n");
}

std::uint64_t Property64(const Bytes& object, std::uint32_t property, DsvmResult* result) {
    DsvmObjectReader reader;
    DsvmInitMemoryReader(&reader, object.data(), object.size());
    std::uint64_t value = 0;
    *result = DsvmGetSignatureProperty(&reader, property, &value, sizeof(value));
    return value;
}

std::uint32_t Little(const Bytes& bytes, std::size_t offset, int size) {
    std::uint32_t value = 0;
    for (int index = size - 1; index >= 0; --index) {
        value = value << 8 | bytes[offset + static_cast<std::size_t>(index)];
    }
    return value;
}

// The layout other implementations rely on: the content untouched, then the
// block and the trailer, little-endian fields at fixed offsets, as the
// library's README documents them; position and size describe the two.
TEST_F(DsvmTest, TheAppendedBlockHasTheDocumentedLayout) {
    const Bytes content = Content();
    for (const auto& [key, algorithm, signatureSize] :
         {std::make_tuple("release-1", 1u, 64u), std::make_tuple("release-2", 2u, 128u)}) {
        SCOPED_TRACE(key);
        const Bytes object = Sign(content, key);
        const std::size_t block = content.size();
        ASSERT_EQ(object.size(), block + 40 + signatureSize + kTrailerSize);
        EXPECT_TRUE(std::equal(content.begin(), content.end(), object.begin()));
        EXPECT_EQ(Little(object, block, 2), 1u) << "digest algorithm";
        EXPECT_EQ(Little(object, block + 2, 2), algorithm) << "signature algorithm";
        const Bytes keyId = dsvm_test::Digest(dsvm_test::PublicKey(key));
        EXPECT_EQ(Bytes(object.begin() + block + 4, object.begin() + block + 36), keyId);
        EXPECT_EQ(Little(object, block + 36, 2), signatureSize);
        EXPECT_EQ(Little(object, block + 38, 2), 0u) << "reserved";
        const std::size_t trailer = object.size() - kTrailerSize;
        EXPECT_EQ(std::memcmp(object.data() + trailer, "DSVM2SIG", 8), 0);
        EXPECT_EQ(Little(object, trailer + 8, 4), 40 + signatureSize) << "block size";
        EXPECT_EQ(Little(object, trailer + 12, 4), 1u) << "format version";

        DsvmResult result = 0;
        EXPECT_EQ(Property64(object, DSVM_PROPERTY_SIGNATURE_POSITION, &result), block);
        EXPECT_EQ(result, DSVM_OK);
        EXPECT_EQ(Property64(object, DSVM_PROPERTY_SIGNATURE_SIZE, &result),
                  40 + signatureSize + kTrailerSize);
        EXPECT_EQ(result, DSVM_OK);
        DsvmObjectReader reader;
        DsvmInitMemoryReader(&reader, object.data(), object.size());
        Bytes value(DSVM_HASH_SIZE);
        ASSERT_EQ(DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_KEY_ID, value.data(), 32),
                  DSVM_OK);
        EXPECT_EQ(value, keyId);
        EXPECT_EQ(DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_KEY_ID, value.data(), 8),
                  DSVM_E_PROPERTY_BUFFER_SIZE);
        EXPECT_EQ(DsvmGetSignatureProperty(&reader, 99, value.data(), 32),
                  DSVM_E_PROPERTY_NOT_FOUND);
    }
}

// Either key of a pair verifies; everything else is refused for its reason.
TEST_F(DsvmTest, EachObjectGetsItsVerdict) {
    const Bytes content = Content();
    const Bytes good = Sign(content, "release-1");
    const std::size_t block = content.size();
    const std::size_t trailer = good.size() - kTrailerSize;
    const auto changed = [&](std::size_t at, std::uint8_t mask) {
        Bytes bytes = good;
        bytes[at] ^= mask;
        return bytes;
    };
    const auto stored = [&](std::size_t at, std::uint32_t value) {
        Bytes bytes = good;
        for (std::size_t index = 0; index < 4; ++index) {
            bytes[at + index] = static_cast<std::uint8_t>(value >> (8 * index));
        }
        return bytes;
    };
    Bytes zeroSignature = good;
    std::fill(zeroSignature.begin() + block + 40, zeroSignature.end() - kTrailerSize, 0);
    const struct {
        const char* what;
        Bytes object;
        const std::vector<std::string>& keys;
        DsvmResult expected;
    } cases[] = {
        {"release-1", good, kReleasePair, DSVM_OK},
        {"release-2", Sign(content, "release-2"), kReleasePair, DSVM_OK},
        {"test-1", Sign(content, "test-1"), kTestPair, DSVM_OK},
        {"test-2", Sign(content, "test-2"), kTestPair, DSVM_OK},
        {"release-1 against the test pair", good, kTestPair, DSVM_E_KEY_NOT_FOUND},
        {"release-2 against the test pair", Sign(content, "release-2"), kTestPair,
         DSVM_E_KEY_NOT_FOUND},
        {"a foreign key", Sign(content, "foreign"), kReleasePair, DSVM_E_KEY_NOT_FOUND},
        {"a content byte", changed(3, 0x01), kReleasePair, DSVM_E_INVALID_SIGNATURE},
        {"a signature byte", changed(block + 50, 0x80), kReleasePair, DSVM_E_INVALID_SIGNATURE},
        // Out of range for GOST: must neither crash nor pass.
        {"a signature of zeros", zeroSignature, kReleasePair, DSVM_E_INVALID_SIGNATURE},
        {"the key id", changed(block + 4, 0x01), kReleasePair, DSVM_E_KEY_NOT_FOUND},
        // The block claims a 512-bit key for the 256-bit key it names.
        {"the signature algorithm", changed(block + 2, 0x03), kReleasePair,
         DSVM_E_INCOMPLETE_SIGNATURE},
        {"empty", {}, kReleasePair, DSVM_E_EMPTY_OBJECT},
        {"unsigned", content, kReleasePair, DSVM_E_SIGNATURE_NOT_FOUND},
        {"shorter than a trailer", dsvm_test::ToBytes("short"), kReleasePair,
         DSVM_E_SIGNATURE_NOT_FOUND},
        {"the trailer's last byte gone", Bytes(good.begin(), good.end() - 1), kReleasePair,
         DSVM_E_SIGNATURE_NOT_FOUND},
        // The block size points before the start of the file.
        {"the front gone", Bytes(good.end() - kTrailerSize - 50, good.end()), kReleasePair,
         DSVM_E_INCOMPLETE_SIGNATURE},
        {"block size 0", stored(trailer + 8, 0), kReleasePair, DSVM_E_INCOMPLETE_SIGNATURE},
        {"block size 1", stored(trailer + 8, 1), kReleasePair, DSVM_E_INCOMPLETE_SIGNATURE},
        {"block size one short", stored(trailer + 8, 103), kReleasePair,
         DSVM_E_INCOMPLETE_SIGNATURE},
        {"block size above the maximum", stored(trailer + 8, 4081), kReleasePair,
         DSVM_E_INCOMPLETE_SIGNATURE},
        {"block size 2^31-1", stored(trailer + 8, 0x7FFFFFFF), kReleasePair,
         DSVM_E_INCOMPLETE_SIGNATURE},
        {"block size 2^32-1", stored(trailer + 8, 0xFFFFFFFF), kReleasePair,
         DSVM_E_INCOMPLETE_SIGNATURE},
        // The signature length inside the block disagrees with the block size.
        {"signature length", stored(block + 36, 63), kReleasePair, DSVM_E_INCOMPLETE_SIGNATURE},
        {"format version", stored(trailer + 12, 2), kReleasePair, DSVM_E_TYPE_MISMATCH},
        {"digest algorithm", changed(block, 0x03), kReleasePair, DSVM_E_TYPE_MISMATCH},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(Verify(test.object, test.keys), test.expected) << test.what;
    }
}

TEST_F(DsvmTest, ObjectHashIgnoresOnlyAWellFormedSignature) {
    const Bytes content = Content();
    const Bytes signedObject = Sign(content, "test-1");
    auto hashOf = [](const Bytes& object, std::uint32_t mode, DsvmResult* result) {
        DsvmObjectReader reader;
        DsvmInitMemoryReader(&reader, object.data(), object.size());
        DsvmHash* hash = nullptr;
        EXPECT_EQ(DsvmHashCreate(&hash), DSVM_OK);
        Bytes value(DSVM_HASH_SIZE);
        *result = DsvmHashObject(hash, &reader, mode);
        EXPECT_EQ(DsvmHashFinish(hash, value.data(), value.size()), DSVM_OK);
        DsvmHashDestroy(hash);
        return value;
    };
    DsvmResult result = 0;
    EXPECT_EQ(hashOf(signedObject, DSVM_HASH_IGNORE_SIGNATURE, &result),
              dsvm_test::Digest(content));
    EXPECT_EQ(result, DSVM_OK);
    EXPECT_EQ(hashOf(signedObject, DSVM_HASH_WHOLE_OBJECT, &result),
              dsvm_test::Digest(signedObject));
    // Unsigned or damaged objects are hashed whole; verification says why.
    // The front is cut into the block: the trailer names more than there is.
    const Bytes damaged(signedObject.begin() + static_cast<std::ptrdiff_t>(content.size()) + 10,
                        signedObject.end());
    EXPECT_EQ(hashOf(damaged, DSVM_HASH_IGNORE_SIGNATURE, &result), dsvm_test::Digest(damaged));
    EXPECT_EQ(result, DSVM_OK);
    hashOf(content, 7, &result);
    EXPECT_EQ(result, DSVM_E_INVALID_PARAMETER);
}

TEST_F(DsvmTest, SigningRefusesSignedEmptyObjectsAndAmbiguousKeys) {
    DsvmHandle* handle = nullptr;
    ASSERT_EQ(DsvmHandleCreate(DSVM_GOST_2012, &handle), DSVM_OK);
    DsvmParams* keys = nullptr;
    ASSERT_EQ(DsvmParamsCreate(&keys), DSVM_OK);
    Bytes out(DSVM_MAX_SIGNATURE_SIZE);
    auto sign = [&](const Bytes& object, std::size_t capacity) {
        DsvmObjectReader reader;
        DsvmInitMemoryReader(&reader, object.data(), object.size());
        std::size_t size = capacity;
        return DsvmSignObject(handle, keys, &reader, out.data(), &size);
    };

    EXPECT_EQ(sign(Content(), out.size()), DSVM_E_KEY_NOT_FOUND);
    const std::string pem = dsvm_test::PrivateKeyPem("release-1");
    ASSERT_EQ(DsvmParamsAddPrivateKey(keys, pem.data(), pem.size()), DSVM_OK);
    EXPECT_EQ(sign(Content(), 50), DSVM_E_INVALID_PARAMETER);
    EXPECT_EQ(sign(Sign(Content(), "test-1"), out.size()), DSVM_E_SIGNATURE_PRESENT);
    EXPECT_EQ(sign({}, out.size()), DSVM_E_EMPTY_OBJECT);
    ASSERT_EQ(DsvmParamsAddPrivateKey(keys, pem.data(), pem.size()), DSVM_OK);
    EXPECT_EQ(sign(Content(), out.size()), DSVM_E_SEVERAL_PRIVATE_KEYS);

    DsvmParamsDestroy(keys);
    DsvmHandleDestroy(handle);
}

TEST_F(DsvmTest, AListFailsForAnyBadObjectAndAGivenHashIsTrusted) {
    const Bytes good = Sign(Content(), "release-2");
    const Bytes unsignedObject = Content();
    DsvmParams* keys = nullptr;
    DsvmHandle* handle = nullptr;
    ASSERT_EQ(DsvmParamsCreate(&keys), DSVM_OK);
    const Bytes blob = dsvm_test::PublicKey("release-2");
    ASSERT_EQ(DsvmParamsAddKey(keys, blob.data(), blob.size()), DSVM_OK);
    ASSERT_EQ(DsvmHandleCreate(DSVM_GOST_2012, &handle), DSVM_OK);
    ASSERT_EQ(DsvmPrepareRegistrySet(handle, keys), DSVM_OK);
    DsvmObjectReader goodReader;
    DsvmObjectReader badReader;
    DsvmInitMemoryReader(&goodReader, good.data(), good.size());
    DsvmInitMemoryReader(&badReader, unsignedObject.data(), unsignedObject.size());
    Bytes digest = dsvm_test::Digest(Content());
    // `hashed`: the object whose hash is set, `wrong`: set a changed one.
    const auto verify = [&](const std::vector<const DsvmObjectReader*>& list, std::size_t hashed,
                            bool wrong) {
        DsvmParams* objects = nullptr;
        EXPECT_EQ(DsvmParamsCreate(&objects), DSVM_OK);
        EXPECT_EQ(DsvmParamsSetObjectHash(objects, digest.data(), digest.size()),
                  DSVM_E_OBJECT_NOT_FOUND);
        Bytes hash = digest;
        hash[0] ^= wrong ? 1 : 0;
        for (std::size_t index = 0; index < list.size(); ++index) {
            EXPECT_EQ(DsvmParamsAddObject(objects, list[index], nullptr), DSVM_OK);
            if (index == hashed) {
                EXPECT_EQ(DsvmParamsSetObjectHash(objects, hash.data(), 31),
                          DSVM_E_INVALID_PARAMETER);
                EXPECT_EQ(DsvmParamsSetObjectHash(objects, hash.data(), hash.size()), DSVM_OK);
            }
        }
        const DsvmResult result = DsvmVerifyObjects(handle, objects);
        DsvmParamsDestroy(objects);
        return result;
    };
    // A bad object fails the list wherever it stands.
    EXPECT_EQ(verify({&goodReader, &badReader, &goodReader}, 0, false), DSVM_E_NOT_ALL_VERIFIED);
    EXPECT_EQ(verify({&badReader, &goodReader}, 1, false), DSVM_E_NOT_ALL_VERIFIED);
    EXPECT_EQ(verify({&goodReader, &goodReader}, 1, false), DSVM_OK);
    // The hash a caller attaches is what the signature is checked against.
    EXPECT_EQ(verify({&goodReader}, 0, true), DSVM_E_INVALID_SIGNATURE);
    DsvmHandleDestroy(handle);
    DsvmParamsDestroy(keys);
}

}  // namespace
