#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include "support/e2e.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

std::string Base64(const std::vector<unsigned char>& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&text[0]), bytes.data(),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string Sha256Base64(const std::string& content) {
    std::vector<unsigned char> digest(SHA256_DIGEST_LENGTH);
    SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest.data());
    return Base64(digest);
}

// A "File" record with one Sha256 check of `content`.
std::string Sha256Record(const std::string& path, const std::string& content) {
    return "  <File path=\"" + path + "\"><Check type=\"Sha256\" value=\"" + Sha256Base64(content) +
           "\"/></File>\n";
}

class VerifyEndToEnd : public testing::Test {
protected:
    // A small product: bin/a.dll, bin/b.dll and data/readme.txt.
    void SetUp() override {
        ict_test::WriteText(dir_ / "product" / "bin" / "a.dll", "content of a");
        ict_test::WriteText(dir_ / "product" / "bin" / "b.dll", "content of b");
        ict_test::WriteText(dir_ / "product" / "data" / "readme.txt", "read me");
    }

    fs::path Product() const { return dir_ / "product"; }

    fs::path WriteManifest(const fs::path& path, const std::string& records) {
        ict_test::WriteText(path,
                            "<Manifest productName=\"Demo\" productVersion=\"1.0\">\n"
                            "  <Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n" +
                                records + "</Manifest>\n");
        return path;
    }

    // The manifest of the intact product, beside it.
    fs::path IntactManifest() {
        return WriteManifest(Product() / "integrity_check.xml",
                             Sha256Record("%Bin%\\a.dll", "content of a") +
                                 Sha256Record("%Bin%\\b.dll", "content of b") +
                                 Sha256Record("%ProductRoot%\\data\\readme.txt", "read me"));
    }

    ict_test::RunResult Run(std::vector<std::string> arguments,
                            const fs::path& workingDirectory = {}) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.workingDirectory = workingDirectory;
        options.timeout = std::chrono::seconds(60);
        return ict_test::RunProgram(ict_test::CheckerPath(), options);
    }

    ict_test::TempDir dir_;
};

TEST_F(VerifyEndToEnd, IntactProductSucceeds) {
    const auto run = Run({IntactManifest().string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("Summary( failed / skipped / succeeded ):\n"
                                   "\tManifests: 0 / 0 / 1\n"
                                   "\tFiles: 0 / 0 / 3\n"
                                   "\tDirectories: 0 / 0 / 0\n"
                                   "\tRegistries: 0 / 0 / 0\n"
                                   "\tRegistry values: 0 / 0 / 0\n"));
    EXPECT_THAT(run.out, HasSubstr("SUCCEEDED\n"));
    EXPECT_EQ(run.err, "");
}

TEST_F(VerifyEndToEnd, OneHashMismatchFails) {
    const auto manifest = IntactManifest();
    ict_test::WriteText(Product() / "bin" / "b.dll", "tampered");
    const auto run = Run({manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string b = (Product() / "bin" / "b.dll").string();
    EXPECT_THAT(run.err, HasSubstr("file " + b +
                                   " failed. Reason: Verification mismatch with 'Sha256' checker. "
                                   "Reason: File " +
                                   b + " has unexpected hash "));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 1 / 0 / 2\n"));
    EXPECT_THAT(run.err, HasSubstr("FAILED\n"));
    EXPECT_THAT(run.out, Not(HasSubstr("SUCCEEDED")));
}

TEST_F(VerifyEndToEnd, UnreadableEntriesFailWithTheFileMessage) {
    // A dangling link, a directory and a FIFO where files are expected: none
    // can be read, whoever runs the test, and the FIFO is never opened.
    fs::create_symlink(Product() / "bin" / "removed.dll", Product() / "bin" / "link.dll");
    fs::create_directory(Product() / "bin" / "dir.dll");
    ict_test::MakeFifo(Product() / "bin" / "pipe.dll");
    const auto manifest =
        WriteManifest(Product() / "m.xml", Sha256Record("%Bin%\\link.dll", "x") +
                                               Sha256Record("%Bin%\\dir.dll", "x") +
                                               Sha256Record("%Bin%\\pipe.dll", "x") +
                                               "  <File path=\"%Bin%\\pipe.dll.exists\">"
                                               "<Check type=\"Exists\"/></File>\n");
    ict_test::MakeFifo(Product() / "bin" / "pipe.dll.exists");
    const auto run = Run({manifest.string()});
    EXPECT_FALSE(run.timedOut) << run.Describe();
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    for (const char* name : {"link.dll", "dir.dll", "pipe.dll"}) {
        const std::string path = (Product() / "bin" / name).string();
        EXPECT_THAT(run.err, HasSubstr("file " + path +
                                       " failed. Reason: Can't read or access "
                                       "file " +
                                       path + ". Reason: File " + path + " not found\n"));
    }
    const std::string fifo = (Product() / "bin" / "pipe.dll.exists").string();
    EXPECT_THAT(run.err, HasSubstr("Verification mismatch with 'Exists' checker. Reason: File " +
                                   fifo + " not exists."));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 4 / 0 / 0\n"));
}

TEST_F(VerifyEndToEnd, FileWithoutReadPermission) {
    if (ict_test::CanReadEverything()) {
        GTEST_SKIP() << "this user reads files whatever their permission bits say; the dangling "
                        "link and FIFO cases cover unreadable files";
    }
    const auto manifest = IntactManifest();
    ict_test::SetPermissions(Product() / "bin" / "a.dll", fs::no_perms);
    const auto run = Run({manifest.string()});
    ict_test::SetPermissions(Product() / "bin" / "a.dll", fs::owner_all);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const std::string a = (Product() / "bin" / "a.dll").string();
    EXPECT_THAT(run.err, HasSubstr("Can't read or access file " + a +
                                   ". Reason: Permission "
                                   "denied"));
}

TEST_F(VerifyEndToEnd, RegistryRecordsOnThisSystem) {
    const auto manifest = WriteManifest(
        Product() / "m.xml",
        "  <Registry path=\"HKLM\\SOFTWARE\\Demo\">\n"
        "    <Value name=\"Version\" type=\"REG_SZ\"><Check type=\"Exists\"/></Value>\n"
        "  </Registry>\n"
        "  <Registry path=\"HKLM\\SOFTWARE\\Demo\\Windows\" os=\"Windows\">\n"
        "    <Value name=\"Path\" type=\"REG_SZ\"><Check type=\"Exists\"/></Value>\n"
        "  </Registry>\n");
    const auto run = Run({manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("registry value Version failed. Reason: Can't read or access "
                                   "registry value 'Version' in 'HKLM\\SOFTWARE\\Demo'. Reason: "));
    EXPECT_THAT(run.err, HasSubstr("registry path HKLM\\SOFTWARE\\Demo failed. Reason: "
                                   "Verification of registry path HKLM\\SOFTWARE\\Demo failed"));
    EXPECT_THAT(run.out, HasSubstr("\tRegistries: 1 / 1 / 0\n\tRegistry values: 1 / 0 / 0\n"));
}

TEST_F(VerifyEndToEnd, SeveralManifestsMergeWithOneMergeLine) {
    // The second manifest names a.dll through another placeholder; both merge into one file.
    const auto first = IntactManifest();
    ict_test::WriteText(dir_ / "extra.xml",
                        "<Manifest>\n"
                        "  <Environment key=\"Root\" value=\"%ProductRoot%/product\"/>\n" +
                            Sha256Record("%Root%/bin/a.dll", "content of a") +
                            "  <File path=\"%Root%/missing.dll\"><Check type=\"NotExists\"/></File>"
                            "\n</Manifest>\n");
    const auto trace = dir_ / "trace.log";
    const auto run =
        Run({"--trace", trace.string(), first.string(), (dir_ / "extra.xml").string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    const std::string log = ict_test::ReadText(trace);
    const std::string mergeLine =
        "Merge " + first.string() + " -> " + (dir_ / "extra.xml").string() + " ...";
    EXPECT_THAT(log, HasSubstr(mergeLine));
    EXPECT_EQ(log.find("Merge "), log.rfind("Merge "));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 0 / 4\n"));
}

TEST_F(VerifyEndToEnd, SingleFileByRelativeAbsoluteLinkAndEquivalentPath) {
    const auto manifest = IntactManifest();
    fs::create_symlink(Product() / "bin" / "a.dll", dir_ / "a-link.dll");
    const std::vector<std::pair<std::string, fs::path>> requests = {
        {"product/bin/a.dll", dir_.Path()},
        {(Product() / "bin" / "a.dll").string(), {}},
        {(dir_ / "a-link.dll").string(), {}},
        {(Product() / "data" / ".." / "bin" / "a.dll").string(), {}},
    };
    for (const auto& [path, workingDirectory] : requests) {
        const auto run = Run({"--single_file", path, manifest.string()}, workingDirectory);
        EXPECT_EQ(run.exitCode, 0) << path << "\n" << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n")) << path;
    }

    ict_test::WriteText(dir_ / "stranger.dll", "x");
    const auto run = Run({"--single_file", (dir_ / "stranger.dll").string(), manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("stranger.dll not found in manifest " + manifest.string()));
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n\tFiles: 0 / 0 / 0\n"));
}

TEST_F(VerifyEndToEnd, SignatureOnlyFailsClearlyWithoutUsableVerifier) {
    const auto manifest = IntactManifest();
    // The product's files carry no signature: whether the verifier is built
    // in or not, the run must fail cleanly, counted, not crash.
    const auto run = Run({"--signature-only", manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 1 / 0 / 0\n"));
    EXPECT_THAT(run.err, HasSubstr("FAILED\n"));
    EXPECT_THAT(run.err, Not(HasSubstr("Throw in function")));
    const bool refused =
        run.err.find("Gost2012SignatureVerifier is not available") != std::string::npos;
    if (!refused) {
        EXPECT_THAT(run.out, HasSubstr("\tFiles: 3 / 0 / 0\n"));
    }
}

}  // namespace
