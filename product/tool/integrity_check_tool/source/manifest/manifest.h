#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
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

// Orders paths the way their elements would order: a separator sorts before
// any other character, except a leading one, which is the root directory
// element "/" and compares as that text. One pass over the two texts:
// splitting paths into elements for every comparison made large tables
// several times slower.
struct PathOrder {
    static unsigned Rank(boost::filesystem::path::value_type c, std::size_t index) {
        const bool separator =
            c == '/' || (boost::filesystem::path::preferred_separator == '\\' && c == '\\');
        using Unsigned = std::make_unsigned_t<boost::filesystem::path::value_type>;
        return separator && index != 0 ? 0u : static_cast<unsigned>(static_cast<Unsigned>(c)) + 1u;
    }

    bool operator()(const boost::filesystem::path& a, const boost::filesystem::path& b) const {
        const auto& left = a.native();
        const auto& right = b.native();
        const std::size_t common = std::min(left.size(), right.size());
        // Equal characters rank equally: only the differing ones need ranking.
        for (std::size_t index = 0;; ++index) {
            index = static_cast<std::size_t>(
                std::mismatch(left.data() + index, left.data() + common, right.data() + index)
                    .first -
                left.data());
            if (index == common) {
                return left.size() < right.size();
            }
            const unsigned leftRank = Rank(left[index], index);
            const unsigned rightRank = Rank(right[index], index);
            if (leftRank != rightRank) {
                return leftRank < rightRank;
            }
        }
    }
};

// Files keyed and ordered by path. A manifest as read keeps every record as
// written, so one path may hold several records (one per system, say); the
// verify walk merges only the records that apply here.
using FileTable = std::multimap<boost::filesystem::path, std::unique_ptr<FileInfo>, PathOrder>;

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
