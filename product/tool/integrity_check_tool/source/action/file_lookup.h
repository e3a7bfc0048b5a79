#pragma once

#include <boost/filesystem/path.hpp>

#include "manifest/manifest.h"
#include "tracer.h"

namespace integrity_check_tool::action {

// Finds the entry of `files` that names `path`: by the path as given, by its
// canonical path when it is a symbolic link, by absolute path, and, when the
// path exists, by file equivalence. Each attempt is traced at 800 before it
// is made. Returns files.end() when none matches.
FileTable::iterator FindFileEntry(FileTable& files, const boost::filesystem::path& path,
                                  const Tracer& tracer);

}  // namespace integrity_check_tool::action
