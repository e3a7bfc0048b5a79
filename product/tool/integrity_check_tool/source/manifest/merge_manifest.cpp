#include <iterator>
#include <string>
#include <unordered_map>

#include "manifest/manifest_operations.h"
#include "manifest/record_merge.h"

namespace integrity_check_tool {
namespace {

// Both tables hold one record per path and are walked once, in path order;
// nodes move without copies.
void MergeFiles(FileTable& target, FileTable&& source) {
    const auto less = target.key_comp();
    auto position = target.begin();
    while (!source.empty()) {
        auto node = source.extract(source.begin());
        while (position != target.end() && less(position->first, node.key())) {
            ++position;
        }
        if (position != target.end() && !less(node.key(), position->first)) {
            AppendChecks(*position->second, *node.mapped());
        } else {
            target.insert(position, std::move(node));
        }
    }
}

void MergeValues(RegistryInfo& target, RegistryInfo&& source) {
    std::unordered_map<std::string, RegistryValueInfo*> byName;
    for (auto& value : target.values) {
        byName.emplace(value->name, value.get());
    }
    for (auto& value : source.values) {
        const auto found = byName.find(value->name);
        if (found != byName.end()) {
            AppendChecks(*found->second, *value, target.path);
        } else {
            byName.emplace(value->name, value.get());
            target.values.push_back(std::move(value));
        }
    }
    source.values.clear();
}

}  // namespace

void MergeRegistries(std::vector<std::unique_ptr<RegistryInfo>>& target,
                     std::vector<std::unique_ptr<RegistryInfo>>&& source) {
    std::unordered_map<std::string, RegistryInfo*> byPath;
    for (auto& registry : target) {
        byPath.emplace(registry->path, registry.get());
    }
    for (auto& registry : source) {
        const auto found = byPath.find(registry->path);
        if (found != byPath.end()) {
            MergeValues(*found->second, std::move(*registry));
        } else {
            byPath.emplace(registry->path, registry.get());
            target.push_back(std::move(registry));
        }
    }
    source.clear();
}

void AddFile(FileTable& files, std::unique_ptr<FileInfo> file) {
    auto path = file->path;
    // Placed after any record of the same path, so that records keep their
    // order; paths arriving in order are placed without a search.
    const bool last = files.empty() || !files.key_comp()(path, std::prev(files.end())->first);
    files.emplace_hint(last ? files.end() : files.upper_bound(path), std::move(path),
                       std::move(file));
}

void MergeFile(FileTable& files, std::unique_ptr<FileInfo> file) {
    const auto found = PlaceFor(files, file->path);
    const auto match = MatchingEntry(files, found, file->path);
    if (match != files.end()) {
        AppendChecks(*match->second, *file);
        return;
    }
    auto path = file->path;
    files.emplace_hint(found, std::move(path), std::move(file));
}

void MergeManifest(Manifest& target, Manifest&& source) {
    MergeFiles(target.files, std::move(source.files));
    MergeRegistries(target.registries, std::move(source.registries));
    target.environments.insert(target.environments.end(),
                               std::make_move_iterator(source.environments.begin()),
                               std::make_move_iterator(source.environments.end()));
    source.environments.clear();
    target.directories.insert(target.directories.end(),
                              std::make_move_iterator(source.directories.begin()),
                              std::make_move_iterator(source.directories.end()));
    source.directories.clear();
}

}  // namespace integrity_check_tool
