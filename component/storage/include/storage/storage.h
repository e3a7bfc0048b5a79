#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <boost/filesystem/path.hpp>

#include "ruk/intrusive_ptr.h"
#include "ruk/io.h"
#include "ruk/result.h"

// A storage is a directory; a container is a file in it named by the
// container name, stored raw or compressed (see README.md).
namespace storage {

enum class ContainerEncoding { Raw, Compressed };

// One named container opened for reading. Sizes are 64-bit on every platform.
class IContainer : public ruk::RefCounted {
public:
    // How the container is stored; the reader tells it from the header.
    virtual ContainerEncoding GetEncoding() const = 0;
    // The size of the content (for a compressed container: uncompressed).
    virtual ruk::result_t GetSize(std::uint64_t* size) = 0;
    // Reads the next `size` bytes of content; fewer only at the end. A
    // corrupt or truncated compressed stream is ruk::result::InvalidFormat,
    // and every later read repeats that failure.
    virtual ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) = 0;
};

using IContainerPtr = ruk::intrusive_ptr<IContainer>;

class IStorage : public ruk::RefCounted {
public:
    // Opens the container `name`: a plain file name, no separators.
    virtual ruk::result_t OpenContainer(const std::string& name, IContainerPtr* container) = 0;
};

using IStoragePtr = ruk::intrusive_ptr<IStorage>;

// Reads a container from any stream positioned anywhere: tells the encoding
// from the header and checks it as OpenContainer does.
ruk::result_t OpenContainerFromStream(ruk::intrusive_ptr<ruk::IIO> stream,
                                      IContainerPtr* container);

// Opens a storage on an existing directory: ruk::result::NotFound when it is
// missing, InvalidArgument when the path is not a directory.
ruk::result_t OpenDirectoryStorage(const boost::filesystem::path& directory, IStoragePtr* storage);

}  // namespace storage
