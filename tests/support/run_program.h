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
    std::vector<std::string> removedEnvironment;     // variables to unset
    std::string input;                               // written to standard input
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

// Runs `program` to its end and captures standard output and standard error
// through temporary files, so that a chatty program can never block on a
// full pipe. Throws std::runtime_error when the program cannot be started.
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

// Windows programs under Wine. On a non-Windows host a program whose name
// ends in ".exe" is started through Wine (ICT_WINE, else "wine" on the PATH)
// with the WINEPREFIX of the environment; arguments that are absolute paths
// ("/x" or "--option=/x") are mapped to Wine's drive Z:, WINEDEBUG defaults to
// "-all" so that Wine's own notes stay out of the streams, and "\r\n" line
// ends are read back as "\n".
bool RunsUnderWine(const boost::filesystem::path& program);

// "/tmp/a/b.xml" -> "Z:\tmp\a\b.xml": how a Windows program under Wine
// names a file of the host (Wine maps "/" to drive Z:).
std::string ToWinePath(const boost::filesystem::path& hostPath);

// The Windows build tree whose programs the Wine tests run
// (ICT_WINDOWS_BUILD_DIR); empty when none was given.
boost::filesystem::path WindowsBuildDir();

// The checker of the Windows build (integrity_checker.exe in it).
boost::filesystem::path WindowsCheckerPath();

// Splits text into lines without their line ends ("\n" or "\r\n").
std::vector<std::string> SplitLines(const std::string& text);

}  // namespace ict_test
