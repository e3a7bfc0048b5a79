#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "platform/platform.h"

namespace ruk::platform {
namespace {

constexpr off_t kReadAheadFrom = 256 * 1024;

result_t LastError() {
    return MakeOsResult(static_cast<std::uint32_t>(errno));
}

class PosixFile : public IIO {
public:
    PosixFile() = default;
    ~PosixFile() override {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    // `knownSize` is the size taken when a file opened for reading was
    // opened: such a descriptor can't change it, so asking again would be one
    // more system call per file for the same answer.
    void Adopt(int fd, const struct stat* knownSize) {
        fd_ = fd;
        if (knownSize != nullptr) {
            knownSize_ = static_cast<std::uint64_t>(knownSize->st_size);
            sizeKnown_ = true;
        }
    }

    result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (atEnd_) {
            if (read != nullptr) {
                *read = 0;
            }
            return result::Success;
        }
        for (;;) {
            const ssize_t count = ::read(fd_, buffer, size);
            if (count >= 0) {
                // A regular file gives fewer bytes than asked only at its
                // end: the read that would say so costs a system call.
                atEnd_ = sizeKnown_ && static_cast<std::size_t>(count) < size;
                if (read != nullptr) {
                    *read = static_cast<std::size_t>(count);
                }
                return result::Success;
            }
            if (errno != EINTR) {
                return LastError();
            }
        }
    }

    result_t Write(const void* buffer, std::size_t size, std::size_t* written) override {
        const auto* bytes = static_cast<const char*>(buffer);
        std::size_t total = 0;
        while (total < size) {
            const ssize_t count = ::write(fd_, bytes + total, size - total);
            if (count < 0) {
                if (errno == EINTR) {
                    continue;
                }
                if (written != nullptr) {
                    *written = total;
                }
                return LastError();
            }
            total += static_cast<std::size_t>(count);
        }
        if (written != nullptr) {
            *written = total;
        }
        return result::Success;
    }

    result_t Seek(std::int64_t offset, SeekOrigin origin, std::uint64_t* position) override {
        int whence = SEEK_SET;
        if (origin == SeekOrigin::Current) {
            whence = SEEK_CUR;
        } else if (origin == SeekOrigin::End) {
            whence = SEEK_END;
        }
        const off_t target = ::lseek(fd_, static_cast<off_t>(offset), whence);
        if (target < 0) {
            return LastError();
        }
        atEnd_ = false;
        if (position != nullptr) {
            *position = static_cast<std::uint64_t>(target);
        }
        return result::Success;
    }

    result_t GetSize(std::uint64_t* size) override {
        if (sizeKnown_) {
            *size = knownSize_;
            return result::Success;
        }
        struct stat info {};
        if (::fstat(fd_, &info) != 0) {
            return LastError();
        }
        *size = static_cast<std::uint64_t>(info.st_size);
        return result::Success;
    }

    result_t SetSize(std::uint64_t size) override {
        if (::ftruncate(fd_, static_cast<off_t>(size)) != 0) {
            return LastError();
        }
        return result::Success;
    }

    result_t Flush() override {
        if (::fsync(fd_) != 0 && errno != EINVAL) {
            return LastError();
        }
        return result::Success;
    }

private:
    int fd_ = -1;
    bool sizeKnown_ = false;  // a regular file opened for reading
    std::uint64_t knownSize_ = 0;
    bool atEnd_ = false;
};

}  // namespace

std::string GetOsErrorText(std::uint32_t osError) {
    return std::strerror(static_cast<int>(osError));
}

bool IsMissingError(std::uint32_t osError) {
    return osError == ENOENT || osError == ENOTDIR;
}

bool IsFolderError(std::uint32_t osError) {
    return osError == EISDIR;
}

result_t OpenFile(const boost::filesystem::path& path, OpenMode mode, intrusive_ptr<IIO>* io) {
    int flags = O_CLOEXEC | O_NOCTTY;
    switch (mode) {
        case OpenMode::Read:
            flags |= O_RDONLY;
            break;
        case OpenMode::ReadWrite:
            flags |= O_RDWR;
            break;
        case OpenMode::CreateReadWrite:
            flags |= O_RDWR | O_CREAT;
            break;
        case OpenMode::CreateAppend:
            flags |= O_WRONLY | O_CREAT | O_APPEND;
            break;
        case OpenMode::CreateNew:
            // O_EXCL refuses a link planted under the name as well.
            flags |= O_RDWR | O_CREAT | O_EXCL;
            break;
    }
    if (mode == OpenMode::Read) {
        // A FIFO must not make open() wait for a writer. Regular files ignore
        // the flag, so it stays on for the reads.
        flags |= O_NONBLOCK;
    }
    // Allocated before the file is opened, so that no failure after the
    // open can leave the descriptor behind.
    std::unique_ptr<PosixFile> file(new (std::nothrow) PosixFile());
    if (!file) {
        return result::OutOfMemory;
    }
    int fd = -1;
    // A new file gets the rights any new file of this process gets.
    const mode_t rights = mode == OpenMode::CreateNew ? 0666 : 0644;
    do {
        fd = ::open(path.c_str(), flags, rights);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        return mode == OpenMode::CreateNew && errno == EEXIST ? result::AlreadyExists : LastError();
    }
    // One status query, on the handle itself: whatever the path names by now
    // is what gets read.
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const result_t error = LastError();
        ::close(fd);
        return error;
    }
    if (S_ISDIR(info.st_mode)) {
        ::close(fd);
        return MakeOsResult(EISDIR);
    }
    if (mode == OpenMode::Read) {
        if (!S_ISREG(info.st_mode)) {
            ::close(fd);
            return result::NotRegularFile;
        }
        // Read-ahead only helps a file that takes more than a few reads.
        if (info.st_size > kReadAheadFrom) {
            ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
        }
    }
    file->Adopt(fd, mode == OpenMode::Read ? &info : nullptr);
    *io = file.release();
    return result::Success;
}

}  // namespace ruk::platform
