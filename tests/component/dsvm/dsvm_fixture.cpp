#include "dsvm_fixture.h"

#include "support/file_helpers.h"
#include "support/run_program.h"

namespace dsvm_test {
namespace {

boost::filesystem::path TrustDir() {
    return ict_test::SourceDir() / "trust" / "development";
}

}  // namespace

Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

Bytes PublicKey(const std::string& name) {
    const auto folder = name == "foreign" ? TrustDir() / "private" / "dsvm" : TrustDir() / "dsvm";
    return ToBytes(ict_test::ReadText(folder / (name + ".der")));
}

std::string PrivateKeyPem(const std::string& name) {
    return ict_test::ReadText(TrustDir() / "private" / "dsvm" / (name + ".pem"));
}

Bytes Digest(const Bytes& data) {
    DsvmHash* hash = nullptr;
    EXPECT_EQ(DsvmHashCreate(&hash), DSVM_OK);
    EXPECT_EQ(DsvmHashUpdate(hash, data.data(), data.size()), DSVM_OK);
    Bytes value(DSVM_HASH_SIZE);
    EXPECT_EQ(DsvmHashFinish(hash, value.data(), value.size()), DSVM_OK);
    DsvmHashDestroy(hash);
    return value;
}

Bytes Sign(const Bytes& content, const std::string& keyName) {
    DsvmParams* keys = nullptr;
    DsvmHandle* handle = nullptr;
    EXPECT_EQ(DsvmParamsCreate(&keys), DSVM_OK);
    const std::string pem = PrivateKeyPem(keyName);
    EXPECT_EQ(DsvmParamsAddPrivateKey(keys, pem.data(), pem.size()), DSVM_OK);
    EXPECT_EQ(DsvmHandleCreate(DSVM_GOST_2012, &handle), DSVM_OK);
    DsvmObjectReader reader;
    DsvmInitMemoryReader(&reader, content.data(), content.size());
    Bytes signature(DSVM_MAX_SIGNATURE_SIZE);
    std::size_t size = signature.size();
    EXPECT_EQ(DsvmSignObject(handle, keys, &reader, signature.data(), &size), DSVM_OK);
    DsvmHandleDestroy(handle);
    DsvmParamsDestroy(keys);
    Bytes result = content;
    result.insert(result.end(), signature.begin(), signature.begin() + size);
    return result;
}

DsvmResult Verify(const DsvmObjectReader& reader, const std::vector<std::string>& keyNames) {
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

DsvmResult Verify(const Bytes& object, const std::vector<std::string>& keyNames) {
    DsvmObjectReader reader;
    DsvmInitMemoryReader(&reader, object.data(), object.size());
    return Verify(reader, keyNames);
}

}  // namespace dsvm_test
