#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

namespace ict_test {

// How to start a program.
struct RunOptions {
    std::vector<std::string> arguments;              // argv[1..], passed as they are (no shell)
    boost::filesystem::path workingDirectory;        // empty: the test's current directory
    std::map<std::string, std::string> environment;  // variables to set or replace
    std::chrono::seconds timeout{120};               // then the program is killed
};

// What a finished program left behind; the two streams are kept apart.
struct RunResult {
    int exitCode = -1;  // -1 when it was killed or did not exit normally
    int signal = 0;     // the signal that ended it, if one did
    bool timedOut = false;
    std::string out;
    std::string err;

    // Exit code and both streams, for failure messages of assertions.
    std::string Describe() const;
};

// Runs `program` to its end, standard input empty, and captures standard
// output and standard error through temporary files, so that a chatty
// program can never block on a full pipe. Throws std::runtime_error when the
// program cannot be started.
RunResult RunProgram(const boost::filesystem::path& program, const RunOptions& options = {});

// A helper program of the build (signer, CRL packer, ...) on `arguments`,
// with the default options otherwise.
RunResult RunTool(const boost::filesystem::path& program,
                  const std::vector<std::string>& arguments);

// The build tree (CTest's ICT_BINARY_DIR, else the one configured) and the
// source tree (ICT_SOURCE_DIR likewise).
boost::filesystem::path BinaryDir();
boost::filesystem::path SourceDir();

// The checker program of this build.
boost::filesystem::path CheckerPath();

// Splits text into lines without their line ends ("\n" or "\r\n").
std::vector<std::string> SplitLines(const std::string& text);

}  // namespace ict_test
