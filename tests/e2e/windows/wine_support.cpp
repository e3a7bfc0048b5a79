#include "wine_support.h"

#include <stdexcept>

#include <boost/algorithm/string/replace.hpp>
#include <boost/process/search_path.hpp>

namespace wine_e2e {

namespace fs = boost::filesystem;

fs::path Wine() {
    const char* configured = std::getenv("ICT_WINE");
    return configured != nullptr && *configured != '\0' ? fs::path(configured)
                                                        : boost::process::search_path("wine");
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
    const fs::path file = dir / "seed.reg";
    ict_test::WriteText(file, regedit4Text);
    ict_test::RunOptions options;
    options.arguments = {"regedit", "/S", ict_test::ToWinePath(file)};
    options.environment["WINEDEBUG"] = "-all";
    const ict_test::RunResult run = ict_test::RunProgram(Wine(), options);
    if (run.exitCode != 0) {
        throw std::runtime_error("regedit import failed: " + run.Describe());
    }
}

std::string TestKeyPath() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->test_suite_name()) + "." + test->name();
    for (char& c : name) {
        if (c == '/') {
            c = '_';
        }
    }
    return "HKEY_LOCAL_MACHINE\\Software\\IctTest\\" + name;
}

std::string Gost2012Base64(const std::string& bytes) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "data", bytes);
    const ict_test::RunResult run = ict_test::e2e::Run(
        boost::process::search_path("openssl"),
        {"dgst", "-engine", "gost", "-md_gost12_256", "-binary", (dir / "data").string()});
    if (run.exitCode != 0 || run.out.size() != 32) {
        throw std::runtime_error("openssl dgst -md_gost12_256 failed: " + run.Describe());
    }
    return ict_test::e2e::Base64(run.out);
}

std::vector<std::string> ObjectLines(const std::string& text, const std::string& root) {
    std::vector<std::string> lines;
    for (std::string line : ict_test::SplitLines(text)) {
        boost::algorithm::replace_all(line, root, "<root>");
        lines.push_back(line);
    }
    return lines;
}

}  // namespace wine_e2e
