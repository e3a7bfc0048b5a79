#include <algorithm>
#include <memory>

#include "api_guard.h"
#include "object_input.h"
#include "objects.h"

using dsvm::detail::Digest;
using dsvm::detail::Guarded;
using dsvm::detail::Key;

namespace {

DsvmResult VerifyObject(const DsvmHandle& handle, const DsvmObjectEntry& object) {
    dsvm::detail::SignaturePlacement placement;
    DsvmResult result = dsvm::detail::FindSignature(object.reader, &placement);
    if (result != DSVM_OK) {
        return result;
    }
    const auto key =
        std::find_if(handle.registry.begin(), handle.registry.end(),
                     [&](const Key& candidate) { return candidate.id == placement.block.keyId; });
    if (key == handle.registry.end()) {
        return DSVM_E_KEY_NOT_FOUND;
    }
    // The block names the right key but claims another algorithm for it.
    if (key->algorithm != placement.block.keyAlgorithm) {
        return DSVM_E_INVALID_SIGNATURE;
    }
    Digest digest;
    if (object.hash) {
        digest = *object.hash;
    } else {
        dsvm::detail::Streebog256 hash;
        result = dsvm::detail::HashPrefix(object.reader, placement.position, &hash);
        if (result == DSVM_OK) {
            result = hash.Finish(&digest);
        }
        if (result != DSVM_OK) {
            return result;
        }
    }
    return dsvm::detail::VerifyDigest(*key, digest, placement.block.signature.data(),
                                      placement.block.signature.size());
}

}  // namespace

extern "C" DsvmResult DsvmHandleCreate(uint32_t gostVersion, DsvmHandle** handle) {
    return Guarded([&] {
        if (handle == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        if (gostVersion != DSVM_GOST_2012) {
            return DSVM_E_UNKNOWN_GOST_VERSION;
        }
        auto created = std::make_unique<DsvmHandle>();
        created->gostVersion = gostVersion;
        *handle = created.release();
        return DSVM_OK;
    });
}

extern "C" void DsvmHandleDestroy(DsvmHandle* handle) {
    delete handle;
}

extern "C" DsvmResult DsvmPrepareRegistrySet(DsvmHandle* handle, const DsvmParams* keys) {
    return Guarded([&] {
        if (handle == nullptr || keys == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        if (handle->prepared) {
            return DSVM_E_DUPLICATE_REGISTRY;
        }
        if (keys->publicKeys.empty()) {
            return DSVM_E_REGISTRY_NOT_FOUND;
        }
        handle->registry = keys->publicKeys;
        handle->prepared = true;
        return DSVM_OK;
    });
}

extern "C" DsvmResult DsvmVerifyObjects(const DsvmHandle* handle, DsvmParams* objects) {
    return Guarded([&] {
        if (handle == nullptr || objects == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        if (!handle->prepared) {
            return DSVM_E_REGISTRIES_NOT_PREPARED;
        }
        if (objects->objects.empty()) {
            return DSVM_E_OBJECT_NOT_FOUND;
        }
        bool allVerified = true;
        for (auto& object : objects->objects) {
            object.result = VerifyObject(*handle, object);
            allVerified = allVerified && object.result == DSVM_OK;
        }
        if (objects->objects.size() == 1) {
            return objects->objects.front().result;
        }
        return allVerified ? DSVM_OK : DSVM_E_NOT_ALL_VERIFIED;
    });
}

extern "C" DsvmResult DsvmSignObject(const DsvmHandle* handle, const DsvmParams* keys,
                                     const DsvmObjectReader* object, uint8_t* signature,
                                     size_t* signatureSize) {
    return Guarded([&] {
        if (handle == nullptr || keys == nullptr || signature == nullptr ||
            signatureSize == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        if (keys->privateKeys.empty()) {
            return DSVM_E_KEY_NOT_FOUND;
        }
        if (keys->privateKeys.size() > 1) {
            return DSVM_E_SEVERAL_PRIVATE_KEYS;
        }
        DsvmResult result = dsvm::detail::CheckReader(object);
        if (result != DSVM_OK) {
            return result;
        }
        dsvm::detail::Streebog256 hash;
        Digest digest;
        result = dsvm::detail::HashObject(*object, DSVM_HASH_UNSIGNED_OBJECT, &hash);
        if (result == DSVM_OK) {
            result = hash.Finish(&digest);
        }
        if (result != DSVM_OK) {
            return result;
        }
        const Key& key = keys->privateKeys.front();
        dsvm::detail::format::Block block;
        block.keyAlgorithm = key.algorithm;
        block.keyId = key.id;
        result = dsvm::detail::SignDigest(key, digest, &block.signature);
        if (result != DSVM_OK) {
            return result;
        }
        const dsvm::detail::Bytes bytes = dsvm::detail::format::Serialize(block);
        if (*signatureSize < bytes.size()) {
            *signatureSize = bytes.size();
            return DSVM_E_INVALID_PARAMETER;
        }
        std::copy(bytes.begin(), bytes.end(), signature);
        *signatureSize = bytes.size();
        return DSVM_OK;
    });
}
