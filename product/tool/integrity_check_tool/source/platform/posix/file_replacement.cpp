#include "platform/file_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace integrity_check_tool::platform {
namespace {

ruk::result_t LastError() {
    return ruk::MakeOsResult(static_cast<std::uint32_t>(errno));
}

std::int64_t Ticks(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

FileStamp StampOf(const struct stat& info) {
    FileStamp stamp;
    stamp.device = static_cast<std::uint64_t>(info.st_dev);
    stamp.index = static_cast<std::uint64_t>(info.st_ino);
    stamp.size = static_cast<std::uint64_t>(info.st_size);
    stamp.modified = Ticks(info.st_mtim);
    stamp.changed = Ticks(info.st_ctim);
    return stamp;
}

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return fd_; }

private:
    int fd_;
};

int OpenRetrying(const char* path, int flags, mode_t mode = 0) {
    int fd = -1;
    do {
        fd = ::open(path, flags, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

}  // namespace

ruk::result_t ReadRegularFile(const boost::filesystem::path& path, std::uint64_t limit,
                              std::vector<std::uint8_t>* bytes, FileStamp* stamp, FileKind* kind) {
    bytes->clear();
    // Non-blocking: opening a FIFO for reading would wait for a writer.
    const Descriptor file(OpenRetrying(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (file.Get() < 0) {
        return LastError();
    }
    struct stat info {};
    if (::fstat(file.Get(), &info) != 0) {
        return LastError();
    }
    *stamp = StampOf(info);
    *kind = S_ISREG(info.st_mode)   ? FileKind::Regular
            : S_ISDIR(info.st_mode) ? FileKind::Directory
                                    : FileKind::Other;
    if (*kind != FileKind::Regular) {
        return ruk::result::Success;
    }
    if (static_cast<std::uint64_t>(info.st_size) > limit) {
        return ruk::result::OutOfRange;
    }
    bytes->reserve(static_cast<std::size_t>(info.st_size));
    std::uint8_t block[64 * 1024];
    for (;;) {
        const ssize_t count = ::read(file.Get(), block, sizeof(block));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return LastError();
        }
        if (count == 0) {
            return ruk::result::Success;
        }
        // The file may grow while it is read: the limit holds for what is read.
        if (bytes->size() + static_cast<std::size_t>(count) > limit) {
            bytes->clear();
            return ruk::result::OutOfRange;
        }
        bytes->insert(bytes->end(), block, block + count);
    }
}

ruk::result_t GetFileStamp(const boost::filesystem::path& path, boost::optional<FileStamp>* stamp) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        if (errno == ENOENT) {
            *stamp = boost::none;
            return ruk::result::Success;
        }
        return LastError();
    }
    *stamp = StampOf(info);
    return ruk::result::Success;
}

ruk::result_t GetFileKind(const boost::filesystem::path& path, boost::optional<FileKind>* kind) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            *kind = boost::none;
            return ruk::result::Success;
        }
        return LastError();
    }
    *kind = S_ISREG(info.st_mode)   ? FileKind::Regular
            : S_ISDIR(info.st_mode) ? FileKind::Directory
                                    : FileKind::Other;
    return ruk::result::Success;
}

ruk::result_t CopyOwnership(const boost::filesystem::path& original,
                            const boost::filesystem::path& copy) {
    struct stat wanted {};
    struct stat current {};
    if (::stat(original.c_str(), &wanted) != 0 || ::lstat(copy.c_str(), &current) != 0) {
        return LastError();
    }
    // Only a change is attempted: a user who owns the file may not be allowed
    // to chown at all, even to the owner it already has.
    if ((wanted.st_uid != current.st_uid || wanted.st_gid != current.st_gid) &&
        ::lchown(copy.c_str(), wanted.st_uid, wanted.st_gid) != 0) {
        return LastError();
    }
    // After the owner: a change of owner clears the set-user-ID bits.
    if (::chmod(copy.c_str(), wanted.st_mode & 07777) != 0) {
        return LastError();
    }
    return ruk::result::Success;
}

}  // namespace integrity_check_tool::platform
