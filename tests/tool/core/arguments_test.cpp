#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/optional/optional_io.hpp>

#include "arguments/checker.h"
#include "common/exception.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

namespace {

namespace fs = boost::filesystem;
using integrity_check_tool::CheckerArguments;
using integrity_check_tool::Exception;
using integrity_check_tool::SignatureType;
using integrity_check_tool::TrustedRoot;
using testing::ElementsAre;
using testing::StartsWith;

CheckerArguments Parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "/opt/product/checker");
    CheckerArguments parsed;
    parsed.Parse(arguments);
    return parsed;
}

template <typename Call>
std::string MessageOf(Call call) {
    return ict_test::ThrownText<Exception>(call);
}

// Runs a test step in another current directory.
class ScopedCurrentPath {
public:
    explicit ScopedCurrentPath(const fs::path& path) : previous_(fs::current_path()) {
        fs::current_path(path);
    }
    ~ScopedCurrentPath() { fs::current_path(previous_); }

private:
    fs::path previous_;
};

class ArgumentsTest : public testing::Test {
protected:
    ArgumentsTest() {
        ict_test::WriteText(manifest_, "<Manifest/>");
        ict_test::WriteText(other_, "<Manifest/>");
    }

    ict_test::TempDir dir_;
    const fs::path manifest_ = dir_ / "a.xml";
    const fs::path other_ = dir_ / "b.xml";
};

TEST_F(ArgumentsTest, DefaultsWithOnlyAManifest) {
    const auto arguments = Parse({manifest_.string()});
    EXPECT_FALSE(arguments.IsHelpRequested());
    EXPECT_EQ(arguments.GetSignatureType(), SignatureType::Dsvm2);
    EXPECT_FALSE(arguments.IsVerbose());
    EXPECT_FALSE(arguments.GetCrlPath());
    EXPECT_TRUE(arguments.GetDefinitions().empty());
    EXPECT_TRUE(arguments.IsVerifyRequested());
    EXPECT_FALSE(arguments.IsDisplayVersionRequested());
    EXPECT_FALSE(arguments.GetTracePath());
    EXPECT_FALSE(arguments.GetSingleFilePath());
    EXPECT_FALSE(arguments.IsSignatureOnly());
    EXPECT_EQ(arguments.GetToolName(), "integrity_checker");
    EXPECT_EQ(arguments.GetSignatureCheckingMode(),
              integrity_check_tool::SignatureCheckingMode::Release);
    EXPECT_THAT(arguments.GetTrustedRoots(),
                ElementsAre(TrustedRoot::Root3520p1, TrustedRoot::Root3020d1,
                            TrustedRoot::Root4820d1, TrustedRoot::Root4823d1));

    const auto configuration = arguments.BuildConfiguration();
    ASSERT_TRUE(configuration->verify);
    EXPECT_THAT(configuration->verify->manifestPaths, ElementsAre(manifest_));
    EXPECT_FALSE(configuration->verify->isVerbose || configuration->verify->signatureOnly);
    EXPECT_FALSE(configuration->verify->crlPath || configuration->verify->singleFilePath);
    EXPECT_FALSE(configuration->displayVersion);
    EXPECT_FALSE(configuration->logFile);
    EXPECT_EQ(configuration->logLevel, 600u);
    EXPECT_FALSE(configuration->singleFileCheck);
    EXPECT_FALSE(configuration->generate);
    EXPECT_FALSE(configuration->normalize);
}

TEST_F(ArgumentsTest, EveryOptionReachesTheConfiguration) {
    const auto checked = dir_ / "checked.dll";
    ict_test::WriteText(checked, "MZ");
    fs::create_directories(dir_ / "crl");
    const auto arguments =
        Parse({"--verbose", "--trace", (dir_ / "run.log").string(), "--signature-type",
               "vds-with-filename", "--signature-only", "--crl", (dir_ / "crl").string(),
               "--single_file", checked.string(), "--define", "beta", manifest_.string(),
               "--define", "alpha", other_.string(), "--define", "beta"});
    EXPECT_TRUE(arguments.IsVerbose());
    EXPECT_EQ(arguments.GetSignatureType(), SignatureType::VdsWithFilename);
    EXPECT_TRUE(arguments.IsSignatureOnly());
    // Repeated definitions are all kept, in order of appearance.
    EXPECT_THAT(arguments.GetDefinitions(), ElementsAre("beta", "alpha", "beta"));

    const auto configuration = arguments.BuildConfiguration();
    ASSERT_TRUE(configuration->verify);
    const auto& verify = *configuration->verify;
    EXPECT_TRUE(verify.isVerbose);
    EXPECT_TRUE(verify.signatureOnly);
    EXPECT_EQ(verify.signatureType, SignatureType::VdsWithFilename);
    EXPECT_THAT(verify.manifestPaths, ElementsAre(manifest_, other_));
    EXPECT_EQ(verify.crlPath, dir_ / "crl");
    EXPECT_EQ(verify.singleFilePath, checked);
    EXPECT_THAT(verify.definitions, ElementsAre("beta", "alpha", "beta"));
    EXPECT_EQ(configuration->logFile, dir_ / "run.log");
    EXPECT_EQ(configuration->logLevel, 800u);
    EXPECT_FALSE(configuration->displayVersion);
}

TEST_F(ArgumentsTest, VersionLeavesOutVerificationAndItsPaths) {
    // Neither the default manifest nor the broken revocation path is looked at.
    const auto configuration = Parse({"--version", "--crl", "/dev/null"}).BuildConfiguration();
    EXPECT_FALSE(configuration->verify);
    EXPECT_TRUE(configuration->displayVersion);
    EXPECT_EQ(configuration->logLevel, 600u);
}

TEST_F(ArgumentsTest, SignatureTypeNamesAreExactAndCaseSensitive) {
    EXPECT_EQ(Parse({"--signature-type", "dsvm2"}).GetSignatureType(), SignatureType::Dsvm2);
    EXPECT_EQ(Parse({"--signature-type", "vds"}).GetSignatureType(), SignatureType::Vds);
    EXPECT_EQ(Parse({"--signature-type=vds-with-filename"}).GetSignatureType(),
              SignatureType::VdsWithFilename);
    EXPECT_EQ(MessageOf([] { Parse({"--signature-type", "bogus"}); }), "Invalid name: bogus");
    EXPECT_EQ(MessageOf([] { Parse({"--signature-type", "VDS"}); }), "Invalid name: VDS");
}

TEST_F(ArgumentsTest, ManifestPathsAreCanonicalSortedAndUnique) {
    fs::create_directories(dir_ / "sub");
    const ScopedCurrentPath inDir(dir_.Path());
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

TEST_F(ArgumentsTest, ManifestPathErrorsNameThePath) {
    const auto missing = dir_ / "missing.xml";
    EXPECT_THAT(
        MessageOf([&] { Parse({missing.string()}).GetManifestPaths(); }),
        StartsWith("Manifest path \"" + missing.string() + "\" can't be resolved. Reason: "));
    EXPECT_EQ(MessageOf([&] { Parse({dir_.Path().string()}).BuildConfiguration(); }),
              "Manifest path \"" + dir_.Path().string() + "\" resolved to non-regular file");
    const auto fifo = ict_test::MakeSpecialFile(dir_ / "pipe.xml");
    EXPECT_EQ(MessageOf([&] { Parse({fifo.string()}).GetManifestPaths(); }),
              "Manifest path \"" + fifo.string() + "\" resolved to non-regular file");
}

TEST_F(ArgumentsTest, DefaultManifestLiesBesideTheProgram) {
    // The test program stands in for the checker; no manifest lies beside it,
    // while the current directory has one that must not be taken.
    const auto expected = boost::dll::program_location().parent_path() / "integrity_check.xml";
    ASSERT_FALSE(fs::exists(expected));
    ict_test::WriteText(dir_ / "integrity_check.xml", "<Manifest/>");
    const ScopedCurrentPath inDir(dir_.Path());
    EXPECT_THAT(MessageOf([] { Parse({}).GetManifestPaths(); }),
                StartsWith("Manifest path \"" + expected.string() + "\" can't be resolved"));
}

TEST_F(ArgumentsTest, RevocationPathMayBeMissingButNotASpecialFile) {
    EXPECT_EQ(Parse({"--crl", (dir_ / "none").string()}).GetCrlPath(), dir_ / "none");
    EXPECT_EQ(Parse({"--crl", manifest_.string()}).GetCrlPath(), manifest_);
    EXPECT_EQ(Parse({"--crl", dir_.Path().string()}).GetCrlPath(), dir_.Path());
    const auto fifo = ict_test::MakeSpecialFile(dir_ / "crl.fifo");
    EXPECT_EQ(MessageOf([&] {
                  Parse({"--crl", fifo.string()}).GetCrlPath();
              }),
              "CRL path \"" + fifo.string() + "\" is not a directory or regular file");
}

TEST_F(ArgumentsTest, SingleFileIsMadeFullButMustBeARegularFile) {
    fs::create_directories(dir_ / "sub");
    const ScopedCurrentPath inDir(dir_.Path());
    // Neither ".." nor links are resolved as text ("link/.." is the link
    // target's parent): the manifest lookup asks the file system.
    EXPECT_EQ(Parse({"--single_file", "./sub/../a.xml"}).GetSingleFilePath()->string(),
              (dir_ / "." / "sub" / ".." / "a.xml").string());
    EXPECT_EQ(MessageOf([&] {
                  Parse({"--single_file", "sub"}).GetSingleFilePath();
              }),
              "Path \"sub\" resolved to non-regular file");
    EXPECT_EQ(MessageOf([&] {
                  Parse({"--single_file", "gone"}).GetSingleFilePath();
              }),
              "Path \"gone\" resolved to non-regular file");
    const auto device = ict_test::MakeSpecialFile(dir_ / "device");
    EXPECT_EQ(MessageOf([&] {
                  Parse({"--single_file", device.string()}).GetSingleFilePath();
              }),
              "Path \"" + device.string() + "\" resolved to non-regular file");

    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    fs::create_symlink(manifest_, dir_ / "link");
    EXPECT_EQ(Parse({"--single_file", "link"}).GetSingleFilePath(), dir_ / "link");
}

}  // namespace
