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
#include <boost/process/search_path.hpp>
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

// An argument naming a host path, alone or as an option's value.
std::string MapArgumentForWine(const std::string& argument) {
    if (!argument.empty() && argument[0] == '/') {
        return ToWinePath(argument);
    }
    const auto equals = argument.find('=');
    if (argument.rfind("--", 0) == 0 && equals != std::string::npos &&
        equals + 1 < argument.size() && argument[equals + 1] == '/') {
        return argument.substr(0, equals + 1) + ToWinePath(argument.substr(equals + 1));
    }
    return argument;
}

std::string WithoutCarriageReturns(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            continue;
        }
        result.push_back(text[i]);
    }
    return result;
}

fs::path WineProgram() {
    const char* configured = std::getenv("ICT_WINE");
    if (configured != nullptr && *configured != '\0') {
        return configured;
    }
    const fs::path found = bp::search_path("wine");
    if (found.empty()) {
        throw std::runtime_error("Can't run Windows programs: no wine on the PATH (set ICT_WINE)");
    }
    return found;
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
    const fs::path input = streams / "stdin";
    const fs::path output = streams / "stdout";
    const fs::path error = streams / "stderr";
    WriteText(input, options.input);

    bp::environment environment = boost::this_process::environment();
    for (const auto& name : options.removedEnvironment) {
        environment.erase(name);
    }
    for (const auto& [name, value] : options.environment) {
        environment[name] = value;
    }
    const fs::path directory =
        options.workingDirectory.empty() ? fs::current_path() : options.workingDirectory;

    const bool underWine = RunsUnderWine(program);
    fs::path executable = program;
    std::vector<std::string> arguments = options.arguments;
    if (underWine) {
        executable = WineProgram();
        arguments.clear();
        arguments.push_back(ToWinePath(fs::absolute(program)));
        for (const auto& argument : options.arguments) {
            arguments.push_back(MapArgumentForWine(argument));
        }
        if (environment.count("WINEDEBUG") == 0) {
            environment["WINEDEBUG"] = "-all";
        }
    }

    RunResult result;
    {
        std::error_code startError;
        bp::child child(bp::exe = executable.string(), bp::args = arguments,
                        bp::std_in<input.string(), bp::std_out> output.string(),
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
    if (underWine) {
        result.out = WithoutCarriageReturns(result.out);
        result.err = WithoutCarriageReturns(result.err);
    }
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

bool RunsUnderWine(const fs::path& program) {
#ifdef _WIN32
    (void)program;
    return false;
#else
    return program.extension() == ".exe";
#endif
}

std::string ToWinePath(const fs::path& hostPath) {
    std::string text = "Z:" + hostPath.generic_string();
    for (char& c : text) {
        if (c == '/') {
            c = '\\';
        }
    }
    return text;
}

fs::path WindowsBuildDir() {
    return FromEnvironment("ICT_WINDOWS_BUILD_DIR", "");
}

fs::path WindowsCheckerPath() {
    return WindowsBuildDir() / "product" / "tool" / "integrity_check_tool" /
           "integrity_checker.exe";
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
