#pragma once

#include <cstddef>

#include <boost/filesystem/path.hpp>

namespace ict_bench {

// Shape of one generated manifest. Files are split between the manifest level
// and "Files" directories; paths use placeholders, and every fourth record
// carries a condition.
struct CorpusShape {
    std::size_t fileCount = 100000;
    std::size_t filesPerDirectory = 100;
    std::size_t directoryShare = 2;  // one file in this many sits in a directory
    std::size_t firstIndex = 0;      // shifts the names, so two manifests partly overlap
};

// Writes a current-dialect manifest with the given shape.
void WriteCorpusManifest(const boost::filesystem::path& path, const CorpusShape& shape);

}  // namespace ict_bench
