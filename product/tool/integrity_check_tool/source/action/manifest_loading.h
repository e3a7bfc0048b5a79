#pragma once

#include <set>
#include <string>

#include <boost/filesystem/path.hpp>

#include "common/run_statistics.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest.h"
#include "manifest/manifest_operations.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// The run's manifests merged into one, holding only the records that apply
// on this system; the others are kept apart to be counted as skipped.
struct LoadedManifests {
    ManifestPtr manifest;
    FilteredRecords filtered;
};

// The name of the run's manifest object: its path, or the paths joined with
// ", " when several are merged.
std::string JoinManifestNames(const std::set<boost::filesystem::path>& paths);

// Reads the manifests in path order (environment entries that `filter` keeps
// out are not set); each is expanded through its own environment and put to the filter record by record before anything is
// merged. Every further manifest is then merged into the first, tracing
// "Merge %1% -> %2% ..." at 800 before each merge. Reading and merging errors
// pass through unchanged.
LoadedManifests LoadManifests(const std::set<boost::filesystem::path>& paths,
                              const TracerPtr& tracer, const FilterEvaluator& filter);

// Leaves only the file entry that names `path` (see FindFileEntry) and no
// registry keys. When only records that do not apply here name it, the
// manifest is left empty and that file is the one filtered record. "File %1%
// not found in manifest %2%" when there is none.
void SelectSingleFile(LoadedManifests& loaded, const boost::filesystem::path& path,
                      const std::string& manifestName, const Tracer& tracer);

// Counts every filtered record as skipped, each with its "... filtered" line.
void CountFiltered(const FilteredRecords& filtered, RunStatistics& statistics);

}  // namespace integrity_check_tool::action
