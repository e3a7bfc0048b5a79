#include "support/run_program.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <boost/filesystem/operations.hpp>
#ifdef _WIN32
// Boost.Process 1.74 uses DWORD unqualified and spells its NT function
// pointers with an annotation of Microsoft's headers that MinGW-w64's lack.
#include <windows.h>
#ifndef __kernel_entry
#define __kernel_entry
#endif
#endif
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/env.hpp>
#include <boost/process/environment.hpp>
#include <boost/process/exe.hpp>
#include <boost/process/io.hpp>
#include <boost/process/start_dir.hpp>

#ifndef _WIN32
#include <sys/wait.h>
#endif

#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace ict_test {
namespace {

namespace bp = boost::process;
namespace fs = boost::filesystem;

fs::path FromEnvironment(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return fs::path(value != nullptr && *value != '\0' ? value : fallback);
}

}  // namespace

std::string RunResult::Describe() const {
    std::ostringstream text;
    text << "exit code " << exitCode << (timedOut ? " (timed out)" : "");
    if (signal != 0) {
        text << " (signal " << signal << ")";
    }
    text << "\n--- stdout ---\n" << out << "--- stderr ---\n" << err << "--------------";
    return text.str();
}

RunResult RunProgram(const fs::path& program, const RunOptions& options) {
    TempDir streams;
    const fs::path output = streams / "stdout";
    const fs::path error = streams / "stderr";
    bp::environment environment = boost::this_process::environment();
    for (const auto& [name, value] : options.environment) {
        environment[name] = value;
    }
    const fs::path directory =
        options.workingDirectory.empty() ? fs::current_path() : options.workingDirectory;

    RunResult result;
    {
        std::error_code startError;
        bp::child child(bp::exe = program.string(), bp::args = options.arguments,
                        bp::std_in<bp::null, bp::std_out> output.string(),
                        bp::std_err > error.string(), bp::start_dir = directory.string(),
                        bp::env = environment, startError);
        if (startError) {
            throw std::runtime_error("Can't start " + program.string() + ": " +
                                     startError.message());
        }
        // Polled rather than wait_for(): simple and free of signal handling.
        const auto deadline = std::chrono::steady_clock::now() + options.timeout;
        std::error_code waitError;
        while (child.running(waitError)) {
            if (std::chrono::steady_clock::now() >= deadline) {
                result.timedOut = true;
                child.terminate(waitError);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        child.wait(waitError);
        if (!result.timedOut) {
#ifdef _WIN32
            result.exitCode = child.exit_code();
#else
            // A crash must not pass for an exit code: keep the signal apart.
            const int status = child.native_exit_code();
            if (WIFEXITED(status)) {
                result.exitCode = WEXITSTATUS(status);
            } else if (WIFSIGNALED(status)) {
                result.signal = WTERMSIG(status);
            }
#endif
        }
    }
    result.out = ReadText(output);
    result.err = ReadText(error);
    return result;
}

fs::path BinaryDir() {
    return FromEnvironment("ICT_BINARY_DIR", ICT_BINARY_DIR);
}

fs::path SourceDir() {
    return FromEnvironment("ICT_SOURCE_DIR", ICT_SOURCE_DIR);
}

fs::path CheckerPath() {
#ifdef _WIN32
    const char* name = "integrity_checker.exe";
#else
    const char* name = "integrity_checker";
#endif
    return BinaryDir() / "product" / "tool" / "integrity_check_tool" / name;
}

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

RunResult RunTool(const fs::path& program, const std::vector<std::string>& arguments) {
    RunOptions options;
    options.arguments = arguments;
    return RunProgram(program, options);
}

}  // namespace ict_test
