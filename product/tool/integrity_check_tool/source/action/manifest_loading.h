#pragma once

#include <set>
#include <string>

#include <boost/filesystem/path.hpp>

#include "manifest/filter_evaluator.h"
#include "manifest/manifest.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// The name of the run's manifest object: its path, or the paths joined with
// ", " when several are merged.
std::string JoinManifestNames(const std::set<boost::filesystem::path>& paths);

// Reads the manifests in path order (environment entries that `filter` keeps
// out are not set), each folded and expanded through its own
// environment, and merges every further one into the first, tracing
// "Merge %1% -> %2% ..." at 800 before each merge. Reading and merging
// errors pass through unchanged.
ManifestPtr LoadManifests(const std::set<boost::filesystem::path>& paths, const TracerPtr& tracer,
                          const FilterEvaluator& filter);

// Leaves only the file entry that names `path` (see FindFileEntry) and no
// registry keys. "File %1% not found in manifest %2%" when there is none.
void SelectSingleFile(Manifest& manifest, const boost::filesystem::path& path,
                      const std::string& manifestName, const Tracer& tracer);

}  // namespace integrity_check_tool::action
