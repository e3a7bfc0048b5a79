#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"

namespace dsvm_e2e {

inline boost::filesystem::path SignerPath() {
    return ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer";
}

inline boost::filesystem::path PrivateKey(const std::string& name) {
    return ict_test::SourceDir() / "trust" / "development" / "private" / "dsvm" / (name + ".pem");
}

inline ict_test::RunResult RunSigner(const std::vector<std::string>& arguments) {
    ict_test::RunOptions options;
    options.arguments = arguments;
    options.timeout = std::chrono::seconds(60);
    return ict_test::RunProgram(SignerPath(), options);
}

// Signs the files with the named development key through the signing program.
inline void SignFiles(const std::string& key, const std::vector<boost::filesystem::path>& files) {
    std::vector<std::string> arguments = {"dsvm", "--key", PrivateKey(key).string()};
    for (const auto& file : files) {
        arguments.push_back(file.string());
    }
    const ict_test::RunResult run = RunSigner(arguments);
    ASSERT_EQ(run.exitCode, 0) << run.Describe();
}

}  // namespace dsvm_e2e
