#include <windows.h>

#include <aclapi.h>

#include "platform/file_replacement.h"

namespace integrity_check_tool::platform {
namespace {

ruk::result_t LastError() {
    return ruk::MakeOsResult(static_cast<std::uint32_t>(::GetLastError()));
}

std::int64_t Ticks(LARGE_INTEGER time) {
    return static_cast<std::int64_t>(time.QuadPart);
}

class Handle {
public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    ~Handle() {
        if (handle_ != INVALID_HANDLE_VALUE) {
            ::CloseHandle(handle_);
        }
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE Get() const { return handle_; }

private:
    HANDLE handle_;
};

// Opens for reading attributes, sharing everything, so that a folder opens too.
HANDLE OpenForStamp(const boost::filesystem::path& path, DWORD access) {
    return ::CreateFileW(path.c_str(), access,
                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

ruk::result_t StampOf(HANDLE handle, FileStamp* stamp, bool* directory) {
    BY_HANDLE_FILE_INFORMATION information{};
    FILE_BASIC_INFO basic{};
    if (!::GetFileInformationByHandle(handle, &information) ||
        !::GetFileInformationByHandleEx(handle, FileBasicInfo, &basic, sizeof(basic))) {
        return LastError();
    }
    stamp->device = information.dwVolumeSerialNumber;
    stamp->index =
        (static_cast<std::uint64_t>(information.nFileIndexHigh) << 32) | information.nFileIndexLow;
    stamp->size =
        (static_cast<std::uint64_t>(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
    stamp->modified = Ticks(basic.LastWriteTime);
    stamp->changed = Ticks(basic.ChangeTime);
    *directory = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return ruk::result::Success;
}

}  // namespace

ruk::result_t ReadRegularFile(const boost::filesystem::path& path, std::uint64_t limit,
                              std::vector<std::uint8_t>* bytes, FileStamp* stamp, FileKind* kind) {
    bytes->clear();
    const Handle file(OpenForStamp(path, GENERIC_READ));
    if (file.Get() == INVALID_HANDLE_VALUE) {
        return LastError();
    }
    // Pipes and character devices ("NUL", "CON") are not disk files and have
    // no stamp to take.
    if (::GetFileType(file.Get()) != FILE_TYPE_DISK) {
        *kind = FileKind::Other;
        return ruk::result::Success;
    }
    bool directory = false;
    const ruk::result_t stamped = StampOf(file.Get(), stamp, &directory);
    if (ruk::Failed(stamped)) {
        return stamped;
    }
    *kind = directory ? FileKind::Directory : FileKind::Regular;
    if (*kind != FileKind::Regular) {
        return ruk::result::Success;
    }
    if (stamp->size > limit) {
        return ruk::result::OutOfRange;
    }
    bytes->reserve(static_cast<std::size_t>(stamp->size));
    std::uint8_t block[64 * 1024];
    for (;;) {
        DWORD count = 0;
        if (!::ReadFile(file.Get(), block, sizeof(block), &count, nullptr)) {
            return LastError();
        }
        if (count == 0) {
            return ruk::result::Success;
        }
        if (bytes->size() + count > limit) {
            bytes->clear();
            return ruk::result::OutOfRange;
        }
        bytes->insert(bytes->end(), block, block + count);
    }
}

ruk::result_t GetFileStamp(const boost::filesystem::path& path, boost::optional<FileStamp>* stamp) {
    const Handle file(OpenForStamp(path, FILE_READ_ATTRIBUTES));
    if (file.Get() == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
            *stamp = boost::none;
            return ruk::result::Success;
        }
        return ruk::MakeOsResult(error);
    }
    FileStamp found;
    bool directory = false;
    const ruk::result_t stamped = StampOf(file.Get(), &found, &directory);
    if (ruk::Succeeded(stamped)) {
        *stamp = found;
    }
    return stamped;
}

ruk::result_t GetFileKind(const boost::filesystem::path& path, boost::optional<FileKind>* kind) {
    // The attributes of a device name look like a file's; only the opened
    // handle tells a disk entry from a device or a pipe.
    const Handle entry(OpenForStamp(path, FILE_READ_ATTRIBUTES));
    if (entry.Get() == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        // A name no folder can hold, or a drive or share that is not there,
        // names nothing either.
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
            error == ERROR_INVALID_NAME || error == ERROR_BAD_PATHNAME ||
            error == ERROR_INVALID_DRIVE || error == ERROR_NOT_READY ||
            error == ERROR_BAD_NETPATH || error == ERROR_BAD_NET_NAME) {
            *kind = boost::none;
            return ruk::result::Success;
        }
        return ruk::MakeOsResult(error);
    }
    if (::GetFileType(entry.Get()) != FILE_TYPE_DISK) {
        *kind = FileKind::Other;
        return ruk::result::Success;
    }
    BY_HANDLE_FILE_INFORMATION information{};
    if (!::GetFileInformationByHandle(entry.Get(), &information)) {
        return LastError();
    }
    *kind = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::Directory
                                                                           : FileKind::Regular;
    return ruk::result::Success;
}

ruk::result_t CopyOwnership(const boost::filesystem::path& original,
                            const boost::filesystem::path& copy) {
    const SECURITY_INFORMATION parts =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    PSID owner = nullptr;
    PSID group = nullptr;
    PACL access = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    DWORD error = ::GetNamedSecurityInfoW(original.c_str(), SE_FILE_OBJECT, parts, &owner, &group,
                                          &access, nullptr, &descriptor);
    if (error != ERROR_SUCCESS) {
        return ruk::MakeOsResult(error);
    }
    std::wstring name = copy.native();
    error = ::SetNamedSecurityInfoW(&name[0], SE_FILE_OBJECT, parts, owner, group, access, nullptr);
    ::LocalFree(descriptor);
    return error == ERROR_SUCCESS ? ruk::result::Success : ruk::MakeOsResult(error);
}

}  // namespace integrity_check_tool::platform
