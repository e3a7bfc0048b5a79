#include <algorithm>
#include <memory>

#include "api_guard.h"
#include "object_input.h"
#include "objects.h"

using dsvm::detail::Guarded;

extern "C" DsvmResult DsvmParamsCreate(DsvmParams** params) {
    return Guarded([&] {
        if (params == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        *params = new DsvmParams();
        return DSVM_OK;
    });
}

extern "C" void DsvmParamsDestroy(DsvmParams* params) {
    delete params;
}

extern "C" DsvmResult DsvmParamsAddKey(DsvmParams* params, const void* blob, size_t size) {
    return Guarded([&] {
        if (params == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        dsvm::detail::Key key;
        const DsvmResult loaded = dsvm::detail::LoadPublicKey(blob, size, &key);
        if (loaded == DSVM_OK) {
            params->publicKeys.push_back(std::move(key));
        }
        return loaded;
    });
}

extern "C" DsvmResult DsvmParamsAddPrivateKey(DsvmParams* params, const char* pem, size_t size) {
    return Guarded([&] {
        if (params == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        dsvm::detail::Key key;
        const DsvmResult loaded = dsvm::detail::LoadPrivateKey(pem, size, &key);
        if (loaded == DSVM_OK) {
            params->privateKeys.push_back(std::move(key));
        }
        return loaded;
    });
}

extern "C" DsvmResult DsvmParamsAddObject(DsvmParams* params, const DsvmObjectReader* object,
                                          const uint16_t* name) {
    return Guarded([&] {
        if (params == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        const DsvmResult checked = dsvm::detail::CheckReader(object);
        if (checked != DSVM_OK) {
            return checked;
        }
        DsvmObjectEntry entry;
        entry.reader = *object;
        for (const uint16_t* cursor = name; cursor != nullptr && *cursor != 0; ++cursor) {
            entry.name.push_back(static_cast<char16_t>(*cursor));
        }
        params->objects.push_back(std::move(entry));
        return DSVM_OK;
    });
}

extern "C" DsvmResult DsvmParamsSetObjectHash(DsvmParams* params, const void* hash, size_t size) {
    return Guarded([&] {
        if (params == nullptr || hash == nullptr || size != DSVM_HASH_SIZE) {
            return DSVM_E_INVALID_PARAMETER;
        }
        if (params->objects.empty()) {
            return DSVM_E_OBJECT_NOT_FOUND;
        }
        dsvm::detail::Digest digest;
        const auto* bytes = static_cast<const std::uint8_t*>(hash);
        std::copy(bytes, bytes + DSVM_HASH_SIZE, digest.begin());
        params->objects.back().hash = digest;
        return DSVM_OK;
    });
}
