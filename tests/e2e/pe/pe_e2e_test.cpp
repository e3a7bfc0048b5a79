// Signatures in Windows programs, from the command line: programs built by
// the MinGW compilers, signed by osslsigncode and by our signing program,
// checked by the checker.
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>

#include "support/e2e.h"
#include "support/vds/pe_programs.h"
#include "support/vds/vds_material.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

using ict_test::RunTool;

fs::path Material(const std::string& name) {
    return ict_test::vds::PrivateVdsDir() / name;
}

class PeEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        const std::string missing = ict_test::vds::MissingPeTools();
        if (!missing.empty()) {
            GTEST_SKIP() << "Skipped: " << missing;
        }
        fs::create_directories(Bin());
    }

    fs::path Bin() const { return dir_ / "bin"; }

    // Signs `name` in place with the signing program.
    void SignWithOurs(const std::string& name, const std::string& signer) {
        const auto run = RunTool(
            ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer",
            {"vds", "--cert", Material(signer + ".pem").string(), "--key",
             Material(signer + ".key.pem").string(), "--chain", Material("signing-ca.pem").string(),
             "--with-filename", (Bin() / name).string()});
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
    }

    void Patch(const std::string& name, std::uint64_t offset, std::uint8_t mask) {
        ict_test::vds::Bytes bytes = ict_test::vds::ReadBytes(Bin() / name);
        bytes.at(offset) ^= mask;
        ict_test::WriteBytes(Bin() / name, bytes);
    }

    fs::path WriteManifest(const std::vector<std::string>& names) {
        std::string records;
        for (const auto& name : names) {
            records += "  <File path=\"" + (Bin() / name).string() +
                       "\"><Check type=\"Exists\"/></File>\n";
        }
        const fs::path path = dir_ / "integrity_check.xml";
        ict_test::WriteText(path, "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n" +
                                      records + "</Manifest>\n");
        return path;
    }

    fs::path CrlContainer(bool storage) {
        const fs::path target = dir_ / (storage ? "crl-storage" : "crl-file");
        std::vector<std::string> arguments = {storage ? "--out" : "--file", target.string()};
        for (const char* root : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
            arguments.push_back(Material(std::string("crl/") + root + ".crl.pem").string());
        }
        const auto run =
            RunTool(ict_test::BinaryDir() / "tools" / "crl_container" / "integrity_crl_container",
                    arguments);
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        return target;
    }

    std::string Failure(const std::string& name, const std::string& flags) const {
        const std::string path = (Bin() / name).string();
        return "file " + path + " failed. Reason: Can't verify VDS signature of file " + path +
               ". Flags: " + flags + "\n";
    }

    ict_test::TempDir dir_;
};

TEST_F(PeEndToEnd, ProgramsSignedByOsslsigncodeAndByUsAreCheckedInTheirTable) {
    // Per compiler: x86 (PE32) and x64 (PE32+) variants of every file.
    std::map<std::string, std::uint64_t> tableOffsets;
    for (const auto& compiler : ict_test::vds::MingwCompilers()) {
        const std::string arch = compiler.find("x86_64") == 0 ? "x64" : "x86";
        const fs::path plain = dir_ / (arch + ".exe");
        ict_test::vds::BuildProgram(compiler, plain);
        const auto osslsigned = [&](const std::string& name, const std::string& signer) {
            ict_test::vds::OsslsigncodeSign(plain, Bin() / name, signer);
        };
        osslsigned(arch + "-ossl.exe", "signer-ec");
        osslsigned(arch + "-checksum.exe", "signer-ec");
        osslsigned(arch + "-patched.exe", "signer-ec");
        osslsigned(arch + "-appended.exe", "signer-ec");
        osslsigned(arch + "-revoked.exe", "signer-revoked");
        fs::copy_file(plain, Bin() / (arch + "-ours.exe"));
        ASSERT_NO_FATAL_FAILURE(SignWithOurs(arch + "-ours.exe", "signer"));
        fs::copy_file(Bin() / (arch + "-ours.exe"), Bin() / (arch + "-renamed.exe"));

        const auto bytes = ict_test::vds::ReadBytes(Bin() / (arch + "-ossl.exe"));
        const std::uint32_t lfanew = bytes[0x3C] | bytes[0x3D] << 8;
        Patch(arch + "-checksum.exe", lfanew + 24 + 64, 0x5A);
        Patch(arch + "-patched.exe", 0x400, 0x01);  // the first section's first byte
        ict_test::vds::Bytes appended = ict_test::vds::ReadBytes(Bin() / (arch + "-appended.exe"));
        appended.push_back(0);
        ict_test::WriteBytes(Bin() / (arch + "-appended.exe"), appended);
        // osslsigncode accepts what the signing program wrote.
        const auto verified =
            ict_test::vds::OsslsigncodeVerify(Bin() / (arch + "-ours.exe"), "3520p1");
        EXPECT_EQ(verified.exitCode, 0) << verified.Describe();
        EXPECT_THAT(verified.out, Not(HasSubstr("invalid PE checksum")));

        const auto ours = ict_test::vds::ReadBytes(Bin() / (arch + "-ours.exe"));
        const std::uint32_t entry = lfanew + 24 + (arch == "x64" ? 112 : 96) + 4 * 8;
        tableOffsets[arch + "-ours.exe"] = ours[entry] | ours[entry + 1] << 8 |
                                           ours[entry + 2] << 16 |
                                           static_cast<std::uint32_t>(ours[entry + 3]) << 24;
    }

    const std::string notMatched =
        "Signed|Embedded|RevocationCheckSkipped|SignatureValueNotMatched";
    struct Case {
        const char* name;
        std::string signatureType;
        std::string crl;  // "", "file" or "storage"
        std::vector<std::string> passing;
        std::map<std::string, std::string> failing;  // file -> flags
    };
    const Case cases[] = {
        {"vds",
         "vds",
         "",
         {"ossl", "ours", "renamed", "checksum", "revoked"},
         {{"patched", notMatched}, {"appended", "MalformedContent"}}},
        {"vds-with-filename",
         "vds-with-filename",
         "",
         {"ours"},
         {{"renamed", notMatched}, {"ossl", notMatched}}},
        {"CRL file", "vds", "file", {"ossl", "ours"}, {{"revoked", "Signed|Embedded|Revoked"}}},
        {"CRL storage",
         "vds",
         "storage",
         {"ossl", "ours"},
         {{"revoked", "Signed|Embedded|Revoked"}}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        std::vector<std::string> names;
        for (const char* arch : {"x86", "x64"}) {
            for (const auto& name : test.passing) {
                names.push_back(std::string(arch) + "-" + name + ".exe");
            }
            for (const auto& failing : test.failing) {
                names.push_back(std::string(arch) + "-" + failing.first + ".exe");
            }
        }
        const fs::path trace = dir_ / "trace.log";
        fs::remove(trace);
        std::vector<std::string> arguments = {"--signature-only", "--signature-type",
                                              test.signatureType, "--trace", trace.string()};
        if (!test.crl.empty()) {
            arguments.insert(arguments.end(),
                             {"--crl", CrlContainer(test.crl == "storage").string()});
        }
        arguments.push_back(WriteManifest(names).string());
        const auto run = RunTool(ict_test::CheckerPath(), arguments);
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        const std::size_t failing = 2 * test.failing.size();
        EXPECT_THAT(run.out, HasSubstr("\tFiles: " + std::to_string(failing) + " / 0 / " +
                                       std::to_string(2 * test.passing.size()) + "\n"))
            << run.Describe();
        const std::string log = ict_test::ReadText(trace);
        for (const char* arch : {"x86", "x64"}) {
            for (const auto& name : test.passing) {
                const std::string file = std::string(arch) + "-" + name + ".exe";
                EXPECT_THAT(run.err,
                            Not(HasSubstr("file " + (Bin() / file).string() + " failed.")));
                EXPECT_THAT(
                    log, HasSubstr("VDS signature of file " + (Bin() / file).string() + " is OK"));
            }
            for (const auto& failing : test.failing) {
                EXPECT_THAT(run.err,
                            HasSubstr(Failure(std::string(arch) + "-" + failing.first + ".exe",
                                              failing.second)));
            }
        }
        EXPECT_THAT(log, HasSubstr("fileFormat=PortableExecutable32"));
        EXPECT_THAT(log, HasSubstr("fileFormat=PortableExecutable64"));
        // The content Verify hands back ends where the certificate table starts.
        for (const auto& [file, offset] : tableOffsets) {
            EXPECT_THAT(log, HasSubstr("Signature position: " + std::to_string(offset))) << file;
        }
    }
}

}  // namespace
