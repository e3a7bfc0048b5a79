#include "support/file_helpers.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#endif

namespace ict_test {
namespace {

namespace fs = boost::filesystem;

void CreateParent(const fs::path& path) {
    if (path.has_parent_path()) {
        fs::create_directories(path.parent_path());
    }
}

void WriteData(const fs::path& path, const char* data, std::size_t size) {
    CreateParent(path);
    std::ofstream stream(path.string(), std::ios::binary | std::ios::trunc);
    stream.write(data, static_cast<std::streamsize>(size));
    stream.close();
    if (!stream) {
        throw std::runtime_error("Can't write " + path.string());
    }
}

}  // namespace

void WriteText(const fs::path& path, const std::string& text) {
    WriteData(path, text.data(), text.size());
}

void WriteBytes(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
    WriteData(path, reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::vector<std::uint8_t> PatternBytes(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<std::uint8_t>(index * 7 + index / 251);
    }
    return bytes;
}

std::string ReadText(const fs::path& path) {
    std::ifstream stream(path.string(), std::ios::binary);
    if (!stream) {
        throw std::runtime_error("Can't read " + path.string());
    }
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

void MakeFifo(const fs::path& path) {
#ifdef _WIN32
    throw std::runtime_error("Named pipes are not available here: " + path.string());
#else
    CreateParent(path);
    if (::mkfifo(path.c_str(), 0600) != 0) {
        throw std::runtime_error("Can't create FIFO " + path.string() + ": " +
                                 std::strerror(errno));
    }
#endif
}

fs::path MakeSpecialFile(const fs::path& path) {
#ifdef _WIN32
    CreateParent(path);
    return path.parent_path() / "NUL";
#else
    MakeFifo(path);
    return path;
#endif
}

bool SymbolicLinksWork(const fs::path& folder) {
#ifdef _WIN32
    const fs::path target = folder / "ict-link-probe-target";
    const fs::path link = folder / "ict-link-probe";
    WriteText(target, "");
    boost::system::error_code error;
    fs::create_symlink(target, link, error);
    const bool works = !error && fs::is_symlink(fs::symlink_status(link, error));
    fs::remove(link, error);
    fs::remove(target, error);
    return works;
#else
    (void)folder;
    return true;
#endif
}

void SetPermissions(const fs::path& path, fs::perms permissions) {
    fs::permissions(path, permissions);
}

bool CanReadEverything() {
#ifdef _WIN32
    return false;
#else
    return ::geteuid() == 0;
#endif
}

}  // namespace ict_test
