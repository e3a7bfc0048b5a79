#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "common/console_output.h"
#include "tracer.h"

namespace integrity_check_tool {

// Index of a counted object kind, in summary-line order.
enum ObjectKind : std::size_t {
    Manifests = 0,
    Files = 1,
    Directories = 2,
    Registries = 3,
    RegistryValues = 4,
};

// Object-kind words of the per-object lines.
namespace object_word {
constexpr const char* Manifest = "manifest";
constexpr const char* RegistryPath = "registry path";
constexpr const char* RegistryValue = "registry value";
constexpr const char* Directory = "directory";
constexpr const char* File = "file";
constexpr const char* EnvironmentVariable = "environment variable";
}  // namespace object_word

// Failed / skipped / succeeded counters per object kind, the per-object
// lines and the summary block.
class RunStatistics {
public:
    RunStatistics(TracerPtr tracer, ConsoleOutputPtr output);
    virtual ~RunStatistics() = default;

    // A kind index of 5 or more throws std::out_of_range.
    virtual void CountSuccess(std::size_t kind);
    virtual void CountSkip(std::size_t kind);
    virtual void CountFailure(std::size_t kind);
    virtual void PrintSummary();

    // Writes "Processing %1% %2% ...", runs the check and counts its outcome:
    // true with "%1% %2% succeeded", or false with "%1% %2% failed. Reason: %3%"
    // when it throws (the exception is not passed on).
    bool Run(std::size_t kind, const std::string& word, const std::string& name,
             const std::function<void()>& check);
    // Counts a filtered record as skipped with "%1% %2% filtered".
    void Skip(std::size_t kind, const std::string& word, const std::string& name);

    struct Counters {
        std::uint32_t failed = 0;
        std::uint32_t skipped = 0;
        std::uint32_t succeeded = 0;
    };
    const Counters& Get(std::size_t kind) const;

private:
    TracerPtr tracer_;
    ConsoleOutputPtr output_;
    std::array<Counters, 5> counters_{};
};

using RunStatisticsPtr = std::shared_ptr<RunStatistics>;

}  // namespace integrity_check_tool
