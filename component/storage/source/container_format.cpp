#include "storage/container_format.h"

#include <algorithm>
#include <limits>

#include <zlib.h>

#include "little_endian.h"

namespace storage::format {
namespace {

constexpr std::size_t kDeflateChunk = 1 << 20;

bool StartsWithMagic(const std::uint8_t* bytes, std::size_t size) {
    return size >= kCompressedMagic.size() &&
           std::equal(kCompressedMagic.begin(), kCompressedMagic.end(), bytes);
}

// Ends a started deflate stream on every way out, a throwing allocation included.
class DeflateEnd {
public:
    explicit DeflateEnd(z_stream* stream) : stream_(stream) {}
    ~DeflateEnd() { deflateEnd(stream_); }
    DeflateEnd(const DeflateEnd&) = delete;
    DeflateEnd& operator=(const DeflateEnd&) = delete;

private:
    z_stream* stream_;
};

ruk::result_t Deflate(const std::vector<std::uint8_t>& content, std::vector<std::uint8_t>* out) {
    z_stream stream{};
    if (deflateInit(&stream, Z_BEST_COMPRESSION) != Z_OK) {
        return ruk::result::OutOfMemory;
    }
    const DeflateEnd end(&stream);
    std::size_t consumed = 0;
    std::vector<std::uint8_t> chunk(kDeflateChunk);
    int code = Z_OK;
    do {
        const std::size_t take = std::min(kDeflateChunk, content.size() - consumed);
        // zlib's interface is not const-correct; it never writes the input.
        stream.next_in = const_cast<Bytef*>(content.data() + consumed);
        stream.avail_in = static_cast<uInt>(take);
        consumed += take;
        const int flush = consumed == content.size() ? Z_FINISH : Z_NO_FLUSH;
        do {
            stream.next_out = chunk.data();
            stream.avail_out = static_cast<uInt>(chunk.size());
            code = deflate(&stream, flush);
            if (code == Z_STREAM_ERROR) {
                return ruk::result::Fail;
            }
            out->insert(out->end(), chunk.data(), chunk.data() + (chunk.size() - stream.avail_out));
        } while (stream.avail_out == 0);
    } while (code != Z_STREAM_END);
    return ruk::result::Success;
}

}  // namespace

ruk::result_t ParseHeader(const std::uint8_t* prefix, std::size_t prefixSize,
                          std::uint64_t fileSize, Header* header) {
    if (header == nullptr || (prefix == nullptr && prefixSize != 0)) {
        return ruk::result::InvalidArgument;
    }
    if (!StartsWithMagic(prefix, std::min<std::uint64_t>(prefixSize, fileSize))) {
        header->encoding = ContainerEncoding::Raw;
        header->contentSize = fileSize;
        return ruk::result::Success;
    }
    if (prefixSize < kHeaderSize || fileSize < kHeaderSize) {
        return ruk::result::InvalidFormat;
    }
    const std::uint64_t contentSize = detail::LoadLittleEndian64(prefix + kCompressedMagic.size());
    const std::uint64_t streamSize = fileSize - kHeaderSize;
    if (streamSize >
            (std::numeric_limits<std::uint64_t>::max() - kExpansionSlack) / kMaxExpansion ||
        contentSize > streamSize * kMaxExpansion + kExpansionSlack) {
        return ruk::result::InvalidFormat;
    }
    header->encoding = ContainerEncoding::Compressed;
    header->contentSize = contentSize;
    return ruk::result::Success;
}

ruk::result_t EncodeContainer(const std::vector<std::uint8_t>& content, ContainerEncoding encoding,
                              std::vector<std::uint8_t>* file) {
    if (file == nullptr) {
        return ruk::result::InvalidArgument;
    }
    if (encoding == ContainerEncoding::Raw) {
        if (StartsWithMagic(content.data(), content.size())) {
            return ruk::result::InvalidArgument;
        }
        *file = content;
        return ruk::result::Success;
    }
    std::vector<std::uint8_t> encoded(kHeaderSize);
    std::copy(kCompressedMagic.begin(), kCompressedMagic.end(), encoded.begin());
    detail::StoreLittleEndian64(content.size(), encoded.data() + kCompressedMagic.size());
    const ruk::result_t code = Deflate(content, &encoded);
    if (ruk::Failed(code)) {
        return code;
    }
    *file = std::move(encoded);
    return ruk::result::Success;
}

}  // namespace storage::format
