// The shared product runs on the Linux checker, and what only shows here:
// the signature service's lines in the trace file, and the signing and
// packing programs from the command line: what they write and what they refuse.
#include <iterator>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/directory.hpp>

#include "../shared/product_runs.h"
#include "support/e2e_product.h"
#include "support/vds/vds_material.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::HasSubstr;
using Arguments = std::vector<std::string>;

TEST(ProductRunsOnLinux, EachRunPrintsItsLines) {
    for (const auto& run : e2e::ProductRuns()) {
        SCOPED_TRACE(run.name);
        ict_test::TempDir dir;
        const auto result = e2e::Checker(run.make(dir.Path()));
        EXPECT_EQ(result.exitCode, run.exitCode) << result.Describe();
        std::vector<std::string> err = run.err;
        if (run.exitCode != 0) {
            err.push_back("FAILED");
        }
        EXPECT_EQ(e2e::PortableLines(result.err, dir.Path().string()), err) << result.Describe();
        EXPECT_THAT(result.out, HasSubstr(std::string("\tManifests: ") +
                                          (run.exitCode == 0 ? "0 / 0 / 1" : "1 / 0 / 0") +
                                          "\n\tFiles: " + run.files + "\n"));
        EXPECT_EQ(result.out.find("SUCCEEDED") != std::string::npos, run.exitCode == 0);
    }
}

TEST(VdsEndToEnd, TheServicesLinesReachTheTraceFile) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "c.sys", "content of c.sys");
    ict_test::vds::SignWithOpenSslCommand(dir / "c.sys", "signer");
    const fs::path trace = dir / "trace.log";
    const auto run =
        e2e::Checker({"--signature-only", "--signature-type", "vds", "--trace", trace.string(),
                      e2e::WriteManifest(dir / "m.xml", {(dir / "c.sys").string()}).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    const std::string log = ict_test::ReadText(trace);
    EXPECT_THAT(log, HasSubstr("OnFinalResult: finalResult=0 (vdsOk), trusted"));
    EXPECT_THAT(log, HasSubstr("Signature position: 16"));  // "content of c.sys"
}

TEST(CrlPackerEndToEnd, CompressesWhenAskedAndRefusesWhatIsNotAList) {
    ict_test::TempDir dir;
    // The same lists stored raw and compressed are two different containers.
    EXPECT_NE(ict_test::ReadText(e2e::PackCrls(dir / "raw", "raw") / "vdscrl.rdb"),
              ict_test::ReadText(e2e::PackCrls(dir / "compressed", "compressed") / "vdscrl.rdb"));
    const auto run = ict_test::RunTool(
        ict_test::BinaryDir() / "tools" / "crl_container" / "integrity_crl_container",
        {"--file", (dir / "x.p7b").string(), (e2e::PrivateDir() / "vds" / "signer.pem").string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("is not a CRL"));
    EXPECT_FALSE(fs::exists(dir / "x.p7b"));
}

ict_test::RunResult Signer(Arguments arguments, const std::vector<std::string>& more = {}) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return ict_test::RunTool(e2e::SignerPath(), arguments);
}

std::string Key(const std::string& name) {
    return (e2e::PrivateDir() / "dsvm" / (name + ".pem")).string();
}

std::size_t FileCount(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

// Signing again needs --replace, which swaps the old signature for a new one.
TEST(SignerEndToEnd, SignsOnceAndReplacesOnlyWhenAsked) {
    ict_test::TempDir dir;
    const fs::path file = dir / "a.dll";
    const std::vector<std::pair<std::string, Arguments>> cases = {
        {"DSVM2SIG", {"dsvm", "--key", Key("release-1")}},
        {"VDSSIG", e2e::VdsIdentity("signer")},
    };
    for (const auto& [trailer, identity] : cases) {
        SCOPED_TRACE(trailer);
        ict_test::WriteText(file, "payload");
        auto run = Signer(identity, {file.string()});
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
        EXPECT_EQ(run.out, "Signed " + file.string() + "\n");
        const std::string once = ict_test::ReadText(file);

        run = Signer(identity, {file.string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr(file.string() + " is already signed"));
        EXPECT_THAT(run.err, HasSubstr("--replace"));
        EXPECT_EQ(ict_test::ReadText(file), once);

        run = Signer(identity, {"--replace", file.string()});
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
        const std::string replaced = ict_test::ReadText(file);
        EXPECT_EQ(replaced.find("payload"), 0u);
        EXPECT_NE(replaced, once);
        EXPECT_EQ(replaced.find(trailer), replaced.rfind(trailer)) << "signed twice";
        EXPECT_EQ(FileCount(dir.Path()), 1u) << "temporary files left behind";
    }
}

// Each refusal names the file or option; the other files are still signed.
TEST(SignerEndToEnd, RefusesWhatItCannotDoWellAndChangesNothingElse) {
    ict_test::TempDir dir;
    const auto file = [&](const std::string& name, const std::string& text) {
        ict_test::WriteText(dir / name, text);
        return (dir / name).string();
    };
    const std::string good = file("good.dll", "good"), empty = file("empty.dll", ""),
                      plain = file("plain.dll", "plain"), notUtf8 = file("bad\xFF.dll", "plain");
    auto run =
        Signer({"dsvm", "--key", Key("test-2"), (dir / "missing.dll").string(), empty, good});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Can't open file " + (dir / "missing.dll").string()));
    EXPECT_THAT(run.err, HasSubstr("Can't sign file " + empty +
                                   ": Given pointer to object buffer and its size are 0"));
    EXPECT_THAT(run.out, HasSubstr("Signed " + good));

    const auto vds = e2e::PrivateDir() / "vds";
    const std::vector<std::pair<Arguments, std::string>> refused = {
        {{"dsvm", "--key", good, plain}, "Can't load private key " + good},
        {{"dsvm", "--key", (dir / "none.pem").string(), plain}, (dir / "none.pem").string()},
        {{"vds", "--cert", (vds / "signer.pem").string(), "--key",
          (vds / "signer-512.key.pem").string(), plain},
         "does not belong to the certificate"},
        {{"vds", "--cert", (vds / "signer.pem").string(), plain}, "--cert and --key are required"},
        {{"sign-everything"}, "unknown command 'sign-everything'"},
        {{"dsvm", plain}, "--key is required"},
        {{"dsvm", "--key", "k.pem"}, "no files to sign"},
        {{}, ""},
    };
    for (const auto& [arguments, error] : refused) {
        SCOPED_TRACE(error);
        run = Signer(arguments);
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr(error));
    }
    // A name that is not UTF-8 cannot be bound to a signature.
    run = Signer(e2e::VdsIdentity("signer"), {"--with-filename", notUtf8});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("File name " + notUtf8 + " is not valid UTF-8"));
    EXPECT_EQ(ict_test::ReadText(empty), "");
    EXPECT_EQ(ict_test::ReadText(plain), "plain");
    EXPECT_EQ(ict_test::ReadText(notUtf8), "plain");
    EXPECT_EQ(FileCount(dir.Path()), 4u);

    run = Signer({"--help"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("dsvm"));
}

}  // namespace
