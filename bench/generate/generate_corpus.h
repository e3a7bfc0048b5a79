#pragma once

#include <cstddef>
#include <cstdint>

#include <boost/filesystem/path.hpp>

namespace generate_bench {

struct Corpus {
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

// A product tree of `files` files in folders of 1,000, sizes spread from
// 512 bytes to 32 KiB by a fixed pseudo-random sequence (mean about 8 KiB),
// so that every run sees the same tree. An existing tree of the same shape
// is reused.
Corpus MakeCorpus(const boost::filesystem::path& root, std::size_t files);

}  // namespace generate_bench
