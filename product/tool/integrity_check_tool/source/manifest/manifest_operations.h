#pragma once

#include <memory>
#include <string>
#include <vector>

#include "manifest/environment.h"
#include "manifest/manifest.h"

namespace integrity_check_tool {

class FilterEvaluator;

// Gives every record of the manifest the environment and sets each of the
// manifest's environment entries that apply on this system (every entry when
// `filter` is null) into it, in manifest order, as written: a value is
// expanded only where a path or value uses it.
void RegisterEnvironment(Manifest& manifest, const EnvironmentPtr& environment,
                         const FilterEvaluator* filter = nullptr);

// Two records of one object must name the same set of check types (values are
// not compared); otherwise Exception "Mismatch check types found for %1%".
// A registry value is named with its key.
void CheckMismatches(const FileInfo& a, const FileInfo& b);
void CheckMismatches(const RegistryValueInfo& a, const RegistryValueInfo& b,
                     const std::string& keyPath);

// Puts a record into the table as written: records of one path stay apart,
// in the order they were added.
void AddFile(FileTable& files, std::unique_ptr<FileInfo> file);

// Puts a record into a table that holds one record per path: a record already
// there for the same path takes the new record's checks after CheckMismatches.
void MergeFile(FileTable& files, std::unique_ptr<FileInfo> file);

// The path of a member of a folder group: exactly one separator between the
// two, whatever separators the group path ends with or the member starts with.
boost::filesystem::path JoinGroupPath(const boost::filesystem::path& group,
                                      const boost::filesystem::path& member);

// Expands every file path, folder group path and member path, registry key
// path and registry value name through the record's own environment;
// environment entries stay as written and are expanded when used. Where the system's separator is '/', backslashes in file
// paths become '/'. Nothing is merged.
void ExpandManifest(Manifest& manifest);

// The records of an expanded manifest that do not apply on this system.
struct FilteredRecords {
    FileTable files;                      // files, and the members of filtered folder groups
    std::vector<std::string> registries;  // key paths
    std::vector<std::string> values;      // value names of keys that apply
};

// Puts every record of an expanded manifest to the filter as it stands, and
// only then merges what applies: files (folder group members joined to their
// group's path) into one record per path, registry keys by path and their
// values by name. Records that do not apply go to `filtered` and never meet
// another record, so a mismatch is only raised between records that both
// apply. Leaves no folder groups.
void SelectApplicable(Manifest& manifest, const FilterEvaluator& filter, FilteredRecords& filtered);

// Moves everything of `source` into `target`, both selected: files merge by
// path, registry keys by path and their values by name, environments are
// appended. The target keeps its product name, version and date.
void MergeManifest(Manifest& target, Manifest&& source);

// The manifest as indented JSON, for the trace.
std::string PrintManifest(const Manifest& manifest);

// The names that messages use for records.
std::string GetPrintableName(const FileInfo& file);
std::string GetPrintableName(const std::string& keyPath, const RegistryValueInfo& value);

}  // namespace integrity_check_tool
