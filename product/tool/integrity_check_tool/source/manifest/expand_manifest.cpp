#include <algorithm>

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "manifest/record_merge.h"

namespace integrity_check_tool {
namespace {

std::string ExpandText(const EnvironmentPtr& environment, const std::string& text) {
    return environment ? environment->Expand(text) : text;
}

// Manifests are written on Windows; where '/' is the separator a backslash
// in a file path separates too.
boost::filesystem::path ExpandPath(const EnvironmentPtr& environment,
                                   const boost::filesystem::path& path) {
    std::string text = ExpandText(environment, PathToUtf8(path));
    if (boost::filesystem::path::preferred_separator == '/') {
        std::replace(text.begin(), text.end(), '\\', '/');
    }
    return PathFromUtf8(text);
}

void ExpandFiles(FileTable& files) {
    FileTable expanded;
    while (!files.empty()) {
        auto node = files.extract(files.begin());
        auto& file = *node.mapped();
        file.path = ExpandPath(file.environment, file.path);
        node.key() = file.path;
        const auto found = PlaceFor(expanded, node.key());
        const auto match = MatchingEntry(expanded, found, node.key());
        if (match != expanded.end()) {
            AppendChecks(*match->second, file);
        } else {
            expanded.insert(found, std::move(node));
        }
    }
    files.swap(expanded);
}

}  // namespace

void ExpandManifest(Manifest& manifest) {
    ExpandFiles(manifest.files);
    for (auto& directory : manifest.directories) {
        directory->path = ExpandPath(directory->environment, directory->path);
        for (auto& file : directory->files) {
            file->path = ExpandPath(file->environment, file->path);
        }
    }
    for (auto& registry : manifest.registries) {
        registry->path = ExpandText(registry->environment, registry->path);
        for (auto& value : registry->values) {
            value->name = ExpandText(registry->environment, value->name);
        }
    }
}

}  // namespace integrity_check_tool
