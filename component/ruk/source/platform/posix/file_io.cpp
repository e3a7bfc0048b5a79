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
    void Adopt(int fd) { fd_ = fd; }

    result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        for (;;) {
            const ssize_t count = ::read(fd_, buffer, size);
            if (count >= 0) {
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
        if (position != nullptr) {
            *position = static_cast<std::uint64_t>(target);
        }
        return result::Success;
    }

    result_t GetSize(std::uint64_t* size) override {
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
};

}  // namespace

std::string GetOsErrorText(std::uint32_t osError) {
    return std::strerror(static_cast<int>(osError));
}

result_t OpenFile(const boost::filesystem::path& path, OpenMode mode, intrusive_ptr<IIO>* io) {
    int flags = O_CLOEXEC;
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
    }
    if (mode == OpenMode::Read) {
        // A FIFO or device listed as a file must never block the run.
        flags |= O_NONBLOCK;
    }
    // Allocated before the file is opened, so that no failure after the
    // open can leave the descriptor behind.
    std::unique_ptr<PosixFile> file(new (std::nothrow) PosixFile());
    if (!file) {
        return result::OutOfMemory;
    }
    int fd = -1;
    do {
        fd = ::open(path.c_str(), flags, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        return LastError();
    }
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
        // Back to blocking reads for regular files.
        const int current = ::fcntl(fd, F_GETFL);
        if (current >= 0) {
            ::fcntl(fd, F_SETFL, current & ~O_NONBLOCK);
        }
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    }
    file->Adopt(fd);
    *io = file.release();
    return result::Success;
}

}  // namespace ruk::platform
