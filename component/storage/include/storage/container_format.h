#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "ruk/result.h"
#include "storage/storage.h"

// The byte layout of a container file (README.md describes it in full).
namespace storage::format {

// A compressed container starts with this magic, then the uncompressed size
// (64-bit little endian), then one zlib stream up to the end of the file.
constexpr std::array<std::uint8_t, 8> kCompressedMagic = {0x89, 'I',  'C',  'Z',
                                                          0x0D, 0x0A, 0x1A, 0x0A};
constexpr std::size_t kHeaderSize = 16;
// zlib never expands data by more than about 1032:1; a header that claims
// more than this from its stream is corrupt, and refusing it early keeps a
// tiny file from demanding a huge buffer.
constexpr std::uint64_t kMaxExpansion = 1032;
constexpr std::uint64_t kExpansionSlack = 64;

struct Header {
    ContainerEncoding encoding = ContainerEncoding::Raw;
    std::uint64_t contentSize = 0;  // uncompressed size, when compressed
};

// Tells the encoding from the first bytes of a file of `fileSize` bytes
// (`prefix` holds up to kHeaderSize of them). A compressed header whose size
// cannot come from the stream that follows is InvalidFormat.
ruk::result_t ParseHeader(const std::uint8_t* prefix, std::size_t prefixSize,
                          std::uint64_t fileSize, Header* header);

// The whole file for `content` in the given encoding. Raw content that
// starts with the compressed magic cannot be told apart and is refused with
// InvalidArgument.
ruk::result_t EncodeContainer(const std::vector<std::uint8_t>& content, ContainerEncoding encoding,
                              std::vector<std::uint8_t>* file);

}  // namespace storage::format
