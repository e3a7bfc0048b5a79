#include "action/manifest_loading.h"

#include "action/file_lookup.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "manifest/manifest_operations.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

const char* MergeManifests() {
    return "Merge %1% -> %2% ...";
}
const char* FileNotFoundInManifest() {
    return "File %1% not found in manifest %2%";
}

ManifestPtr LoadExpanded(const boost::filesystem::path& path, const TracerPtr& tracer,
                         const FilterEvaluator& filter) {
    ManifestPtr manifest = xml::File(tracer).Load(path, &filter);
    FoldDirectories(*manifest);
    // Expanded before merging, so that two manifests naming one file through
    // different placeholders meet on the same path.
    ExpandManifest(*manifest);
    return manifest;
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

ManifestPtr LoadManifests(const std::set<boost::filesystem::path>& paths, const TracerPtr& tracer,
                          const FilterEvaluator& filter) {
    if (paths.empty()) {
        return std::make_unique<Manifest>();
    }
    auto next = paths.begin();
    const boost::filesystem::path& target = *next;
    ManifestPtr manifest = LoadExpanded(target, tracer, filter);
    for (++next; next != paths.end(); ++next) {
        tracer->Trace(trace_level::Detail, MergeManifests(), next->string(), target.string());
        MergeManifest(*manifest, std::move(*LoadExpanded(*next, tracer, filter)));
    }
    return manifest;
}

void SelectSingleFile(Manifest& manifest, const boost::filesystem::path& path,
                      const std::string& manifestName, const Tracer& tracer) {
    const auto found = FindFileEntry(manifest.files, path, tracer);
    if (found == manifest.files.end()) {
        ICT_THROW(Exception(MessageFormat(FileNotFoundInManifest(), path.string(), manifestName)));
    }
    auto entry = manifest.files.extract(found);
    manifest.files.clear();
    manifest.files.insert(std::move(entry));
    manifest.registries.clear();
}

}  // namespace integrity_check_tool::action
