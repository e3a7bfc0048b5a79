#pragma once

#include <exception>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "check/i_factory.h"
#include "common/configuration.h"
#include "common/console_output.h"
#include "common/run_statistics.h"
#include "generate/generation_config.h"
#include "generate/progress_counter.h"
#include "manifest/environment.h"
#include "manifest/manifest.h"

namespace integrity_check_tool::generate {

// Builds a manifest from a generation configuration: expands the configured
// paths to find the objects on this machine, enumerates folders, computes the
// expected values through the factory's data objects and value providers, and
// stamps the target's conditions on the records. Paths are written as
// configured, with their placeholders and backslashes.
class ManifestGenerator {
public:
    ManifestGenerator(IFactoryPtr factory, ConsoleOutputPtr output, RunStatistics& statistics,
                      ProgressCounter& progress);

    // The manifest, or null when any object failed; every failure has been
    // reported as "Generation of %1% %2% failed. Reason: ..." and counted.
    ManifestPtr Generate(const GenerationConfig& config, const GenerateSettings& settings);

private:
    void PrepareEnvironment(const GenerationConfig& config, const GenerateSettings& settings);
    void PrepareStamp(const GenerateSettings& settings);
    using Providers = std::map<CheckType, IValueProviderPtr>;
    struct PendingFile;

    void AddDirectory(const DirectorySource& source, const boost::filesystem::path& manifestPath);
    // The values of a folder's files, computed on the configured threads.
    void ComputeDirectoryFiles(const DirectorySource& source, std::vector<PendingFile>& files);
    bool AddDirectoryFile(const DirectorySource& source, const PendingFile& file,
                          DirectoryInfo* group);
    void AddFile(const FileSource& source);
    void AddRegistry(const RegistrySource& source);
    std::unique_ptr<RegistryValueInfo> CaptureValue(const RegistrySource& key,
                                                    const std::string& keyPath,
                                                    const RegistryValueSource& source);

    // Expected values of the checks for one object; throws when one can't be had.
    std::vector<CheckInfo> EvaluateChecks(const IDataObject& object,
                                          const std::vector<CheckType>& types,
                                          const std::string& name,
                                          const std::string& localName) const;
    // The same without a word to the tracer, for any thread: `checks` gets
    // each value as it is had, so that a failure leaves those before it.
    void ComputeChecks(const IDataObject& object, const std::vector<CheckType>& types,
                       const std::string& localName, Providers& providers,
                       std::vector<CheckInfo>& checks) const;
    void TraceAdded(const std::vector<CheckInfo>& checks, const std::string& name) const;
    // False when the same file was already added; throws when it was added
    // with other checks, which no manifest could hold. `normalPath` is
    // absolute and lexically normal.
    bool RegisterLocalFile(const boost::filesystem::path& normalPath,
                           const std::vector<CheckType>& types);

    boost::filesystem::path ToLocalPath(const std::string& text) const;
    Filter Stamped(const Filter& filter) const;
    void ReportFailure(std::size_t kind, const char* word, const std::string& name,
                       const std::string& reason);

    IFactoryPtr factory_;
    TracerPtr tracer_;
    ConsoleOutputPtr output_;
    RunStatistics& statistics_;
    ProgressCounter& progress_;

    std::shared_ptr<Environment> environment_;
    Filter stamp_;
    ManifestPtr manifest_;
    bool failed_ = false;
    unsigned threads_ = 1;
    // Keyed by platform::FileNameKey: one file under two spellings is one entry.
    std::unordered_map<boost::filesystem::path::string_type, std::set<CheckType>> localFiles_;
    mutable Providers providers_;
};

// Writes "Generation of %1% %2% failed. Reason: %3%" to standard error, and to
// the log when the tracer writes to a file.
void ReportGenerationFailure(const Tracer& tracer, ConsoleOutput& output, const char* word,
                             const std::string& name, const std::string& reason);

}  // namespace integrity_check_tool::generate
