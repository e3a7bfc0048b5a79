#pragma once

#include <cstddef>
#include <cstdint>

#include "crypto.h"
#include "dsvm/dsvm.h"
#include "signature_format.h"

// Reading objects through their callbacks: every offset and length is checked
// against the object's declared size before the callback is asked.
namespace dsvm::detail {

// Objects are read in blocks of this size, never as a whole.
constexpr std::size_t kReadBlockSize = 1 << 20;

// DSVM_E_IO_NOT_INITIALIZED for a missing reader or callback.
DsvmResult CheckReader(const DsvmObjectReader* reader);

// Reads exactly `size` bytes at `offset`; `failure` when the range leaves the
// object, the callback fails or it delivers fewer bytes.
DsvmResult ReadAt(const DsvmObjectReader& reader, std::uint64_t offset, void* buffer,
                  std::size_t size, DsvmResult failure);

struct SignaturePlacement {
    std::uint64_t position = 0;  // offset of the block = size of the covered content
    std::uint64_t size = 0;      // block and trailer
    format::Block block;
};

// Locates and parses the object's signature: DSVM_E_EMPTY_OBJECT,
// DSVM_E_SIGNATURE_NOT_FOUND, DSVM_E_INCOMPLETE_SIGNATURE (block larger than
// what precedes the trailer), DSVM_E_READ_CALLBACK or the parser's results.
DsvmResult FindSignature(const DsvmObjectReader& reader, SignaturePlacement* placement);

// DSVM_OK when the object ends in a trailer magic (signed or not parseable),
// DSVM_E_SIGNATURE_NOT_FOUND when it does not.
DsvmResult ProbeSignature(const DsvmObjectReader& reader);

// Feeds the first `length` bytes of the object into `hash`; DSVM_E_HASH_INPUT
// on a read failure.
DsvmResult HashPrefix(const DsvmObjectReader& reader, std::uint64_t length, Streebog256* hash);

// Hashes the object as DsvmHashObject's `mode` says; every read failure is
// DSVM_E_HASH_INPUT.
DsvmResult HashObject(const DsvmObjectReader& reader, std::uint32_t mode, Streebog256* hash);

}  // namespace dsvm::detail
