#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "common/enumerations.h"
#include "manifest/filter.h"

namespace integrity_check_tool {

class Environment;
using EnvironmentPtr = std::shared_ptr<Environment>;

using Bytes = std::vector<std::uint8_t>;

struct CheckInfo {
    CheckType type = CheckType::Exists;
    Bytes value;  // expected bytes; empty when the check needs none
};

struct FileInfo {
    Filter filter;
    EnvironmentPtr environment;
    boost::filesystem::path path;
    std::vector<CheckInfo> checks;  // manifest order
};

struct DirectoryInfo {
    Filter filter;
    EnvironmentPtr environment;
    boost::filesystem::path path;
    std::vector<std::unique_ptr<FileInfo>> files;
};

struct RegistryValueInfo {
    Filter filter;
    std::string name;  // empty: the key's default value
    RegistryType type = RegistryType::Binary;
    std::vector<CheckInfo> checks;
};

struct RegistryInfo {
    Filter filter;
    EnvironmentPtr environment;
    std::string path;
    std::vector<std::unique_ptr<RegistryValueInfo>> values;
};

struct EnvironmentInfo {
    Filter filter;
    EnvironmentPtr environment;
    std::string key;
    std::string value;
};

// Files keyed and ordered by path.
using FileTable = std::map<boost::filesystem::path, std::unique_ptr<FileInfo>>;

// One manifest in memory; it has a single owner (std::unique_ptr<Manifest>).
struct Manifest {
    std::string productName;
    std::string productVersion;
    std::string generationDateTime;
    std::vector<EnvironmentInfo> environments;
    FileTable files;
    std::vector<std::unique_ptr<DirectoryInfo>> directories;
    std::vector<std::unique_ptr<RegistryInfo>> registries;
};

using ManifestPtr = std::unique_ptr<Manifest>;

}  // namespace integrity_check_tool
