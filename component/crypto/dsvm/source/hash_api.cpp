#include <algorithm>
#include <memory>

#include "api_guard.h"
#include "object_input.h"
#include "objects.h"

using dsvm::detail::Guarded;

extern "C" DsvmResult DsvmHashCreate(DsvmHash** hash) {
    return Guarded([&] {
        if (hash == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        auto created = std::make_unique<DsvmHash>();
        const DsvmResult started = created->hash.Start();
        if (started != DSVM_OK) {
            return started;
        }
        *hash = created.release();
        return DSVM_OK;
    });
}

extern "C" void DsvmHashDestroy(DsvmHash* hash) {
    delete hash;
}

extern "C" DsvmResult DsvmHashUpdate(DsvmHash* hash, const void* data, size_t size) {
    return Guarded([&] {
        if (hash == nullptr || (data == nullptr && size != 0)) {
            return DSVM_E_INVALID_PARAMETER;
        }
        return hash->hash.Update(data, size);
    });
}

extern "C" DsvmResult DsvmHashObject(DsvmHash* hash, const DsvmObjectReader* object,
                                     uint32_t mode) {
    return Guarded([&] {
        if (hash == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        DsvmResult result = dsvm::detail::CheckReader(object);
        if (result == DSVM_OK) {
            result = dsvm::detail::HashObject(*object, mode, &hash->hash);
        }
        // A half-fed hash must not be finished by mistake.
        if (result != DSVM_OK) {
            hash->hash.Start();
        }
        return result;
    });
}

extern "C" DsvmResult DsvmHashFinish(DsvmHash* hash, uint8_t* value, size_t valueSize) {
    return Guarded([&] {
        if (hash == nullptr || value == nullptr || valueSize < DSVM_HASH_SIZE) {
            return DSVM_E_INVALID_PARAMETER;
        }
        dsvm::detail::Digest digest;
        const DsvmResult finished = hash->hash.Finish(&digest);
        if (finished != DSVM_OK) {
            return finished;
        }
        std::copy(digest.begin(), digest.end(), value);
        return hash->hash.Start();
    });
}
