#include "action/manifest_loading.h"

#include "action/file_lookup.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/path_text.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

const char* MergeManifests() {
    return "Merge %1% -> %2% ...";
}
const char* FileNotFoundInManifest() {
    return "File %1% not found in manifest %2%";
}

// Expanded before anything meets, so that two manifests naming one file
// through different placeholders meet on the same path and messages name
// real paths; filtered before anything merges, so that a record meant for
// another system never lends its checks to one that applies here.
ManifestPtr LoadApplicable(const boost::filesystem::path& path, const TracerPtr& tracer,
                           const FilterEvaluator& filter, FilteredRecords& filtered) {
    ManifestPtr manifest = xml::File(tracer).Load(path, &filter);
    ExpandManifest(*manifest);
    SelectApplicable(*manifest, filter, filtered);
    return manifest;
}

template <typename Table>
void KeepOnly(Table& table, typename Table::iterator entry) {
    auto node = table.extract(entry);
    table.clear();
    table.insert(std::move(node));
}

}  // namespace

std::string JoinManifestNames(const std::set<boost::filesystem::path>& paths) {
    std::string names;
    for (const auto& path : paths) {
        if (!names.empty()) {
            names += ", ";
        }
        names += path.string();
    }
    return names;
}

LoadedManifests LoadManifests(const std::set<boost::filesystem::path>& paths,
                              const TracerPtr& tracer, const FilterEvaluator& filter) {
    LoadedManifests loaded;
    if (paths.empty()) {
        loaded.manifest = std::make_unique<Manifest>();
        return loaded;
    }
    auto next = paths.begin();
    const boost::filesystem::path& target = *next;
    loaded.manifest = LoadApplicable(target, tracer, filter, loaded.filtered);
    for (++next; next != paths.end(); ++next) {
        tracer->Trace(trace_level::Detail, MergeManifests(), next->string(), target.string());
        ManifestPtr source = LoadApplicable(*next, tracer, filter, loaded.filtered);
        MergeManifest(*loaded.manifest, std::move(*source));
    }
    return loaded;
}

void SelectSingleFile(LoadedManifests& loaded, const boost::filesystem::path& path,
                      const std::string& manifestName, const Tracer& tracer) {
    Manifest& manifest = *loaded.manifest;
    FilteredRecords& filtered = loaded.filtered;
    const auto found = FindFileEntry(manifest.files, path, tracer);
    if (found != manifest.files.end()) {
        KeepOnly(manifest.files, found);
        filtered = FilteredRecords();
    } else {
        const auto skipped = FindFileEntry(filtered.files, path, tracer);
        if (skipped == filtered.files.end()) {
            ICT_THROW(
                Exception(MessageFormat(FileNotFoundInManifest(), path.string(), manifestName)));
        }
        manifest.files.clear();
        KeepOnly(filtered.files, skipped);
        filtered.registries.clear();
        filtered.values.clear();
    }
    manifest.registries.clear();
}

void CountFiltered(const FilteredRecords& filtered, RunStatistics& statistics) {
    for (const auto& file : filtered.files) {
        statistics.Skip(Files, object_word::File, file.first.string());
    }
    for (const auto& key : filtered.registries) {
        statistics.Skip(Registries, object_word::RegistryPath, key);
    }
    for (const auto& value : filtered.values) {
        statistics.Skip(RegistryValues, object_word::RegistryValue, value);
    }
}

}  // namespace integrity_check_tool::action
