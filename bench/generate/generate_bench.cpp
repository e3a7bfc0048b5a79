// Manifest generation over 100,000 files: the Generate action in process,
// warm cache, best of three runs. Usage: generate_bench [DIR] [FILES] [CHECK]
// (DIR keeps the corpus between runs; CHECK is Sha256 by default).
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include <boost/filesystem/operations.hpp>

#include "action/generate.h"
#include "common/configuration.h"
#include "common/console_output.h"
#include "factory/factory.h"
#include "generate_corpus.h"
#include "ruk/trace.h"

namespace {

namespace fs = boost::filesystem;
using namespace integrity_check_tool;

struct Timing {
    double wall = 0;
    double cpu = 0;  // user and system time of the process; the machine may be shared
};

Timing RunOnce(const fs::path& root, const std::string& check) {
    ApplicationConfiguration configuration;
    GenerateSettings settings;
    settings.configPath = root / "generation.xml";
    settings.manifestPath = root / "product" / "integrity_check.xml";
    configuration.generate = settings;
    std::ofstream(settings.configPath.string())
        << "<ManifestGeneration productName=\"Bench\">\n"
        << "  <Directory path=\"%ProductRoot%\" group=\"true\"><Check type=\"" << check
        << "\"/></Directory>\n</ManifestGeneration>\n";

    // Warnings and errors only: the trace must not be what is measured.
    const auto tracer = std::make_shared<Tracer>(400, new ruk::MemoryTraceChannel());
    const auto factory = std::make_shared<Factory>(
        tracer, std::make_shared<ApplicationConfiguration>(configuration), nullptr);
    std::ostringstream out;
    std::ostringstream err;
    action::Generate generate(factory, std::make_shared<ConsoleOutput>(true, out, err));

    const auto start = std::chrono::steady_clock::now();
    const std::clock_t cpuStart = std::clock();
    const bool succeeded = generate.Execute();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    const double cpu = static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;
    if (!succeeded) {
        std::cerr << err.str() << out.str();
        std::exit(1);
    }
    return {elapsed.count(), cpu};
}

}  // namespace

int main(int argc, char* argv[]) {
    const fs::path root =
        argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path() / "generate_bench";
    const std::size_t files = argc > 2 ? std::stoul(argv[2]) : 100000;
    const std::string check = argc > 3 ? argv[3] : "Sha256";

    std::cout << "Corpus: " << files << " files under " << root.string() << std::endl;
    const auto corpus = generate_bench::MakeCorpus(root, files);
    const double megabytes = static_cast<double>(corpus.bytes) / (1024.0 * 1024.0);
    std::cout << "Corpus size: " << megabytes << " MiB" << std::endl;

    RunOnce(root, check);  // fills the page cache
    Timing best;
    for (int run = 0; run < 3; ++run) {
        const Timing timing = RunOnce(root, check);
        if (run == 0 || timing.wall < best.wall) {
            best = timing;
        }
    }
    const auto manifestSize = fs::file_size(root / "product" / "integrity_check.xml");
    std::cout << "Check type: " << check << "\n"
              << "Best of 3: " << best.wall << " s wall, " << best.cpu << " s CPU\n"
              << "Throughput: " << static_cast<double>(corpus.files) / best.wall << " files/s, "
              << megabytes / best.wall << " MiB/s\n"
              << "Manifest: " << manifestSize / 1024 << " KiB" << std::endl;
    return 0;
}
