#pragma once

#include <memory>
#include <string>

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
void CheckMismatches(const FileInfo& a, const FileInfo& b);
void CheckMismatches(const RegistryValueInfo& a, const RegistryValueInfo& b);

// Puts a file into the table; a record already there for the same path takes
// the new record's checks after CheckMismatches.
void AddFile(FileTable& files, std::unique_ptr<FileInfo> file);

// Turns the files of every directory into manifest-level files (directory
// path joined with the file's path, the directory's conditions added to the
// file's own) and leaves no directories.
void FoldDirectories(Manifest& manifest);

// Expands every file path, registry key path and registry value name through
// the record's own environment; environment entries stay as written. Where the system's
// separator is '/', backslashes in file paths become '/'. Files that now name
// the same path are merged.
void ExpandManifest(Manifest& manifest);

// Moves everything of `source` into `target`: files merge by path, registry
// keys by path and their values by name, environments and directories are
// appended. The target keeps its product name, version and date.
void MergeManifest(Manifest& target, Manifest&& source);

// The manifest as indented JSON, for the trace.
std::string PrintManifest(const Manifest& manifest);

// The names that messages use for records.
std::string GetPrintableName(const FileInfo& file);
std::string GetPrintableName(const RegistryValueInfo& value);

}  // namespace integrity_check_tool
