#include "wine_support.h"

#include <stdexcept>

#include <boost/algorithm/string/replace.hpp>
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

void ImportRegistry(const std::string& regedit4Text) {
    // Wine keeps HKEY_USERS\S-1-5-18 in memory only, gone when its server
    // stops a few seconds after the last program: a persistent server keeps
    // the seed until the checker reads it (one already running says so and
    // stays).
    ict_test::RunOptions persistent;
    persistent.arguments = {"-p"};
    const fs::path server = boost::process::search_path("wineserver");
    if (!server.empty()) {
        ict_test::RunProgram(server, persistent);
    }
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
