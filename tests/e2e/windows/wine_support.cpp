#include "wine_support.h"

#include <chrono>
#include <stdexcept>

#include <boost/algorithm/string/replace.hpp>
#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <boost/process/pipe.hpp>
#include <boost/process/search_path.hpp>

namespace wine_e2e {

namespace fs = boost::filesystem;

fs::path WindowsBuildDir() {
    const char* configured = std::getenv("ICT_WINDOWS_BUILD_DIR");
    return configured != nullptr ? fs::path(configured) : fs::path();
}

fs::path WindowsCheckerPath() {
    return WindowsBuildDir() / "product" / "tool" / "integrity_check_tool" /
           "integrity_checker.exe";
}

fs::path Wine() {
    const char* configured = std::getenv("ICT_WINE");
    return configured != nullptr && *configured != '\0' ? fs::path(configured)
                                                        : boost::process::search_path("wine");
}

std::string ToWinePath(const fs::path& hostPath) {
    std::string text = "Z:" + hostPath.generic_string();
    boost::algorithm::replace_all(text, "/", "\\");
    return text;
}

ict_test::RunResult RunUnderWine(const fs::path& program, ict_test::RunOptions options) {
    for (std::string& argument : options.arguments) {
        const auto at = argument.rfind("--", 0) == 0 ? argument.find("=/") : std::string::npos;
        if (argument.rfind('/', 0) == 0) {
            argument = ToWinePath(argument);
        } else if (at != std::string::npos) {
            argument = argument.substr(0, at + 1) + ToWinePath(argument.substr(at + 1));
        }
    }
    options.arguments.insert(options.arguments.begin(), ToWinePath(fs::absolute(program)));
    if (std::getenv("WINEDEBUG") == nullptr) {
        options.environment.emplace("WINEDEBUG", "-all");
    }
    ict_test::RunResult run = ict_test::RunProgram(Wine(), options);
    boost::algorithm::replace_all(run.out, "\r\n", "\n");
    boost::algorithm::replace_all(run.err, "\r\n", "\n");
    return run;
}

namespace {

// Wine keeps HKEY_USERS\S-1-5-18 in memory only: it is gone when the server
// stops, a few seconds after its last program ends, and on a busy machine
// that can fall between the seeding and the checker's read. A Wine command
// interpreter reading its standard input keeps the server, and the seed,
// until this test process ends. It answers once before the seeding, so the
// server is up by then; its streams are its own pipes, so nothing Wine starts
// from it can hold the test's output open.
class ServerKeeper {
public:
    ServerKeeper()
        : child_(Wine(), "cmd.exe", boost::process::std_in < input_,
                 boost::process::std_out > output_,
                 boost::process::std_err > boost::process::null) {
        // The command text holds "%OS%", the answer its value.
        input_ << "echo ict-keeper-%OS%" << std::endl;
        std::string line;
        while (std::getline(output_, line)) {
            if (line.find("ict-keeper-Windows_NT") != std::string::npos) {
                return;
            }
        }
        throw std::runtime_error("wine cmd.exe ended before it answered");
    }
    ServerKeeper(const ServerKeeper&) = delete;
    ServerKeeper& operator=(const ServerKeeper&) = delete;
    ~ServerKeeper() {
        input_.pipe().close();
        if (!child_.wait_for(std::chrono::seconds(10))) {
            child_.terminate();
        }
    }

private:
    boost::process::opstream input_;
    boost::process::ipstream output_;
    boost::process::child child_;
};

}  // namespace

void ImportRegistry(const std::string& regedit4Text) {
    static ServerKeeper keeper;
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "seed.reg", regedit4Text);
    ict_test::RunOptions options;
    options.arguments = {"regedit", "/S", ToWinePath(dir / "seed.reg")};
    options.environment["WINEDEBUG"] = "-all";
    const ict_test::RunResult run = ict_test::RunProgram(Wine(), options);
    if (run.exitCode != 0) {
        throw std::runtime_error("regedit import failed: " + run.Describe());
    }
}

}  // namespace wine_e2e
