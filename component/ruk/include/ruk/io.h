#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "ruk/intrusive_ptr.h"
#include "ruk/result.h"

namespace ruk {

enum class SeekOrigin { Begin, Current, End };

enum class OpenMode {
    Read,             // existing regular file, read only (see OpenFileIO)
    ReadWrite,        // existing file, read and write
    CreateReadWrite,  // create or open, read and write, contents kept
    CreateAppend,     // create or open, write only, every write at the end, contents kept
    CreateNew,        // create, read and write; result::AlreadyExists when the name is taken
};

// A random-access byte stream. Every operation reports a result code; a read
// at the end of the stream succeeds with zero bytes read.
class IIO : public RefCounted {
public:
    virtual result_t Read(void* buffer, std::size_t size, std::size_t* read) = 0;
    virtual result_t Write(const void* buffer, std::size_t size, std::size_t* written) = 0;
    virtual result_t Seek(std::int64_t offset, SeekOrigin origin, std::uint64_t* position) = 0;
    virtual result_t GetSize(std::uint64_t* size) = 0;
    virtual result_t SetSize(std::uint64_t size) = 0;
    virtual result_t Flush() = 0;
};

// Opens a file stream; on failure the result carries the system error.
// For reading, the type is taken from the opened handle, never from an
// earlier look at the path: only a regular file opens, so a path swapped for
// a FIFO, a device or a link to one can neither block nor stream without
// end. Opening never waits for a writer. A folder fails with the system's
// own error, any other kind with result::NotRegularFile. A stream opened for
// reading reports the size the file had when it was opened.
result_t OpenFileIO(const boost::filesystem::path& path, OpenMode mode, intrusive_ptr<IIO>* io);

// Why OpenFileIO found no file to read: nothing at the path (or a path
// through a file), or something that is not a regular file.
bool IsFileMissing(result_t code);
bool IsNotRegularFile(result_t code);

// A growable in-memory stream positioned at 0.
class MemoryIO : public IIO {
public:
    MemoryIO() = default;
    explicit MemoryIO(std::vector<std::uint8_t> data) : data_(std::move(data)) {}

    result_t Read(void* buffer, std::size_t size, std::size_t* read) override;
    result_t Write(const void* buffer, std::size_t size, std::size_t* written) override;
    result_t Seek(std::int64_t offset, SeekOrigin origin, std::uint64_t* position) override;
    result_t GetSize(std::uint64_t* size) override;
    result_t SetSize(std::uint64_t size) override;
    result_t Flush() override { return result::Success; }

    const std::vector<std::uint8_t>& Data() const noexcept { return data_; }

private:
    std::vector<std::uint8_t> data_;
    std::uint64_t position_ = 0;
};

intrusive_ptr<IIO> CreateMemoryIO(std::vector<std::uint8_t> data = {});

// Reads exactly `size` bytes unless the stream ends first; `read` gets the count.
result_t ReadFully(IIO& io, void* buffer, std::size_t size, std::size_t* read);

// Reads the whole stream, from its start to its end, into `bytes`. The size
// the stream reports is only a hint: reading goes on until the stream ends.
// A stream of more than `limit` bytes gives result::OutOfRange, having read
// nothing when its size already tells so and never more than `limit` + 1
// bytes otherwise. On any failure `bytes` is left as it was.
result_t ReadWhole(IIO& io, std::size_t limit, std::vector<std::uint8_t>* bytes);
result_t ReadWhole(IIO& io, std::size_t limit, std::string* text);

}  // namespace ruk
