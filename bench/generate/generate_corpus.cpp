#include "generate_corpus.h"

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <boost/filesystem/operations.hpp>

namespace generate_bench {
namespace {

namespace fs = boost::filesystem;

constexpr std::size_t kFilesPerFolder = 1000;

std::size_t SizeOf(std::mt19937& random) {
    // Mostly small files, as in an installed product, with a long tail.
    std::exponential_distribution<double> distribution(1.0 / 8192.0);
    const auto size = static_cast<std::size_t>(distribution(random));
    return std::min<std::size_t>(std::max<std::size_t>(size, 512), 32 * 1024);
}

}  // namespace

Corpus MakeCorpus(const fs::path& root, std::size_t files) {
    const fs::path marker = root / ("corpus-" + std::to_string(files) + ".done");
    std::mt19937 random(20240101);
    std::vector<char> content(32 * 1024);
    for (auto& byte : content) {
        byte = static_cast<char>(random());
    }
    const bool reuse = fs::exists(marker);
    Corpus corpus;
    for (std::size_t index = 0; index < files; ++index) {
        const fs::path folder =
            root / "product" / ("folder" + std::to_string(index / kFilesPerFolder));
        const fs::path path = folder / ("file" + std::to_string(index) + ".dll");
        const std::size_t size = SizeOf(random);
        if (!reuse) {
            if (index % kFilesPerFolder == 0) {
                fs::create_directories(folder);
            }
            // Each file differs: its index opens it.
            std::ofstream stream(path.string(), std::ios::binary);
            const std::string head = std::to_string(index);
            stream.write(head.data(), static_cast<std::streamsize>(head.size()));
            stream.write(content.data(), static_cast<std::streamsize>(size - head.size()));
        }
        corpus.bytes += size;
        ++corpus.files;
    }
    if (!reuse) {
        std::ofstream(marker.string()) << corpus.files << '\n';
    }
    return corpus;
}

}  // namespace generate_bench
