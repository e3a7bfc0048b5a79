#pragma once

// A product as the end-to-end tests build it: manifest text written as a
// user writes it (support/manifest_text.h), files signed by the build's own
// signing program, revocation lists packed by its packer.

#include <stdexcept>
#include <string>
#include <vector>

#include "support/e2e.h"
#include "support/manifest_text.h"

namespace ict_test::e2e {

using ict_test::Base64;
using ict_test::Check;
using ict_test::FileRecord;
using ict_test::ManifestText;
using ict_test::Sha256Base64;
using ict_test::Sha256Check;
using ict_test::Sha256Hex;
using ict_test::ValueCheck;

// A "File" record with one "Exists" check.
inline std::string FileRecord(const std::string& path) {
    return ict_test::FileRecord(path, Check("Exists"));
}

// Writes a manifest of one "Exists" record per path and returns where.
inline boost::filesystem::path WriteManifest(const boost::filesystem::path& manifest,
                                             const std::vector<std::string>& paths) {
    std::string records;
    for (const auto& path : paths) {
        records += FileRecord(path);
    }
    WriteText(manifest, ManifestText(records));
    return manifest;
}

inline boost::filesystem::path SignerPath() {
    return BinaryDir() / "tools" / "signer" / "integrity_signer";
}
inline boost::filesystem::path ManifestToolPath() {
    return BinaryDir() / "tools" / "manifest" / "integrity_manifest";
}
inline boost::filesystem::path PrivateDir() {
    return SourceDir() / "trust" / "development" / "private";
}

// Runs `program` (in `workingDirectory` when given) and returns what it left.
inline RunResult Run(const boost::filesystem::path& program, std::vector<std::string> arguments,
                     const boost::filesystem::path& workingDirectory = {}) {
    RunOptions options;
    options.arguments = std::move(arguments);
    options.workingDirectory = workingDirectory;
    return RunProgram(program, options);
}
inline RunResult Checker(std::vector<std::string> arguments,
                         const boost::filesystem::path& workingDirectory = {}) {
    return Run(CheckerPath(), std::move(arguments), workingDirectory);
}

// Runs a helper program that must succeed; throws with its output otherwise.
inline void MustRun(const boost::filesystem::path& program,
                    const std::vector<std::string>& arguments) {
    const RunResult run = RunTool(program, arguments);
    if (run.exitCode != 0) {
        throw std::runtime_error(program.filename().string() + " failed: " + run.Describe());
    }
}

// The signing program's VDS options for a development signer (private/vds).
inline std::vector<std::string> VdsIdentity(const std::string& signer) {
    const auto vds = PrivateDir() / "vds";
    std::vector<std::string> arguments = {"vds", "--cert", (vds / (signer + ".pem")).string(),
                                          "--key", (vds / (signer + ".key.pem")).string()};
    // These two are issued by a root directly.
    if (signer != "signer-direct" && signer != "unknown-signer") {
        arguments.insert(arguments.end(), {"--chain", (vds / "signing-ca.pem").string()});
    }
    return arguments;
}

inline void SignVds(const boost::filesystem::path& file, const std::string& signer,
                    bool withFileName = false) {
    auto arguments = VdsIdentity(signer);
    if (withFileName) {
        arguments.push_back("--with-filename");
    }
    arguments.push_back(file.string());
    MustRun(SignerPath(), arguments);
}

// Signs with a development DSVM key ("release-1", "test-2", "foreign", ...).
inline void SignDsvm(const std::string& key, const boost::filesystem::path& file) {
    MustRun(SignerPath(),
            {"dsvm", "--key", (PrivateDir() / "dsvm" / (key + ".pem")).string(), file.string()});
}

// Packs the CRLs of the four development roots into `target`: a container
// file ("file"), or a storage directory holding it raw ("raw") or
// compressed ("compressed").
inline boost::filesystem::path PackCrls(const boost::filesystem::path& target,
                                        const std::string& mode) {
    std::vector<std::string> arguments = {mode == "file" ? "--file" : "--out", target.string()};
    if (mode == "compressed") {
        arguments.push_back("--compress");
    }
    for (const char* root : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
        arguments.push_back(
            (PrivateDir() / "vds" / "crl" / (std::string(root) + ".crl.pem")).string());
    }
    MustRun(BinaryDir() / "tools" / "crl_container" / "integrity_crl_container", arguments);
    return target;
}

}  // namespace ict_test::e2e
