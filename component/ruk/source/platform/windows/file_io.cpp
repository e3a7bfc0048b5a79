#include <windows.h>

#include <memory>
#include <new>

#include "platform/platform.h"

namespace ruk::platform {
namespace {

result_t LastError() {
    return MakeOsResult(static_cast<std::uint32_t>(::GetLastError()));
}

class WindowsFile : public IIO {
public:
    WindowsFile() = default;
    ~WindowsFile() override {
        if (handle_ != INVALID_HANDLE_VALUE) {
            ::CloseHandle(handle_);
        }
    }
    // `knownSize` is the size taken when a file opened for reading was
    // opened: such a handle can't change it, so asking again would be one
    // more system call per file for the same answer.
    void Adopt(HANDLE handle, const LARGE_INTEGER* knownSize) {
        handle_ = handle;
        if (knownSize != nullptr) {
            knownSize_ = static_cast<std::uint64_t>(knownSize->QuadPart);
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
        // ReadFile takes a 32-bit count; larger requests are served in part.
        const DWORD request = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD count = 0;
        if (!::ReadFile(handle_, buffer, request, &count, nullptr)) {
            return LastError();
        }
        // A disk file gives fewer bytes than asked only at its end: the read
        // that would say so costs a system call.
        atEnd_ = sizeKnown_ && count < request;
        if (read != nullptr) {
            *read = count;
        }
        return result::Success;
    }

    result_t Write(const void* buffer, std::size_t size, std::size_t* written) override {
        const auto* bytes = static_cast<const char*>(buffer);
        std::size_t total = 0;
        while (total < size) {
            const std::size_t left = size - total;
            const DWORD request = left > 0x40000000u ? 0x40000000u : static_cast<DWORD>(left);
            DWORD count = 0;
            if (!::WriteFile(handle_, bytes + total, request, &count, nullptr)) {
                if (written != nullptr) {
                    *written = total;
                }
                return LastError();
            }
            total += count;
        }
        if (written != nullptr) {
            *written = total;
        }
        return result::Success;
    }

    result_t Seek(std::int64_t offset, SeekOrigin origin, std::uint64_t* position) override {
        DWORD method = FILE_BEGIN;
        if (origin == SeekOrigin::Current) {
            method = FILE_CURRENT;
        } else if (origin == SeekOrigin::End) {
            method = FILE_END;
        }
        LARGE_INTEGER distance;
        distance.QuadPart = offset;
        LARGE_INTEGER target;
        if (!::SetFilePointerEx(handle_, distance, &target, method)) {
            return LastError();
        }
        atEnd_ = false;
        if (position != nullptr) {
            *position = static_cast<std::uint64_t>(target.QuadPart);
        }
        return result::Success;
    }

    result_t GetSize(std::uint64_t* size) override {
        if (sizeKnown_) {
            *size = knownSize_;
            return result::Success;
        }
        LARGE_INTEGER value;
        if (!::GetFileSizeEx(handle_, &value)) {
            return LastError();
        }
        *size = static_cast<std::uint64_t>(value.QuadPart);
        return result::Success;
    }

    result_t SetSize(std::uint64_t size) override {
        LARGE_INTEGER current;
        LARGE_INTEGER zero;
        zero.QuadPart = 0;
        if (!::SetFilePointerEx(handle_, zero, &current, FILE_CURRENT)) {
            return LastError();
        }
        LARGE_INTEGER target;
        target.QuadPart = static_cast<LONGLONG>(size);
        if (!::SetFilePointerEx(handle_, target, nullptr, FILE_BEGIN) || !::SetEndOfFile(handle_)) {
            return LastError();
        }
        ::SetFilePointerEx(handle_, current, nullptr, FILE_BEGIN);
        return result::Success;
    }

    result_t Flush() override {
        if (!::FlushFileBuffers(handle_)) {
            return LastError();
        }
        return result::Success;
    }

private:
    HANDLE handle_ = INVALID_HANDLE_VALUE;
    bool sizeKnown_ = false;  // a disk file opened for reading
    std::uint64_t knownSize_ = 0;
    bool atEnd_ = false;
};

}  // namespace

std::string GetOsErrorText(std::uint32_t osError) {
    char* buffer = nullptr;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, osError, 0, reinterpret_cast<LPSTR>(&buffer), 0, nullptr);
    std::string text = length != 0 && buffer != nullptr
                           ? std::string(buffer, length)
                           : "Unknown error " + std::to_string(osError);
    ::LocalFree(buffer);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == '.')) {
        text.pop_back();
    }
    return text;
}

bool IsMissingError(std::uint32_t osError) {
    return osError == ERROR_FILE_NOT_FOUND || osError == ERROR_PATH_NOT_FOUND;
}

bool IsFolderError(std::uint32_t osError) {
    return osError == ERROR_DIRECTORY;
}

result_t OpenFile(const boost::filesystem::path& path, OpenMode mode, intrusive_ptr<IIO>* io) {
    DWORD access = GENERIC_READ;
    DWORD disposition = OPEN_EXISTING;
    if (mode == OpenMode::ReadWrite) {
        access |= GENERIC_WRITE;
    } else if (mode == OpenMode::CreateReadWrite) {
        access |= GENERIC_WRITE;
        disposition = OPEN_ALWAYS;
    } else if (mode == OpenMode::CreateNew) {
        access |= GENERIC_WRITE;
        disposition = CREATE_NEW;
    } else if (mode == OpenMode::CreateAppend) {
        // Without FILE_WRITE_DATA every write goes to the end of the file.
        access = FILE_APPEND_DATA | SYNCHRONIZE;
        disposition = OPEN_ALWAYS;
    }
    // Allocated before the file is opened, so that no failure after the
    // open can leave the handle behind.
    std::unique_ptr<WindowsFile> file(new (std::nothrow) WindowsFile());
    if (!file) {
        return result::OutOfMemory;
    }
    const HANDLE handle =
        ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                      disposition, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = ::GetLastError();
        if (mode == OpenMode::CreateNew &&
            (error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS)) {
            return result::AlreadyExists;
        }
        // A folder does not open without backup semantics; say what it is.
        if (error == ERROR_ACCESS_DENIED) {
            const DWORD attributes = ::GetFileAttributesW(path.c_str());
            if (attributes != INVALID_FILE_ATTRIBUTES &&
                (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                return MakeOsResult(ERROR_DIRECTORY);
            }
        }
        return MakeOsResult(error);
    }
    // The type comes from the opened handle: a pipe or a device never reaches a reader.
    if (mode == OpenMode::Read && ::GetFileType(handle) != FILE_TYPE_DISK) {
        ::CloseHandle(handle);
        return result::NotRegularFile;
    }
    LARGE_INTEGER size;
    if (mode == OpenMode::Read && !::GetFileSizeEx(handle, &size)) {
        const result_t error = LastError();
        ::CloseHandle(handle);
        return error;
    }
    file->Adopt(handle, mode == OpenMode::Read ? &size : nullptr);
    *io = file.release();
    return result::Success;
}

}  // namespace ruk::platform
