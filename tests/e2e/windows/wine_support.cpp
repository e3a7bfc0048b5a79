#include "wine_support.h"

#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/process/search_path.hpp>

namespace wine_e2e {
namespace {

namespace fs = boost::filesystem;

ict_test::RunResult Run(const fs::path& program, const std::vector<std::string>& arguments,
                        const fs::path& workingDirectory = {}) {
    ict_test::RunOptions options;
    options.arguments = arguments;
    options.workingDirectory = workingDirectory;
    options.timeout = std::chrono::seconds(120);
    return ict_test::RunProgram(program, options);
}

}  // namespace

fs::path Wine() {
    const char* configured = std::getenv("ICT_WINE");
    if (configured != nullptr && *configured != '\0') {
        return configured;
    }
    return boost::process::search_path("wine");
}

ict_test::RunResult RunChecker(const std::vector<std::string>& arguments,
                               const fs::path& workingDirectory) {
    return Run(ict_test::WindowsCheckerPath(), arguments, workingDirectory);
}

ict_test::RunResult RunLinuxChecker(const std::vector<std::string>& arguments) {
    return Run(ict_test::CheckerPath(), arguments);
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
    options.timeout = std::chrono::seconds(120);
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

std::string Base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string Sha256Base64(const std::string& bytes) {
    std::string digest(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
           reinterpret_cast<unsigned char*>(&digest[0]));
    return Base64(digest);
}

std::string Gost2012Base64(const std::string& bytes) {
    ict_test::TempDir dir;
    const fs::path input = dir / "data";
    ict_test::WriteText(input, bytes);
    const ict_test::RunResult run =
        Run(boost::process::search_path("openssl"),
            {"dgst", "-engine", "gost", "-md_gost12_256", "-binary", input.string()});
    if (run.exitCode != 0 || run.out.size() != 32) {
        throw std::runtime_error("openssl dgst -md_gost12_256 failed: " + run.Describe());
    }
    return Base64(run.out);
}

std::string ProjectVersion() {
    return ICT_PROJECT_VERSION;
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
