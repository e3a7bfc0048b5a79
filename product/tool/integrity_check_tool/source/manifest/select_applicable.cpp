#include <string>
#include <unordered_map>
#include <vector>

#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "manifest/record_merge.h"

namespace integrity_check_tool {
namespace {

bool IsSeparator(boost::filesystem::path::value_type c) {
    return c == '/' || (boost::filesystem::path::preferred_separator == '\\' && c == '\\');
}

void SelectFiles(Manifest& manifest, const FilterEvaluator& filter, FileTable& applicable,
                 FilteredRecords& filtered) {
    while (!manifest.files.empty()) {
        auto node = manifest.files.extract(manifest.files.begin());
        if (filter.IsFiltered(node.mapped()->filter, GetPrintableName(*node.mapped()))) {
            filtered.files.insert(filtered.files.end(), std::move(node));
        } else {
            MergeFile(applicable, std::move(node.mapped()));
        }
    }
}

void SelectGroups(Manifest& manifest, const FilterEvaluator& filter, FileTable& applicable,
                  FilteredRecords& filtered) {
    for (auto& group : manifest.directories) {
        // A member applies only where its group applies.
        const bool groupFiltered = filter.IsFiltered(group->filter, PathToUtf8(group->path));
        for (auto& member : group->files) {
            member->path = JoinGroupPath(group->path, member->path);
            if (!member->environment) {
                member->environment = group->environment;
            }
            if (groupFiltered || filter.IsFiltered(member->filter, GetPrintableName(*member))) {
                AddFile(filtered.files, std::move(member));
            } else {
                MergeFile(applicable, std::move(member));
            }
        }
    }
    manifest.directories.clear();
}

// The applicable keys, one per path, each with one value per name.
class KeyTable {
public:
    explicit KeyTable(std::vector<std::unique_ptr<RegistryInfo>>& keys) : keys_(keys) {}

    RegistryInfo& KeyFor(const RegistryInfo& key) {
        auto& entry = byPath_[key.path];
        if (entry.key == nullptr) {
            auto copy = std::make_unique<RegistryInfo>();
            copy->filter = key.filter;
            copy->environment = key.environment;
            copy->path = key.path;
            entry.key = copy.get();
            keys_.push_back(std::move(copy));
        }
        return *entry.key;
    }

    void AddValue(const RegistryInfo& key, std::unique_ptr<RegistryValueInfo> value) {
        RegistryInfo& target = KeyFor(key);
        auto& byName = byPath_[key.path].byName;
        const auto found = byName.find(value->name);
        if (found != byName.end()) {
            AppendChecks(*found->second, *value, target.path);
            return;
        }
        byName.emplace(value->name, value.get());
        target.values.push_back(std::move(value));
    }

private:
    struct Entry {
        RegistryInfo* key = nullptr;
        std::unordered_map<std::string, RegistryValueInfo*> byName;
    };
    std::vector<std::unique_ptr<RegistryInfo>>& keys_;
    std::unordered_map<std::string, Entry> byPath_;
};

void SelectRegistries(Manifest& manifest, const FilterEvaluator& filter,
                      FilteredRecords& filtered) {
    std::vector<std::unique_ptr<RegistryInfo>> applicable;
    KeyTable table(applicable);
    for (auto& key : manifest.registries) {
        if (filter.IsFiltered(key->filter, key->path)) {
            filtered.registries.push_back(key->path);
            continue;
        }
        // A key listed twice, or a value listed twice under one key, is one
        // object, merged as files are.
        table.KeyFor(*key);
        for (auto& value : key->values) {
            if (filter.IsFiltered(value->filter, GetPrintableName(key->path, *value))) {
                filtered.values.push_back(value->name);
            } else {
                table.AddValue(*key, std::move(value));
            }
        }
    }
    manifest.registries = std::move(applicable);
}

}  // namespace

boost::filesystem::path JoinGroupPath(const boost::filesystem::path& group,
                                      const boost::filesystem::path& member) {
    using Text = boost::filesystem::path::string_type;
    const Text& groupText = group.native();
    const Text& memberText = member.native();
    std::size_t groupEnd = groupText.size();
    while (groupEnd > 0 && IsSeparator(groupText[groupEnd - 1])) {
        --groupEnd;
    }
    std::size_t memberStart = 0;
    while (memberStart < memberText.size() && IsSeparator(memberText[memberStart])) {
        ++memberStart;
    }
    if (memberStart == memberText.size()) {
        return boost::filesystem::path(group).make_preferred();
    }
    Text joined = groupText.substr(0, groupEnd);
    // A group of nothing but separators is the root folder and keeps one.
    if (!groupText.empty()) {
        joined += boost::filesystem::path::preferred_separator;
    }
    joined.append(memberText, memberStart, Text::npos);
    // Where both separators separate, the joined path keeps the system's own.
    return boost::filesystem::path(joined).make_preferred();
}

void SelectApplicable(Manifest& manifest, const FilterEvaluator& filter,
                      FilteredRecords& filtered) {
    FileTable applicable;
    SelectFiles(manifest, filter, applicable, filtered);
    SelectGroups(manifest, filter, applicable, filtered);
    manifest.files.swap(applicable);
    SelectRegistries(manifest, filter, filtered);
}

}  // namespace integrity_check_tool
