// Feeds arbitrary bytes to the DSVM signature parser as a signed object: the
// trailer and block are located, every property is asked for, the object is
// hashed and verified against the development release keys. Nothing may read
// outside the object, crash or leak, whatever the sizes inside claim.
#include <cstdlib>

#include "dsvm/dsvm.h"
#include "fuzz_input.h"

namespace {

DsvmHandle* gHandle = nullptr;

// Reads from a copy of exactly the input's size, so that any read beyond it
// is an overflow the address sanitizer reports.
struct Object {
    std::vector<std::uint8_t> bytes;
    static int Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                    std::size_t* bytesRead) {
        const auto* self = static_cast<const Object*>(context);
        ict_fuzz::CopyInside(self->bytes.data(), self->bytes.size(), offset, buffer, size);
        *bytesRead = size;
        return 0;
    }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (DsvmInitialize() != DSVM_OK) {
        std::abort();
    }
    DsvmParams* keys = nullptr;
    DsvmParamsCreate(&keys);
    for (const char* name : {"release-1.der", "release-2.der"}) {
        const auto blob = ict_fuzz::ReadSourceFile(std::string("trust/development/dsvm/") + name);
        if (DsvmParamsAddKey(keys, blob.data(), blob.size()) != DSVM_OK) {
            std::abort();
        }
    }
    DsvmHandleCreate(DSVM_GOST_2012, &gHandle);
    if (DsvmPrepareRegistrySet(gHandle, keys) != DSVM_OK) {
        std::abort();
    }
    DsvmParamsDestroy(keys);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Object object{std::vector<std::uint8_t>(data, data + size)};
    DsvmObjectReader reader{&Object::Read, &object, object.bytes.size()};

    std::uint64_t position = 0;
    std::uint64_t signatureSize = 0;
    std::uint8_t keyId[DSVM_HASH_SIZE];
    std::uint16_t algorithm = 0;
    const DsvmResult found = DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_SIGNATURE_POSITION,
                                                      &position, sizeof(position));
    DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_SIGNATURE_SIZE, &signatureSize,
                             sizeof(signatureSize));
    DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_KEY_ID, keyId, sizeof(keyId));
    DsvmGetSignatureProperty(&reader, DSVM_PROPERTY_SIGNATURE_ALGORITHM, &algorithm,
                             sizeof(algorithm));
    if (found == DSVM_OK && (position > size || signatureSize != size - position)) {
        std::abort();  // a located signature always ends the object
    }

    DsvmHash* hash = nullptr;
    DsvmHashCreate(&hash);
    std::uint8_t digest[DSVM_HASH_SIZE];
    if (DsvmHashObject(hash, &reader, DSVM_HASH_IGNORE_SIGNATURE) != DSVM_OK ||
        DsvmHashFinish(hash, digest, sizeof(digest)) != DSVM_OK) {
        std::abort();  // in memory, hashing cannot fail
    }
    DsvmHashDestroy(hash);

    DsvmParams* objects = nullptr;
    DsvmParamsCreate(&objects);
    DsvmParamsAddObject(objects, &reader, nullptr);
    const DsvmResult verified = DsvmVerifyObjects(gHandle, objects);
    DsvmParamsDestroy(objects);
    if (verified != DSVM_OK && DsvmGetResultText(verified) == nullptr) {
        std::abort();  // every failure is one of the library's own codes
    }
    return 0;
}
