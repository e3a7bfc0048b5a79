#include "generate/manifest_generator.h"

#include <algorithm>

#include <boost/algorithm/string/join.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "generate/entry_name.h"
#include "generate/nt_version.h"
#include "generate/parallel_jobs.h"
#include "generate/tree_enumerator.h"
#include "manifest/path_text.h"
#include "platform/file_names.h"
#include "platform/registry_support.h"

namespace integrity_check_tool::generate {
namespace {

namespace fs = boost::filesystem;

const char* BeginEnumeration() {
    return "Begin enumeration of %1%";
}
const char* EndEnumeration() {
    return "End enumeration of %1% with status %2%";
}
const char* StatusSuccess() {
    return "Success";
}
const char* StatusFailure() {
    return "Failure";
}
const char* CheckerAdded() {
    return "Checker %1% added for %2%";
}
const char* GenerationFailed() {
    return "Generation of %1% %2% failed";
}
const char* FailedWithReason() {
    return "%1%. Reason: %2%";
}
const char* EntrySkipped() {
    return "%1% skipped: %2%";
}
const char* NothingMatched() {
    return "No file of %1% matches the patterns";
}
const char* MembersFailed() {
    return "%1% of %2% failed";
}
const char* CantEnumerate() {
    return "Can't enumerate %1%. Reason: %2%";
}
const char* FoldersFailed() {
    return "%1% of its folders could not be listed";
}
const char* PercentInName() {
    return "its name holds a % sign that would be read as part of a placeholder";
}
const char* ObjectAbsent() {
    return "%1% does not exist";
}
const char* ObjectPresent() {
    return "%1% exists, but NotExists is its only check";
}
const char* ListedTwice() {
    return "%1% is already listed with other checks";
}
const char* NoRegistry() {
    return "There is no registry here: the values of %1% get an Exists check and os Windows";
}

constexpr char kManifestSeparator = '\\';

// "2024-01-01T00:00:00Z": when the manifest was made, in UTC.
std::string NowUtc() {
    return boost::posix_time::to_iso_extended_string(
               boost::posix_time::second_clock::universal_time()) +
           "Z";
}

// "%Bin%\\" names the folder "%Bin%"; "C:\\" stays a drive's root.
std::string TrimSeparators(std::string path) {
    while (path.size() > 1 && (path.back() == '\\' || path.back() == '/') &&
           path[path.size() - 2] != ':') {
        path.pop_back();
    }
    return path;
}

std::string JoinManifestPath(const std::string& folder, const std::string& relative) {
    const bool separated = !folder.empty() && (folder.back() == '\\' || folder.back() == '/');
    return separated ? folder + relative : folder + kManifestSeparator + relative;
}

std::string ToManifestSeparators(std::string path) {
    std::replace(path.begin(), path.end(), '/', kManifestSeparator);
    return path;
}

template <typename Value>
void StampCondition(boost::optional<Value>& own, const boost::optional<Value>& stamp) {
    if (!own) {
        own = stamp;
    }
}

}  // namespace

// One listed file of a folder on its way to the manifest.
struct ManifestGenerator::PendingFile {
    const std::string* relativePath = nullptr;  // as listed, '/' between segments
    const boost::filesystem::path* localPath = nullptr;
    std::string relative;      // with the manifest's separators
    bool nameRefused = false;  // its name would read as a placeholder
    bool fresh = false;        // listed here first: its values are computed
    std::exception_ptr failure;
    std::vector<CheckInfo> checks;  // the values had before any failure
};

ManifestGenerator::ManifestGenerator(IFactoryPtr factory, ConsoleOutputPtr output,
                                     RunStatistics& statistics, ProgressCounter& progress)
    : factory_(std::move(factory)),
      tracer_(factory_->GetTracer()),
      output_(std::move(output)),
      statistics_(statistics),
      progress_(progress) {}

ManifestPtr ManifestGenerator::Generate(const GenerationConfig& config,
                                        const GenerateSettings& settings) {
    manifest_ = std::make_unique<Manifest>();
    failed_ = false;
    threads_ = std::max(1u, settings.threads);
    localFiles_.clear();
    manifest_->productName = config.productName;
    manifest_->productVersion = config.productVersion;
    manifest_->generationDateTime = NowUtc();
    PrepareStamp(settings);
    PrepareEnvironment(config, settings);

    for (const auto& directory : config.directories) {
        AddDirectory(directory, settings.manifestPath);
    }
    for (const auto& file : config.files) {
        AddFile(file);
    }
    for (const auto& registry : config.registries) {
        AddRegistry(registry);
    }
    progress_.Clear();
    if (failed_) {
        manifest_.reset();
    }
    return std::move(manifest_);
}

void ManifestGenerator::PrepareStamp(const GenerateSettings& settings) {
    stamp_ = Filter();
    if (settings.stampArch) {
        stamp_.arch = settings.arch;
    }
    if (settings.stampOsEdition) {
        stamp_.osEdition = settings.osEdition;
    }
    if (!settings.version.empty()) {
        stamp_.minVersionNt = ParseNtVersion(settings.version);
    }
}

// The placeholders mean here what they will mean where the manifest is
// checked: "ProductRoot" is the manifest's folder unless the configuration
// points it at the product tree, then come the configured entries in order.
void ManifestGenerator::PrepareEnvironment(const GenerationConfig& config,
                                           const GenerateSettings& settings) {
    environment_ = std::make_shared<Environment>(settings.manifestPath, tracer_);
    if (config.productRoot) {
        environment_->SetValue("ProductRoot", PathToUtf8(*config.productRoot));
    }
    for (const auto& entry : config.environments) {
        environment_->SetValue(entry.key, entry.value);
        EnvironmentInfo info;
        info.filter = entry.filter;
        info.key = entry.key;
        info.value = entry.value;
        manifest_->environments.push_back(std::move(info));
    }
}

fs::path ManifestGenerator::ToLocalPath(const std::string& text) const {
    std::string expanded = environment_->Expand(text);
    // Both systems take '/' as a separator, only Windows takes '\'; the local
    // path keeps the system's own, so that messages name it in one form.
    const char other = fs::path::preferred_separator == '/' ? '\\' : '/';
    std::replace(expanded.begin(), expanded.end(), other,
                 static_cast<char>(fs::path::preferred_separator));
    return PathFromUtf8(expanded);
}

Filter ManifestGenerator::Stamped(const Filter& filter) const {
    Filter stamped = filter;
    StampCondition(stamped.arch, stamp_.arch);
    StampCondition(stamped.osEdition, stamp_.osEdition);
    StampCondition(stamped.minVersionNt, stamp_.minVersionNt);
    return stamped;
}

void ManifestGenerator::AddDirectory(const DirectorySource& source, const fs::path& manifestPath) {
    const std::string path = TrimSeparators(source.path);
    Enumeration listing;
    std::string local = path;
    const auto skipped = [this](const std::string& entry, const std::string& why) {
        tracer_->Trace(trace_level::Warning, EntrySkipped(), entry, why);
    };
    try {
        local = ToLocalPath(path).string();
        tracer_->Trace(trace_level::Info, BeginEnumeration(), local);
        TreeEnumerator enumerator(source.includes, source.excludes);
        enumerator.Ignore(manifestPath);
        listing = enumerator.Enumerate(local, skipped);
    } catch (...) {
        ReportFailure(Directories, object_word::Directory, path, CurrentExceptionText());
        tracer_->Trace(trace_level::Info, EndEnumeration(), local, StatusFailure());
        return;
    }
    // Each folder that could not be listed is named; the listing went on.
    for (const auto& failure : listing.failures) {
        const std::string name =
            failure.relativePath.empty()
                ? path
                : JoinManifestPath(path, ToManifestSeparators(failure.relativePath));
        failed_ = true;
        progress_.Clear();
        ReportGenerationFailure(
            *tracer_, *output_, object_word::Directory, name,
            MessageFormat(CantEnumerate(), failure.fullPath.string(), failure.reason));
    }
    if (listing.files.empty() && listing.failures.empty()) {
        tracer_->Trace(trace_level::Warning, NothingMatched(), local);
    }

    std::unique_ptr<DirectoryInfo> group;
    if (source.group) {
        group = std::make_unique<DirectoryInfo>();
        group->filter = Stamped(source.filter);
        group->path = PathFromUtf8(path);
    }
    // Names and registrations are settled in listing order, the values are
    // computed on every thread, and the records are made in listing order
    // again: the manifest and every line about it are those of one thread.
    std::vector<PendingFile> pending;
    pending.reserve(listing.files.size());
    for (const auto& file : listing.files) {
        PendingFile entry;
        entry.relativePath = &file.relativePath;
        entry.localPath = &file.fullPath;
        entry.relative = ToManifestSeparators(file.relativePath);
        entry.nameRefused = NameMakesPlaceholder(path, entry.relative);
        if (!entry.nameRefused) {
            try {
                entry.fresh = RegisterLocalFile(file.fullPath, source.checks);
            } catch (...) {
                entry.failure = std::current_exception();
            }
        }
        pending.push_back(std::move(entry));
    }
    ComputeDirectoryFiles(source, pending);
    std::size_t failures = 0;
    for (const auto& entry : pending) {
        if (entry.nameRefused) {
            skipped(ShowName(*entry.relativePath), PercentInName());
            continue;
        }
        if (!AddDirectoryFile(source, entry, group.get())) {
            ++failures;
        }
    }
    if (group && !group->files.empty()) {
        manifest_->directories.push_back(std::move(group));
    }
    std::vector<std::string> reasons;
    if (!listing.failures.empty()) {
        reasons.push_back(MessageFormat(FoldersFailed(), listing.failures.size()));
    }
    if (failures != 0) {
        reasons.push_back(MessageFormat(MembersFailed(), failures, listing.files.size()));
    }
    if (reasons.empty()) {
        statistics_.CountSuccess(Directories);
    } else {
        ReportFailure(Directories, object_word::Directory, path,
                      boost::algorithm::join(reasons, "; "));
    }
    tracer_->Trace(trace_level::Info, EndEnumeration(), local,
                   reasons.empty() ? StatusSuccess() : StatusFailure());
}

void ManifestGenerator::ComputeDirectoryFiles(const DirectorySource& source,
                                              std::vector<PendingFile>& files) {
    std::vector<PendingFile*> counted;
    for (auto& file : files) {
        if (!file.nameRefused) {
            counted.push_back(&file);
        }
    }
    std::vector<Providers> providers(threads_);
    RunJobs(
        counted.size(), threads_,
        [&](unsigned worker, std::size_t index) {
            PendingFile& file = *counted[index];
            if (!file.fresh || file.failure) {
                return;
            }
            try {
                const auto object = factory_->CreateFile(*file.localPath);
                ComputeChecks(*object, source.checks, file.localPath->string(), providers[worker],
                              file.checks);
            } catch (...) {
                file.failure = std::current_exception();
            }
        },
        [this] { progress_.Step(); });
}

bool ManifestGenerator::AddDirectoryFile(const DirectorySource& source, const PendingFile& entry,
                                         DirectoryInfo* group) {
    const std::string name = JoinManifestPath(TrimSeparators(source.path), entry.relative);
    try {
        TraceAdded(entry.checks, name);
        if (entry.failure) {
            std::rethrow_exception(entry.failure);
        }
        if (!entry.fresh) {
            return true;
        }
        auto file = std::make_unique<FileInfo>();
        file->checks = entry.checks;
        if (group != nullptr) {
            // The folder's conditions reach its files when the manifest is read.
            file->path = PathFromUtf8(entry.relative);
            group->files.push_back(std::move(file));
        } else {
            file->filter = Stamped(source.filter);
            file->path = PathFromUtf8(name);
            manifest_->files.emplace(file->path, std::move(file));
        }
    } catch (...) {
        ReportFailure(Files, object_word::File, name, CurrentExceptionText());
        return false;
    }
    statistics_.CountSuccess(Files);
    return true;
}

void ManifestGenerator::AddFile(const FileSource& source) {
    progress_.Step();
    try {
        const fs::path local = ToLocalPath(source.path);
        if (!RegisterLocalFile(fs::absolute(local).lexically_normal().make_preferred(),
                               source.checks)) {
            return;
        }
        const auto object = factory_->CreateFile(local);
        auto file = std::make_unique<FileInfo>();
        file->filter = Stamped(source.filter);
        file->path = PathFromUtf8(source.path);
        file->checks = EvaluateChecks(*object, source.checks, source.path, local.string());
        manifest_->files.emplace(file->path, std::move(file));
    } catch (...) {
        ReportFailure(Files, object_word::File, source.path, CurrentExceptionText());
        return;
    }
    statistics_.CountSuccess(Files);
}

void ManifestGenerator::AddRegistry(const RegistrySource& source) {
    auto key = std::make_unique<RegistryInfo>();
    key->filter = Stamped(source.filter);
    key->path = source.path;
    const bool capture = platform::IsRegistryAvailable();
    if (!capture) {
        // A record made here can only promise the value exists on Windows.
        StampCondition(key->filter.os, boost::optional<Os>(Os::Windows));
        tracer_->Trace(trace_level::Warning, NoRegistry(), source.path);
    }
    std::size_t failures = 0;
    for (const auto& value : source.values) {
        const std::string name = source.path + kManifestSeparator + value.name;
        try {
            if (capture) {
                key->values.push_back(
                    CaptureValue(source, environment_->Expand(source.path), value));
            } else {
                auto info = std::make_unique<RegistryValueInfo>();
                info->filter = value.filter;
                info->name = value.name;
                info->type = value.type;
                info->checks.push_back(CheckInfo{CheckType::Exists, {}});
                tracer_->Trace(trace_level::Detail, CheckerAdded(), ToName(CheckType::Exists),
                               name);
                key->values.push_back(std::move(info));
            }
            statistics_.CountSuccess(RegistryValues);
        } catch (...) {
            ++failures;
            ReportFailure(RegistryValues, object_word::RegistryValue, name, CurrentExceptionText());
        }
    }
    if (failures == 0) {
        statistics_.CountSuccess(Registries);
    } else {
        ReportFailure(Registries, object_word::RegistryPath, source.path,
                      MessageFormat(MembersFailed(), failures, source.values.size()));
    }
    manifest_->registries.push_back(std::move(key));
}

std::unique_ptr<RegistryValueInfo> ManifestGenerator::CaptureValue(
    const RegistrySource& key, const std::string& keyPath, const RegistryValueSource& source) {
    const std::string name = key.path + kManifestSeparator + source.name;
    const auto object =
        factory_->CreateRegistry(environment_->Expand(source.name), keyPath, source.type);
    auto value = std::make_unique<RegistryValueInfo>();
    value->filter = source.filter;
    value->name = source.name;
    value->type = source.type;
    value->checks = EvaluateChecks(*object, source.checks, name, name);
    return value;
}

std::vector<CheckInfo> ManifestGenerator::EvaluateChecks(const IDataObject& object,
                                                         const std::vector<CheckType>& types,
                                                         const std::string& name,
                                                         const std::string& localName) const {
    std::vector<CheckInfo> checks;
    try {
        ComputeChecks(object, types, localName, providers_, checks);
    } catch (...) {
        TraceAdded(checks, name);
        throw;
    }
    TraceAdded(checks, name);
    return checks;
}

void ManifestGenerator::ComputeChecks(const IDataObject& object,
                                      const std::vector<CheckType>& types,
                                      const std::string& localName, Providers& providers,
                                      std::vector<CheckInfo>& checks) const {
    const bool exists = object.IsExists();
    for (const CheckType type : types) {
        CheckInfo check;
        check.type = type;
        if (type == CheckType::Exists) {
            if (!exists) {
                ICT_THROW(Exception(MessageFormat(ObjectAbsent(), localName)));
            }
        } else if (type == CheckType::NotExists) {
            if (exists && types.size() == 1) {
                ICT_THROW(Exception(MessageFormat(ObjectPresent(), localName)));
            }
        } else {
            auto& provider = providers[type];
            if (!provider) {
                provider = factory_->CreateValueProvider(type);
            }
            provider->Evaluate(object, check.value);
        }
        checks.push_back(std::move(check));
    }
}

void ManifestGenerator::TraceAdded(const std::vector<CheckInfo>& checks,
                                   const std::string& name) const {
    for (const CheckInfo& check : checks) {
        tracer_->Trace(trace_level::Detail, CheckerAdded(), ToName(check.type), name);
    }
}

bool ManifestGenerator::RegisterLocalFile(const fs::path& normalPath,
                                          const std::vector<CheckType>& types) {
    const std::set<CheckType> checks(types.begin(), types.end());
    const auto [found, added] = localFiles_.emplace(platform::FileNameKey(normalPath), checks);
    if (!added && found->second != checks) {
        ICT_THROW(Exception(MessageFormat(ListedTwice(), normalPath.string())));
    }
    return added;
}

void ManifestGenerator::ReportFailure(std::size_t kind, const char* word, const std::string& name,
                                      const std::string& reason) {
    failed_ = true;
    statistics_.CountFailure(kind);
    progress_.Clear();
    ReportGenerationFailure(*tracer_, *output_, word, name, reason);
}

void ReportGenerationFailure(const Tracer& tracer, ConsoleOutput& output, const char* word,
                             const std::string& name, const std::string& reason) {
    const std::string line =
        MessageFormat(FailedWithReason(), MessageFormat(GenerationFailed(), word, name), reason);
    output.Write(ConsoleOutput::Error, line);
    // On the console the line is already shown; the log file gets it too.
    if (tracer.WritesToFile()) {
        tracer.Write(trace_level::Error, line);
    }
}

}  // namespace integrity_check_tool::generate
