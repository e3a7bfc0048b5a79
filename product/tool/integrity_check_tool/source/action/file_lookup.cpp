#include "action/file_lookup.h"

#include <boost/filesystem/operations.hpp>

#include "common/run_statistics.h"

namespace integrity_check_tool::action {
namespace {

const char* FindByOriginal() {
    return "Find %1% by original path %2% ...";
}
const char* FindByCanonical() {
    return "Find %1% by canonical path %2% ...";
}
const char* FindByAbsolute() {
    return "Find %1% by absolute path %2% ...";
}
const char* FindByEquivalence() {
    return "Find %1% by equivalence path %2% ...";
}

}  // namespace

FileTable::iterator FindFileEntry(FileTable& files, const boost::filesystem::path& path,
                                  const Tracer& tracer) {
    namespace fs = boost::filesystem;

    tracer.Trace(trace_level::Detail, FindByOriginal(), object_word::File, path.string());
    auto found = files.find(path);
    if (found != files.end()) {
        return found;
    }

    boost::system::error_code error;
    if (fs::symlink_status(path, error).type() == fs::symlink_file) {
        // Windows' canonical form mixes both separators; traces show the system's own.
        const fs::path canonical = fs::canonical(path, error).make_preferred();
        if (!error) {
            tracer.Trace(trace_level::Detail, FindByCanonical(), object_word::File,
                         canonical.string());
            found = files.find(canonical);
            if (found != files.end()) {
                return found;
            }
        }
    }

    // Both sides made absolute, so that a relative request meets an entry
    // written with a full path and the other way round.
    const fs::path absolute = fs::absolute(path).make_preferred();
    tracer.Trace(trace_level::Detail, FindByAbsolute(), object_word::File, absolute.string());
    for (auto entry = files.begin(); entry != files.end(); ++entry) {
        if (fs::absolute(entry->first) == absolute) {
            return entry;
        }
    }

    const fs::file_status status = fs::status(path, error);
    if (!error && fs::exists(status)) {
        tracer.Trace(trace_level::Detail, FindByEquivalence(), object_word::File, path.string());
        for (auto entry = files.begin(); entry != files.end(); ++entry) {
            boost::system::error_code notEquivalent;
            if (fs::equivalent(entry->first, path, notEquivalent) && !notEquivalent) {
                return entry;
            }
        }
    }
    return files.end();
}

}  // namespace integrity_check_tool::action
