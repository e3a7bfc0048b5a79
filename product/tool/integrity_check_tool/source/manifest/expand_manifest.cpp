#include <algorithm>
#include <iterator>

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"

namespace integrity_check_tool {
namespace {

std::string ExpandText(const EnvironmentPtr& environment, const std::string& text) {
    return environment ? environment->Expand(text) : text;
}

// Manifests are written on Windows; where '/' is the separator a backslash
// in a file path separates too. Either way the path is kept with the system's
// own separator, so that every message names it in one form and two records
// of one file spelt with other separators meet.
boost::filesystem::path ExpandPath(const EnvironmentPtr& environment,
                                   const boost::filesystem::path& path) {
    std::string text = ExpandText(environment, PathToUtf8(path));
    const char other = boost::filesystem::path::preferred_separator == '/' ? '\\' : '/';
    std::replace(text.begin(), text.end(), other,
                 static_cast<char>(boost::filesystem::path::preferred_separator));
    return PathFromUtf8(text);
}

// Rekeys every record by its expanded path; records that now name one path
// stay apart until filtering has decided which of them apply.
void ExpandFiles(FileTable& files) {
    FileTable expanded;
    while (!files.empty()) {
        auto node = files.extract(files.begin());
        auto& file = *node.mapped();
        file.path = ExpandPath(file.environment, file.path);
        node.key() = file.path;
        // Paths arriving in order are placed without a search.
        const bool last =
            expanded.empty() || !expanded.key_comp()(node.key(), std::prev(expanded.end())->first);
        expanded.insert(last ? expanded.end() : expanded.upper_bound(node.key()), std::move(node));
    }
    files.swap(expanded);
}

}  // namespace

void ExpandManifest(Manifest& manifest) {
    ExpandFiles(manifest.files);
    for (auto& directory : manifest.directories) {
        directory->path = ExpandPath(directory->environment, directory->path);
        for (auto& file : directory->files) {
            file->path = ExpandPath(file->environment ? file->environment : directory->environment,
                                    file->path);
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
