#pragma once

#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

#include "common/enumerations.h"
#include "generate/glob_pattern.h"
#include "manifest/filter.h"

namespace integrity_check_tool::generate {

// What a generation configuration asks for. Paths are kept as written, with
// their placeholders: they go into the manifest unchanged and are expanded
// only to find the files on this machine.

struct EnvironmentSource {
    Filter filter;
    std::string key;
    std::string value;
};

// A folder of the product whose files are enumerated.
struct DirectorySource {
    Filter filter;
    std::string path;
    bool group = false;                 // one "Files" element with relative paths
    std::vector<GlobPattern> includes;  // none: every file
    std::vector<GlobPattern> excludes;
    std::vector<CheckType> checks;
};

// One file named on its own, present or (with a NotExists check) absent.
struct FileSource {
    Filter filter;
    std::string path;
    std::vector<CheckType> checks;
};

struct RegistryValueSource {
    Filter filter;
    std::string name;
    RegistryType type = RegistryType::Binary;
    std::vector<CheckType> checks;
};

struct RegistrySource {
    Filter filter;
    std::string path;
    std::vector<RegistryValueSource> values;
};

struct GenerationConfig {
    std::string productName;
    std::string productVersion;
    // The folder that %ProductRoot% stands for while generating; absent: the
    // folder of the manifest being written.
    boost::optional<boost::filesystem::path> productRoot;
    std::vector<EnvironmentSource> environments;
    std::vector<DirectorySource> directories;
    std::vector<FileSource> files;
    std::vector<RegistrySource> registries;
};

// Reads a configuration file; a relative productRoot is taken from the
// configuration file's folder. Every failure is one Exception naming the file
// and, for a content error, its row.
GenerationConfig ReadGenerationConfig(const boost::filesystem::path& path);

// Parses configuration text; `origin` names it in messages and its folder
// anchors a relative productRoot.
GenerationConfig ParseGenerationConfig(const std::string& text,
                                       const boost::filesystem::path& origin);

}  // namespace integrity_check_tool::generate
