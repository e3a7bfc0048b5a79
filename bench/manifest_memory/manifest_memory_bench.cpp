// Measures the peak resident memory of loading (reading, then folding and
// expanding) a manifest, each shape in a process of its own, and compares
// it with the manifest's size. The target is at most four times the size
// above what the process held before loading. Linux only (fork, /proc).
//
//   manifest_memory_bench [files [attribute-MiB]]   (defaults: 200000 100)
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <string>

#include <boost/filesystem/operations.hpp>

#include "manifest/manifest_operations.h"
#include "xml/file.h"
#include "xml/values.h"

namespace {

namespace fs = boost::filesystem;

// Resident and peak resident set size in MiB, from the kernel's own account.
double StatusMiB(const char* key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(key) + ":";
    while (std::getline(status, line)) {
        if (line.compare(0, prefix.size(), prefix) == 0) {
            return std::stod(line.substr(prefix.size())) / 1024.0;
        }
    }
    return -1.0;
}

// Files in folders of a hundred, each with one SHA-256 check, a placeholder
// in every path and a condition on every fourth: about 125 bytes a file.
void WriteManyFiles(const fs::path& path, std::size_t count) {
    std::ofstream out(path.string(), std::ios::binary);
    std::mt19937 random(1);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<Manifest productName=\"Bench\" productVersion=\"1.0.0.1\">\n"
        << "    <Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n";
    for (std::size_t index = 0; index < count; ++index) {
        integrity_check_tool::Bytes digest(32);
        for (auto& byte : digest) {
            byte = static_cast<std::uint8_t>(random());
        }
        out << "    <File path=\"%Bin%\\group" << index / 100 << "\\file" << index << ".dll\""
            << (index % 4 == 0 ? " os=\"Windows\"" : "") << "><Check type=\"Sha256\" value=\""
            << integrity_check_tool::xml::EncodeBase64(digest) << "\"/></File>\n";
    }
    out << "</Manifest>\n";
}

// One file whose path attribute is `mebibytes` long.
void WriteHugeAttribute(const fs::path& path, std::size_t mebibytes) {
    std::ofstream out(path.string(), std::ios::binary);
    out << "<Manifest>\n    <File path=\"";
    const std::string block(1024 * 1024, 'a');
    for (std::size_t index = 0; index < mebibytes; ++index) {
        out << block;
    }
    out << "\"><Check type=\"Exists\"/></File>\n</Manifest>\n";
}

// Loads the manifest in a child process, so that each shape starts from the
// same baseline, and prints what the child measured.
void Measure(const char* shape, const fs::path& path) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        const double before = StatusMiB("VmHWM");
        const double size = static_cast<double>(fs::file_size(path)) / 1048576.0;
        std::string outcome = "loaded";
        try {
            auto manifest = integrity_check_tool::xml::File(nullptr).Load(path);
            try {
                integrity_check_tool::ExpandManifest(*manifest);
            } catch (const std::exception& error) {
                outcome = std::string("loaded; expansion failed: ") + error.what();
            }
        } catch (const std::exception& error) {
            outcome = std::string("failed: ") + error.what();
        }
        const double peak = StatusMiB("VmHWM");
        std::printf(
            "%-16s %8.1f MiB manifest, peak %8.1f MiB (%.1f before): %.2f times the size "
            "(target <= 4) - %s\n",
            shape, size, peak - before, before, (peak - before) / size,
            outcome.substr(0, 100).c_str());
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t files = argc > 1 ? std::stoul(argv[1]) : 200000;
    const std::size_t mebibytes = argc > 2 ? std::stoul(argv[2]) : 100;
    const auto folder = fs::temp_directory_path() / fs::unique_path("ict-memory-bench-%%%%-%%%%");
    fs::create_directories(folder);
    WriteManyFiles(folder / "files.xml", files);
    Measure("many files", folder / "files.xml");
    fs::remove(folder / "files.xml");
    WriteHugeAttribute(folder / "attribute.xml", mebibytes);
    Measure("huge attribute", folder / "attribute.xml");
    fs::remove_all(folder);
    return 0;
}
