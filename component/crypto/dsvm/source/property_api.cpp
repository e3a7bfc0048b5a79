#include <algorithm>
#include <cstring>

#include "api_guard.h"
#include "object_input.h"

using dsvm::detail::Guarded;

namespace {

DsvmResult CopyValue(const void* source, std::size_t sourceSize, void* value,
                     std::size_t valueSize) {
    if (valueSize != sourceSize) {
        return DSVM_E_PROPERTY_BUFFER_SIZE;
    }
    std::memcpy(value, source, sourceSize);
    return DSVM_OK;
}

bool IsKnownProperty(uint32_t property) {
    return property >= DSVM_PROPERTY_SIGNATURE_POSITION &&
           property <= DSVM_PROPERTY_SIGNATURE_ALGORITHM;
}

int ReadMemory(void* context, uint64_t offset, void* buffer, size_t size, size_t* bytesRead) {
    // The library asks only for ranges inside the reader's size.
    std::memcpy(buffer, static_cast<const std::uint8_t*>(context) + offset, size);
    *bytesRead = size;
    return 0;
}

}  // namespace

extern "C" DsvmResult DsvmGetSignatureProperty(const DsvmObjectReader* object, uint32_t property,
                                               void* value, size_t valueSize) {
    return Guarded([&] {
        const DsvmResult checked = dsvm::detail::CheckReader(object);
        if (checked != DSVM_OK) {
            return checked;
        }
        if (!IsKnownProperty(property)) {
            return DSVM_E_PROPERTY_NOT_FOUND;
        }
        if (value == nullptr) {
            return DSVM_E_INVALID_PARAMETER;
        }
        dsvm::detail::SignaturePlacement placement;
        const DsvmResult found = dsvm::detail::FindSignature(*object, &placement);
        if (found != DSVM_OK) {
            return found;
        }
        const auto& block = placement.block;
        const auto keyAlgorithm = static_cast<std::uint16_t>(block.keyAlgorithm);
        switch (property) {
            case DSVM_PROPERTY_SIGNATURE_POSITION:
                return CopyValue(&placement.position, sizeof(placement.position), value, valueSize);
            case DSVM_PROPERTY_SIGNATURE_SIZE:
                return CopyValue(&placement.size, sizeof(placement.size), value, valueSize);
            case DSVM_PROPERTY_KEY_ID:
                return CopyValue(block.keyId.data(), block.keyId.size(), value, valueSize);
            case DSVM_PROPERTY_DIGEST_ALGORITHM:
                return CopyValue(&block.digestAlgorithm, sizeof(block.digestAlgorithm), value,
                                 valueSize);
            default:
                return CopyValue(&keyAlgorithm, sizeof(keyAlgorithm), value, valueSize);
        }
    });
}

extern "C" void DsvmInitMemoryReader(DsvmObjectReader* reader, const void* data, size_t size) {
    if (reader == nullptr) {
        return;
    }
    reader->read = ReadMemory;
    reader->context = const_cast<void*>(data);
    reader->size = size;
}
