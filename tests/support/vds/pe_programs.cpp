#include "support/vds/pe_programs.h"

#include <stdexcept>

#include <boost/process/search_path.hpp>

#include "support/file_helpers.h"
#include "support/host_tools.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"

namespace ict_test::vds {
namespace {

namespace fs = boost::filesystem;

// OpenSSL as osslsigncode loads it, with the GOST engine: the development
// chain is signed with GOST keys.
RunOptions WithGostEngine(const TempDir& scratch, std::vector<std::string> arguments) {
    const fs::path config = scratch / "openssl-gost.cnf";
    WriteText(config,
              "openssl_conf = openssl_init\n"
              "[openssl_init]\nengines = engines\n"
              "[engines]\ngost = gost\n"
              "[gost]\nengine_id = gost\ndefault_algorithms = ALL\n");
    RunOptions options;
    options.arguments = std::move(arguments);
    options.environment["OPENSSL_CONF"] = config.string();
    return options;
}

// Throws unless the program ran and, when `mustSucceed`, exited with 0.
RunResult Run(const std::string& program, const RunOptions& options, bool mustSucceed = true) {
    const fs::path path = boost::process::search_path(program);
    if (path.empty()) {
        throw std::runtime_error(program + " is not installed");
    }
    RunResult run = RunProgram(path, options);
    if (mustSucceed && run.exitCode != 0) {
        throw std::runtime_error(program + " failed: " + run.Describe());
    }
    return run;
}

}  // namespace

const std::vector<std::string>& MingwCompilers() {
    static const std::vector<std::string> compilers = {"i686-w64-mingw32-gcc",
                                                       "x86_64-w64-mingw32-gcc"};
    return compilers;
}

std::string MissingPeTools() {
    std::vector<std::string> tools = MingwCompilers();
    tools.push_back("osslsigncode");
    for (const auto& tool : tools) {
        const std::string reason = LinuxToolUnavailable(tool);
        if (!reason.empty()) {
            return reason;
        }
    }
    return {};
}

void BuildProgram(const std::string& compiler, const fs::path& output) {
    TempDir scratch;
    WriteText(scratch / "tiny.c",
              "#include <stdio.h>\n"
              "int main(void) { puts(\"tiny\"); return 7; }\n");
    RunOptions options;
    options.arguments = {"-O2", "-s", "-o", output.string(), (scratch / "tiny.c").string()};
    Run(compiler, options);
}

void OsslsigncodeSign(const fs::path& input, const fs::path& output, const std::string& signer,
                      const std::string& digest, const std::vector<std::string>& extra) {
    TempDir scratch;
    std::vector<std::string> arguments = {"sign",
                                          "-certs",
                                          (PrivateVdsDir() / (signer + ".pem")).string(),
                                          "-key",
                                          (PrivateVdsDir() / (signer + ".key.pem")).string(),
                                          "-h",
                                          digest};
    if (signer != "signer-direct" && signer != "unknown-signer") {
        arguments.insert(arguments.end(), {"-ac", (PrivateVdsDir() / "signing-ca.pem").string()});
    }
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    arguments.insert(arguments.end(), {"-in", input.string(), "-out", output.string()});
    Run("osslsigncode", WithGostEngine(scratch, arguments));
}

RunResult OsslsigncodeVerify(const fs::path& file, const std::string& root) {
    TempDir scratch;
    return Run("osslsigncode",
               WithGostEngine(scratch, {"verify", "-CAfile",
                                        (PrivateVdsDir() / "roots" / (root + ".pem")).string(),
                                        "-in", file.string()}),
               false);
}

}  // namespace ict_test::vds
