#pragma once

// Checker runs over small products, each with the lines it must print. One
// table for both programs: the Linux tests hold the Linux checker to the
// lines, the Wine tests hold the Windows checker to what the Linux one
// prints for the same tree.

#include <functional>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

namespace ict_test::e2e {

struct ProductRun {
    std::string name;
    // Builds the product under `root`; returns the checker's arguments.
    std::function<std::vector<std::string>(const boost::filesystem::path& root)> make;
    int exitCode;
    std::string files;  // the summary's "Files" counts
    // Standard error as PortableLines gives it, without the final "FAILED".
    std::vector<std::string> err;
};

const std::vector<ProductRun>& ProductRuns();

// Lines of `text` with `root` written "<root>" and every "\" as "/", without
// the console's trace lines.
std::vector<std::string> PortableLines(const std::string& text, const std::string& root);

}  // namespace ict_test::e2e
