// Times the manifest pipeline of a verify run on two large manifests and
// reports the peak resident memory. Run the Release build.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>

#include <boost/filesystem/operations.hpp>

#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "manifest_corpus.h"
#include "system_info.h"
#include "xml/file.h"

namespace {

using Clock = std::chrono::steady_clock;

// Peak resident set size in MiB, from the kernel's own account.
double PeakMemoryMiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, 6, "VmHWM:") == 0) {
            return std::stod(line.substr(6)) / 1024.0;
        }
    }
    return -1.0;
}

double CpuSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// Wall time is the target; processor time shows how much of it other
// processes on a shared machine took.
class Stopwatch {
public:
    double Lap(const char* phase) {
        const auto now = Clock::now();
        const double cpu = CpuSeconds();
        const double seconds = std::chrono::duration<double>(now - last_).count();
        std::printf("  %-28s %8.3f s wall %8.3f s cpu\n", phase, seconds, cpu - lastCpu_);
        cpuTotal_ += cpu - lastCpu_;
        last_ = now;
        lastCpu_ = cpu;
        return seconds;
    }
    double CpuTotal() const { return cpuTotal_; }

private:
    Clock::time_point last_ = Clock::now();
    double lastCpu_ = CpuSeconds();
    double cpuTotal_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    using namespace integrity_check_tool;
    const std::size_t fileCount = argc > 1 ? std::stoul(argv[1]) : 100000;

    const auto folder = boost::filesystem::temp_directory_path() /
                        boost::filesystem::unique_path("ict-manifest-bench-%%%%-%%%%");
    boost::filesystem::create_directories(folder);
    const auto first = folder / "first.xml";
    const auto second = folder / "second.xml";
    ict_bench::CorpusShape shape;
    shape.fileCount = fileCount;
    ict_bench::WriteCorpusManifest(first, shape);
    // Half of the second manifest names the same files as the first.
    shape.firstIndex = fileCount / 2;
    ict_bench::WriteCorpusManifest(second, shape);
    std::printf("manifests: %zu files each, %.1f MiB and %.1f MiB\n", fileCount,
                boost::filesystem::file_size(first) / 1048576.0,
                boost::filesystem::file_size(second) / 1048576.0);
    const double baseline = PeakMemoryMiB();

    std::size_t kept = 0;
    std::size_t total = 0;
    double seconds = 0;
    double cpuSeconds = 0;
    {
        Stopwatch stopwatch;
        const xml::File reader(nullptr);
        auto target = reader.Load(first);
        auto source = reader.Load(second);
        seconds += stopwatch.Lap("load both");
        ExpandManifest(*target);
        ExpandManifest(*source);
        seconds += stopwatch.Lap("expand placeholders");
        const SystemInfo system({"Extras"});
        const FilterEvaluator evaluator(nullptr, system);
        FilteredRecords filtered;
        SelectApplicable(*target, evaluator, filtered);
        SelectApplicable(*source, evaluator, filtered);
        seconds += stopwatch.Lap("filter and fold directories");
        MergeManifest(*target, std::move(*source));
        source.reset();
        seconds += stopwatch.Lap("merge");
        kept = target->files.size();
        total = kept + filtered.files.size();
        cpuSeconds = stopwatch.CpuTotal();
    }
    boost::filesystem::remove_all(folder);

    std::printf("records: %zu, files applying here after merge: %zu\n", total, kept);
    std::printf("total: %.3f s wall, %.3f s cpu (target < 2 s)\n", seconds, cpuSeconds);
    std::printf("peak memory: %.1f MiB (%.1f MiB before loading; target < 400 MiB)\n",
                PeakMemoryMiB(), baseline);
    return 0;
}
