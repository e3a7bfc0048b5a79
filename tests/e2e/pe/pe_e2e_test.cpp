// Signatures in Windows programs, from the command line: programs built by
// the MinGW compilers, signed by osslsigncode and by our signing program,
// checked by the checker in their certificate table.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/e2e_product.h"
#include "support/vds/pe_programs.h"
#include "support/vds/vds_material.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::HasSubstr;
using testing::Not;

TEST(PeEndToEnd, ProgramsSignedByOsslsigncodeAndByUsAreCheckedInTheirTable) {
    const std::string missing = ict_test::vds::MissingPeTools();
    if (!missing.empty()) {
        GTEST_SKIP() << "Skipped: " << missing;
    }
    ict_test::TempDir dir;
    const fs::path bin = dir / "bin";
    fs::create_directories(bin);
    std::vector<std::string> passing;
    std::vector<std::string> patched;
    std::vector<std::uint32_t> tableOffsets;
    for (const auto& compiler : ict_test::vds::MingwCompilers()) {
        const bool x64 = compiler.find("x86_64") == 0;
        const std::string arch = x64 ? "x64" : "x86";
        const fs::path plain = dir / (arch + ".exe");
        ict_test::vds::BuildProgram(compiler, plain);
        ict_test::vds::OsslsigncodeSign(plain, bin / (arch + "-ossl.exe"), "signer-ec");
        ict_test::vds::OsslsigncodeSign(plain, bin / (arch + "-patched.exe"), "signer-ec");
        auto bytes = ict_test::vds::ReadBytes(bin / (arch + "-patched.exe"));
        bytes.at(0x400) ^= 1;  // the first section's first byte
        ict_test::WriteBytes(bin / (arch + "-patched.exe"), bytes);
        fs::copy_file(plain, bin / (arch + "-ours.exe"));
        e2e::SignVds(bin / (arch + "-ours.exe"), "signer", true);
        passing.insert(passing.end(), {(bin / (arch + "-ossl.exe")).string(),
                                       (bin / (arch + "-ours.exe")).string()});
        patched.push_back((bin / (arch + "-patched.exe")).string());

        // The security directory entry of the program we signed.
        bytes = ict_test::vds::ReadBytes(bin / (arch + "-ours.exe"));
        const std::uint32_t entry =
            (bytes[0x3C] | bytes[0x3D] << 8) + 24 + (x64 ? 112 : 96) + 4 * 8;
        tableOffsets.push_back(bytes[entry] | bytes[entry + 1] << 8 | bytes[entry + 2] << 16 |
                               static_cast<std::uint32_t>(bytes[entry + 3]) << 24);
    }
    std::vector<std::string> all = passing;
    all.insert(all.end(), patched.begin(), patched.end());
    const fs::path trace = dir / "trace.log";
    const auto run =
        e2e::Checker({"--signature-only", "--signature-type", "vds", "--trace", trace.string(),
                      e2e::WriteManifest(dir / "m.xml", all).string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 2 / 0 / 4\n")) << run.Describe();
    for (const auto& path : passing) {
        EXPECT_THAT(run.err, Not(HasSubstr("file " + path + " failed.")));
    }
    for (const auto& path : patched) {
        EXPECT_THAT(run.err, HasSubstr(e2e::VdsFailure(path,
                                                       "Signed|Embedded|RevocationCheckSkipped|"
                                                       "SignatureValueNotMatched")));
    }
    // The content the verifier hands back ends where the certificate table starts.
    const std::string log = ict_test::ReadText(trace);
    for (const auto offset : tableOffsets) {
        EXPECT_THAT(log, HasSubstr("Signature position: " + std::to_string(offset)));
    }
}

}  // namespace
