#pragma once

#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "support/run_program.h"

// Small Windows programs built by the MinGW compilers, and the independent
// Authenticode tool `osslsigncode`, for the tests of signatures in programs.
namespace ict_test::vds {

// The two compilers: i686 (PE32) and x86_64 (PE32+).
const std::vector<std::string>& MingwCompilers();

// Empty when the compilers and osslsigncode are installed; otherwise the
// reason to skip.
std::string MissingPeTools();

// Compiles a tiny program with `compiler` into `output`. Throws on failure.
void BuildProgram(const std::string& compiler, const boost::filesystem::path& output);

// `osslsigncode sign` with a development signer (its issuing CA included)
// and the digest `digest` ("sha256", ...); `extra` adds options ("-nest").
// Throws on failure.
void OsslsigncodeSign(const boost::filesystem::path& input, const boost::filesystem::path& output,
                      const std::string& signer, const std::string& digest = "sha256",
                      const std::vector<std::string>& extra = {});

// `osslsigncode verify` against the development root `root` ("3520p1"),
// with the GOST engine loaded so that the GOST chain can be checked.
RunResult OsslsigncodeVerify(const boost::filesystem::path& file, const std::string& root);

}  // namespace ict_test::vds
