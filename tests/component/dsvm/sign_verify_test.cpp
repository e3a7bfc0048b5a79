#include <cstring>
#include <string>
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

void StoreU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    for (int index = 0; index < 4; ++index) {
        bytes[offset + index] = static_cast<std::uint8_t>(value >> (8 * index));
    }
}

TEST_F(DsvmTest, EitherKeyOfThePairVerifiesAndBothKeySizesWork) {
    for (const auto& key : kReleasePair) {
        const Bytes signedObject = Sign(Content(), key);
        EXPECT_EQ(Verify(signedObject, kReleasePair), DSVM_OK) << key;
        // The same signature means nothing to the other pair.
        EXPECT_EQ(Verify(signedObject, kTestPair), DSVM_E_KEY_NOT_FOUND) << key;
    }
    for (const auto& key : kTestPair) {
        EXPECT_EQ(Verify(Sign(Content(), key), kTestPair), DSVM_OK) << key;
    }
    EXPECT_EQ(Verify(Sign(Content(), "foreign"), kReleasePair), DSVM_E_KEY_NOT_FOUND);
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
        EXPECT_EQ(Bytes(object.begin() + block + 4, object.begin() + block + 36),
                  dsvm_test::Digest(dsvm_test::PublicKey(key)))
            << "key id";
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
    }
}

TEST_F(DsvmTest, PropertiesCheckTheirBufferAndName) {
    const Bytes signedObject = Sign(Content(), "test-2");
    DsvmObjectReader reader;
    DsvmInitMemoryReader(&reader, signedObject.data(), signedObject.size());
    Bytes keyId(DSVM_HASH_SIZE);
    const Bytes blob = dsvm_test::PublicKey("test-2");
    Bytes computed(DSVM_HASH_SIZE);
    ASSERT_EQ(DsvmGetKeyId(blob.data(), blob.size(), computed.data(), computed.size()), DSVM_OK);
    ASSERT_EQ(DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_KEY_ID, keyId.data(), keyId.size()),
              DSVM_OK);
    EXPECT_EQ(computed, keyId);
    EXPECT_EQ(DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_KEY_ID, keyId.data(), 8),
              DSVM_E_PROPERTY_BUFFER_SIZE);
    EXPECT_EQ(DsvmGetSignatureProperty(&reader, 99, keyId.data(), keyId.size()),
              DSVM_E_PROPERTY_NOT_FOUND);
}

TEST_F(DsvmTest, AnyChangedByteBreaksTheSignature) {
    const Bytes signedObject = Sign(Content(), "release-1");
    const std::size_t position = Content().size();

    Bytes tamperedContent = signedObject;
    tamperedContent[3] ^= 0x01;
    EXPECT_EQ(Verify(tamperedContent, kReleasePair), DSVM_E_INVALID_SIGNATURE);

    Bytes tamperedSignature = signedObject;
    tamperedSignature[position + 40 + 10] ^= 0x80;
    EXPECT_EQ(Verify(tamperedSignature, kReleasePair), DSVM_E_INVALID_SIGNATURE);

    // A signature of all zeros is out of range for GOST and must not crash or pass.
    Bytes zeroSignature = signedObject;
    std::fill(zeroSignature.begin() + position + 40, zeroSignature.end() - kTrailerSize, 0);
    EXPECT_EQ(Verify(zeroSignature, kReleasePair), DSVM_E_INVALID_SIGNATURE);

    Bytes tamperedKeyId = signedObject;
    tamperedKeyId[position + 4] ^= 0x01;
    EXPECT_EQ(Verify(tamperedKeyId, kReleasePair), DSVM_E_KEY_NOT_FOUND);

    // The block claims a 512-bit key for the 256-bit key it names.
    Bytes wrongAlgorithm = signedObject;
    wrongAlgorithm[position + 2] = 2;
    EXPECT_EQ(Verify(wrongAlgorithm, kReleasePair), DSVM_E_INCOMPLETE_SIGNATURE);
}

TEST_F(DsvmTest, DamagedOrMissingSignaturesAreToldApart) {
    const Bytes content = Content();
    const Bytes signedObject = Sign(content, "release-1");
    const std::size_t trailer = signedObject.size() - kTrailerSize;

    EXPECT_EQ(Verify(Bytes{}, kReleasePair), DSVM_E_EMPTY_OBJECT);
    EXPECT_EQ(Verify(content, kReleasePair), DSVM_E_SIGNATURE_NOT_FOUND);
    EXPECT_EQ(Verify(dsvm_test::ToBytes("short"), kReleasePair), DSVM_E_SIGNATURE_NOT_FOUND);

    // The last byte of the trailer is gone: no trailer at the end any more.
    const Bytes truncatedTrailer(signedObject.begin(), signedObject.end() - 1);
    EXPECT_EQ(Verify(truncatedTrailer, kReleasePair), DSVM_E_SIGNATURE_NOT_FOUND);

    // The start of the file is gone: the block size points before the file.
    const Bytes truncatedFront(signedObject.end() - kTrailerSize - 50, signedObject.end());
    EXPECT_EQ(Verify(truncatedFront, kReleasePair), DSVM_E_INCOMPLETE_SIGNATURE);

    for (const std::uint32_t blockSize : {0u, 1u, 103u, 4081u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        Bytes huge = signedObject;
        StoreU32(huge, trailer + 8, blockSize);
        EXPECT_EQ(Verify(huge, kReleasePair), DSVM_E_INCOMPLETE_SIGNATURE) << blockSize;
    }
    // The signature length inside the block disagrees with the block size.
    Bytes inconsistent = signedObject;
    inconsistent[content.size() + 36] = 63;
    EXPECT_EQ(Verify(inconsistent, kReleasePair), DSVM_E_INCOMPLETE_SIGNATURE);

    Bytes otherVersion = signedObject;
    StoreU32(otherVersion, trailer + 12, 2);
    EXPECT_EQ(Verify(otherVersion, kReleasePair), DSVM_E_TYPE_MISMATCH);

    Bytes otherDigest = signedObject;
    otherDigest[content.size()] = 2;
    EXPECT_EQ(Verify(otherDigest, kReleasePair), DSVM_E_TYPE_MISMATCH);
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
    hashOf(signedObject, DSVM_HASH_UNSIGNED_OBJECT, &result);
    EXPECT_EQ(result, DSVM_E_SIGNATURE_PRESENT);
    hashOf({}, DSVM_HASH_UNSIGNED_OBJECT, &result);
    EXPECT_EQ(result, DSVM_E_EMPTY_OBJECT);
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

TEST_F(DsvmTest, ListsReportEachObjectAndAGivenHashIsTrusted) {
    const Bytes good = Sign(Content(), "release-2");
    const Bytes unsignedObject = Content();
    DsvmParams* keys = nullptr;
    DsvmParams* objects = nullptr;
    DsvmHandle* handle = nullptr;
    ASSERT_EQ(DsvmParamsCreate(&keys), DSVM_OK);
    const Bytes blob = dsvm_test::PublicKey("release-2");
    ASSERT_EQ(DsvmParamsAddKey(keys, blob.data(), blob.size()), DSVM_OK);
    ASSERT_EQ(DsvmHandleCreate(DSVM_GOST_2012, &handle), DSVM_OK);
    ASSERT_EQ(DsvmPrepareRegistrySet(handle, keys), DSVM_OK);
    ASSERT_EQ(DsvmParamsCreate(&objects), DSVM_OK);

    // A good object on either side of a bad one: the bad one fails the list
    // wherever it stands.
    DsvmObjectReader first;
    DsvmObjectReader second;
    DsvmObjectReader third;
    DsvmInitMemoryReader(&first, good.data(), good.size());
    DsvmInitMemoryReader(&second, unsignedObject.data(), unsignedObject.size());
    DsvmInitMemoryReader(&third, good.data(), good.size());
    const Bytes digest = dsvm_test::Digest(Content());
    EXPECT_EQ(DsvmParamsSetObjectHash(objects, digest.data(), digest.size()),
              DSVM_E_OBJECT_NOT_FOUND);
    ASSERT_EQ(DsvmParamsAddObject(objects, &first, nullptr), DSVM_OK);
    EXPECT_EQ(DsvmParamsSetObjectHash(objects, digest.data(), 31), DSVM_E_INVALID_PARAMETER);
    ASSERT_EQ(DsvmParamsSetObjectHash(objects, digest.data(), digest.size()), DSVM_OK);
    const std::uint16_t name[] = {u'a', u'.', u'e', u'x', u'e', 0};
    ASSERT_EQ(DsvmParamsAddObject(objects, &second, name), DSVM_OK);
    ASSERT_EQ(DsvmParamsAddObject(objects, &third, nullptr), DSVM_OK);

    DsvmResult result = 0;
    EXPECT_EQ(DsvmParamsGetObjectResult(objects, 0, &result), DSVM_OK);
    EXPECT_EQ(result, DSVM_E_PROPERTY_NOT_FOUND);  // not verified yet
    EXPECT_EQ(DsvmVerifyObjects(handle, objects), DSVM_E_NOT_ALL_VERIFIED);
    EXPECT_EQ(DsvmParamsGetObjectResult(objects, 0, &result), DSVM_OK);
    EXPECT_EQ(result, DSVM_OK);
    EXPECT_EQ(DsvmParamsGetObjectResult(objects, 1, &result), DSVM_OK);
    EXPECT_EQ(result, DSVM_E_SIGNATURE_NOT_FOUND);
    EXPECT_EQ(DsvmParamsGetObjectResult(objects, 2, &result), DSVM_OK);
    EXPECT_EQ(result, DSVM_OK);
    EXPECT_EQ(DsvmParamsGetObjectResult(objects, 3, &result), DSVM_E_OBJECT_NOT_FOUND);
    DsvmParamsDestroy(objects);

    // The hash a caller attaches is what the signature is checked against.
    ASSERT_EQ(DsvmParamsCreate(&objects), DSVM_OK);
    ASSERT_EQ(DsvmParamsAddObject(objects, &first, nullptr), DSVM_OK);
    Bytes wrongDigest = digest;
    wrongDigest[0] ^= 1;
    ASSERT_EQ(DsvmParamsSetObjectHash(objects, wrongDigest.data(), wrongDigest.size()), DSVM_OK);
    EXPECT_EQ(DsvmVerifyObjects(handle, objects), DSVM_E_INVALID_SIGNATURE);
    DsvmParamsDestroy(objects);

    DsvmHandleDestroy(handle);
    DsvmParamsDestroy(keys);
}

}  // namespace
