#include "object_input.h"

#include <algorithm>
#include <vector>

namespace dsvm::detail {

DsvmResult CheckReader(const DsvmObjectReader* reader) {
    return reader == nullptr || reader->read == nullptr ? DSVM_E_IO_NOT_INITIALIZED : DSVM_OK;
}

DsvmResult ReadAt(const DsvmObjectReader& reader, std::uint64_t offset, void* buffer,
                  std::size_t size, DsvmResult failure) {
    if (offset > reader.size || size > reader.size - offset) {
        return failure;
    }
    std::size_t read = 0;
    if (reader.read(reader.context, offset, buffer, size, &read) != 0 || read != size) {
        return failure;
    }
    return DSVM_OK;
}

DsvmResult FindSignature(const DsvmObjectReader& reader, SignaturePlacement* placement) {
    if (reader.size == 0) {
        return DSVM_E_EMPTY_OBJECT;
    }
    if (reader.size < format::kTrailerSize) {
        return DSVM_E_SIGNATURE_NOT_FOUND;
    }
    std::uint8_t trailerBytes[format::kTrailerSize];
    const std::uint64_t trailerOffset = reader.size - format::kTrailerSize;
    DsvmResult result =
        ReadAt(reader, trailerOffset, trailerBytes, sizeof(trailerBytes), DSVM_E_READ_CALLBACK);
    if (result != DSVM_OK) {
        return result;
    }
    format::Trailer trailer;
    result = format::ParseTrailer(trailerBytes, &trailer);
    if (result != DSVM_OK) {
        return result;
    }
    // trailerOffset cannot underflow (checked above); the block must fit before it.
    if (trailer.blockSize > trailerOffset) {
        return DSVM_E_INCOMPLETE_SIGNATURE;
    }
    const std::uint64_t blockOffset = trailerOffset - trailer.blockSize;
    std::vector<std::uint8_t> blockBytes(trailer.blockSize);
    result =
        ReadAt(reader, blockOffset, blockBytes.data(), blockBytes.size(), DSVM_E_READ_CALLBACK);
    if (result != DSVM_OK) {
        return result;
    }
    format::Block block;
    result = format::ParseBlock(blockBytes.data(), blockBytes.size(), &block);
    if (result != DSVM_OK) {
        return result;
    }
    placement->position = blockOffset;
    placement->size = trailer.blockSize + format::kTrailerSize;
    placement->block = std::move(block);
    return DSVM_OK;
}

DsvmResult ProbeSignature(const DsvmObjectReader& reader) {
    if (reader.size < format::kTrailerSize) {
        return DSVM_E_SIGNATURE_NOT_FOUND;
    }
    std::uint8_t trailer[format::kTrailerSize];
    const DsvmResult result = ReadAt(reader, reader.size - format::kTrailerSize, trailer,
                                     sizeof(trailer), DSVM_E_READ_CALLBACK);
    if (result != DSVM_OK) {
        return result;
    }
    return format::HasTrailerMagic(trailer) ? DSVM_OK : DSVM_E_SIGNATURE_NOT_FOUND;
}

DsvmResult HashPrefix(const DsvmObjectReader& reader, std::uint64_t length, Streebog256* hash) {
    if (length > reader.size) {
        return DSVM_E_HASH_INPUT;
    }
    std::vector<std::uint8_t> buffer(
        static_cast<std::size_t>(std::min<std::uint64_t>(length, kReadBlockSize)));
    std::uint64_t offset = 0;
    while (offset < length) {
        const auto chunk =
            static_cast<std::size_t>(std::min<std::uint64_t>(length - offset, buffer.size()));
        DsvmResult result = ReadAt(reader, offset, buffer.data(), chunk, DSVM_E_HASH_INPUT);
        if (result != DSVM_OK) {
            return result;
        }
        result = hash->Update(buffer.data(), chunk);
        if (result != DSVM_OK) {
            return result;
        }
        offset += chunk;
    }
    return DSVM_OK;
}

DsvmResult HashObject(const DsvmObjectReader& reader, std::uint32_t mode, Streebog256* hash) {
    switch (mode) {
        case DSVM_HASH_WHOLE_OBJECT:
            return HashPrefix(reader, reader.size, hash);
        case DSVM_HASH_IGNORE_SIGNATURE: {
            SignaturePlacement placement;
            const DsvmResult found = FindSignature(reader, &placement);
            if (found == DSVM_E_READ_CALLBACK) {
                return DSVM_E_HASH_INPUT;
            }
            const std::uint64_t covered = found == DSVM_OK ? placement.position : reader.size;
            return HashPrefix(reader, covered, hash);
        }
        case DSVM_HASH_UNSIGNED_OBJECT: {
            if (reader.size == 0) {
                return DSVM_E_EMPTY_OBJECT;
            }
            const DsvmResult probed = ProbeSignature(reader);
            if (probed == DSVM_OK) {
                return DSVM_E_SIGNATURE_PRESENT;
            }
            if (probed != DSVM_E_SIGNATURE_NOT_FOUND) {
                return DSVM_E_HASH_INPUT;
            }
            return HashPrefix(reader, reader.size, hash);
        }
        default:
            return DSVM_E_INVALID_PARAMETER;
    }
}

}  // namespace dsvm::detail
