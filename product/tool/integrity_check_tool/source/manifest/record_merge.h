#pragma once

#include <iterator>

#include "manifest/manifest.h"

#include "manifest/manifest_operations.h"

namespace integrity_check_tool {

// Two records of one object become one: the first takes the second's checks
// once their check types agree.
template <typename Record>
void AppendChecks(Record& target, Record& source) {
    CheckMismatches(target, source);
    target.checks.insert(target.checks.end(), std::make_move_iterator(source.checks.begin()),
                         std::make_move_iterator(source.checks.end()));
    source.checks.clear();
}

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
