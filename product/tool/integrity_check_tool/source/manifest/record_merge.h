#pragma once

#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "manifest/manifest.h"
#include "manifest/manifest_operations.h"

namespace integrity_check_tool {

// Two records of one object become one: the first takes the second's checks
// once their check types agree.
inline void AppendChecks(FileInfo& target, FileInfo& source) {
    CheckMismatches(target, source);
    target.checks.insert(target.checks.end(), std::make_move_iterator(source.checks.begin()),
                         std::make_move_iterator(source.checks.end()));
    source.checks.clear();
}

inline void AppendChecks(RegistryValueInfo& target, RegistryValueInfo& source,
                         const std::string& keyPath) {
    CheckMismatches(target, source, keyPath);
    target.checks.insert(target.checks.end(), std::make_move_iterator(source.checks.begin()),
                         std::make_move_iterator(source.checks.end()));
    source.checks.clear();
}

// Moves the keys of `source` into `target`: keys of one path become one, their
// values merging by name.
void MergeRegistries(std::vector<std::unique_ptr<RegistryInfo>>& target,
                     std::vector<std::unique_ptr<RegistryInfo>>&& source);

// Where `path` belongs in `files`: its entry, or the entry it would go
// before. Paths arriving in order are placed without a search.
inline FileTable::iterator PlaceFor(FileTable& files, const boost::filesystem::path& path) {
    if (!files.empty() && files.key_comp()(std::prev(files.end())->first, path)) {
        return files.end();
    }
    return files.lower_bound(path);
}

// The entry of `files` for `path`, or end(). `found` must be PlaceFor(files, path);
// equality is the table's own, not the element-wise comparison of paths.
inline FileTable::iterator MatchingEntry(FileTable& files, FileTable::iterator found,
                                         const boost::filesystem::path& path) {
    if (found != files.end() && !files.key_comp()(path, found->first)) {
        return found;
    }
    return files.end();
}

}  // namespace integrity_check_tool
