#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>
#include <boost/optional/optional_io.hpp>

#include "arguments/checker.h"
#include "common/exception.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

namespace integrity_check_tool {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::StartsWith;

CheckerArguments Parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/opt/product/checker");
    CheckerArguments parsed;
    parsed.Parse(arguments);
    return parsed;
}

// Each test runs in its own folder, which holds two manifests and a folder.
class ArgumentsTest : public testing::Test {
protected:
    ArgumentsTest() {
        ict_test::WriteText(manifest_, "<Manifest/>");
        ict_test::WriteText(other_, "<Manifest/>");
        fs::create_directories(dir_ / "sub");
        fs::current_path(dir_.Path());
    }
    ~ArgumentsTest() override { fs::current_path(previous_); }

    const fs::path previous_ = fs::current_path();
    ict_test::TempDir dir_;
    const fs::path manifest_ = dir_ / "a.xml";
    const fs::path other_ = dir_ / "b.xml";
};

TEST_F(ArgumentsTest, DefaultsWithOnlyAManifest) {
    const auto arguments = Parse({manifest_.string()});
    // Every trusted root is selected unless told otherwise.
    EXPECT_THAT(arguments.GetTrustedRoots(),
                ElementsAre(TrustedRoot::Root3520p1, TrustedRoot::Root3020d1,
                            TrustedRoot::Root4820d1, TrustedRoot::Root4823d1));
    const auto configuration = arguments.BuildConfiguration();
    ASSERT_TRUE(configuration->verify);
    const auto& verify = *configuration->verify;
    EXPECT_THAT(verify.manifestPaths, ElementsAre(manifest_));
    EXPECT_EQ(verify.signatureType, SignatureType::Dsvm2);
    EXPECT_FALSE(verify.isVerbose || verify.signatureOnly || verify.crlPath ||
                 verify.singleFilePath || !verify.definitions.empty());
    EXPECT_FALSE(configuration->displayVersion || configuration->logFile ||
                 configuration->singleFileCheck || configuration->generate ||
                 configuration->normalize);
    EXPECT_EQ(configuration->logLevel, 600u);
    // Neither the default manifest nor the broken revocation path is looked at.
    const auto version = Parse({"--version", "--crl", "/dev/null"}).BuildConfiguration();
    EXPECT_TRUE(version->displayVersion && !version->verify);
}

TEST_F(ArgumentsTest, EveryOptionReachesTheConfiguration) {
    const auto checked = dir_ / "checked.dll";
    ict_test::WriteText(checked, "MZ");
    fs::create_directories(dir_ / "crl");
    const auto configuration =
        Parse({"--verbose", "--trace", (dir_ / "run.log").string(), "--signature-type",
               "vds-with-filename", "--signature-only", "--crl", (dir_ / "crl").string(),
               "--single_file", checked.string(), "--define", "beta", manifest_.string(),
               "--define", "alpha", other_.string(), "--define", "beta"})
            .BuildConfiguration();
    ASSERT_TRUE(configuration->verify);
    const auto& verify = *configuration->verify;
    EXPECT_TRUE(verify.isVerbose && verify.signatureOnly);
    EXPECT_EQ(verify.signatureType, SignatureType::VdsWithFilename);
    EXPECT_THAT(verify.manifestPaths, ElementsAre(manifest_, other_));
    EXPECT_EQ(verify.crlPath, dir_ / "crl");
    EXPECT_EQ(verify.singleFilePath, checked);
    // Repeated definitions are all kept, in order of appearance.
    EXPECT_THAT(verify.definitions, ElementsAre("beta", "alpha", "beta"));
    EXPECT_EQ(configuration->logFile, dir_ / "run.log");
    EXPECT_EQ(configuration->logLevel, 800u);
    EXPECT_FALSE(configuration->displayVersion);
}

TEST_F(ArgumentsTest, ManifestPathsAreCanonicalSortedAndUnique) {
    // Relative, absolute and through "..": two files in the end, each named
    // with the system's own separators.
    const auto resolved = Parse({other_.string(), "a.xml", manifest_.string(),
                                 (dir_ / "sub" / ".." / "a.xml").string()})
                              .GetManifestPaths();
    ASSERT_THAT(resolved, ElementsAre(manifest_, other_));
    EXPECT_EQ(resolved.begin()->string(), manifest_.string());

    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    fs::create_symlink(other_, dir_ / "link.xml");
    EXPECT_THAT(Parse({"./link.xml", "a.xml"}).GetManifestPaths(), ElementsAre(manifest_, other_));
}

TEST_F(ArgumentsTest, PathErrorsNameThePath) {
    const std::string missing = (dir_ / "missing.xml").string();
    const std::string folder = dir_.Path().string();
    const std::string fifo = ict_test::MakeSpecialFile(dir_ / "pipe.xml").string();
    const std::string m = manifest_.string();
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{missing}, "Manifest path \"" + missing + "\" can't be resolved. Reason: "},
        {{folder}, "Manifest path \"" + folder + "\" resolved to non-regular file"},
        {{fifo}, "Manifest path \"" + fifo + "\" resolved to non-regular file"},
        {{"--crl", fifo, m}, "CRL path \"" + fifo + "\" is not a directory or regular file"},
        {{"--single_file", "sub", m}, "Path \"sub\" resolved to non-regular file"},
        {{"--single_file", "gone", m}, "Path \"gone\" resolved to non-regular file"},
    };
    for (const auto& test : cases) {
        EXPECT_THAT(
            ict_test::ThrownText<Exception>([&] { Parse(test.first).BuildConfiguration(); }),
            StartsWith(test.second));
    }
}

// A revocation path may be missing (the verifier names it); a single file
// is made full, but neither ".." nor links are resolved as text ("link/.." is
// the link target's parent): the manifest lookup asks the file system.
TEST_F(ArgumentsTest, RevocationAndSingleFilePathsAreKeptAsGiven) {
    for (const auto& crl : {dir_ / "none", manifest_, dir_.Path()}) {
        EXPECT_EQ(Parse({"--crl", crl.string()}).GetCrlPath(), crl);
    }
    EXPECT_EQ(Parse({"--single_file", "./sub/../a.xml"}).GetSingleFilePath()->string(),
              (dir_ / "." / "sub" / ".." / "a.xml").string());
    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    fs::create_symlink(manifest_, dir_ / "link");
    EXPECT_EQ(Parse({"--single_file", "link"}).GetSingleFilePath(), dir_ / "link");
}

}  // namespace
}  // namespace integrity_check_tool
