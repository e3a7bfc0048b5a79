#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <openssl/sha.h>
#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <boost/filesystem/operations.hpp>
#include <boost/process/search_path.hpp>

#include "support/e2e.h"

namespace {

namespace fs = boost::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

fs::path SignerPath() {
    return ict_test::BinaryDir() / "tools" / "signer" / "integrity_signer";
}

fs::path ManifestToolPath() {
    return ict_test::BinaryDir() / "tools" / "manifest" / "integrity_manifest";
}

std::string Base64Sha256(const std::string& content) {
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(content.data()), content.size(), digest);
    unsigned char text[64] = {};
    EVP_EncodeBlock(text, digest, sizeof(digest));
    return reinterpret_cast<const char*>(text);
}

// The summary block of a checker run: the part that tells what was checked.
std::string Summary(const std::string& out) {
    const auto start = out.find("Summary(");
    return start == std::string::npos ? std::string() : out.substr(start);
}

class CompanionTest : public testing::Test {
protected:
    void SetUp() override {
        WriteProduct("app.exe", "the program");
        WriteProduct("bin/a.dll", "library a");
        WriteProduct("bin/sub/b.dll", "library b");
        WriteProduct("bin/b.pdb", "symbols");
        WriteProduct("doc/readme.txt", "read me");
    }

    fs::path Product() const { return dir_ / "product"; }
    fs::path Manifest() const { return Product() / "integrity_check.xml"; }
    void WriteProduct(const std::string& name, const std::string& text) {
        ict_test::WriteText(Product() / name, text);
    }

    // Without `productRoot`, %ProductRoot% is the folder of the manifest written.
    fs::path WriteConfig(const std::string& body, const std::string& productRoot = "product") {
        const fs::path path = dir_ / "generation.xml";
        const std::string root = productRoot.empty() ? "" : " productRoot=\"" + productRoot + "\"";
        ict_test::WriteText(path, "<ManifestGeneration productName=\"Demo\"" + root + ">\n" + body +
                                      "\n</ManifestGeneration>\n");
        return path;
    }

    ict_test::RunResult Tool(std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.workingDirectory = dir_.Path();
        return ict_test::RunProgram(ManifestToolPath(), options);
    }

    ict_test::RunResult Generate(const fs::path& config, std::vector<std::string> extra = {}) {
        std::vector<std::string> arguments{"generate", "--config", config.string(), "--output",
                                           Manifest().string()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return Tool(arguments);
    }

    ict_test::RunResult Check(std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.workingDirectory = dir_.Path();
        return ict_test::RunProgram(ict_test::CheckerPath(), options);
    }

    ict_test::TempDir dir_;
};

TEST_F(CompanionTest, GeneratedManifestVerifiesAndCatchesOneChangedFile) {
    // The manifest goes into the tree it describes, and is not listed in itself.
    const auto generated = Generate(WriteConfig(R"(
  <Directory path="%ProductRoot%"><Exclude pattern="*.pdb"/></Directory>)",
                                                ""));
    ASSERT_EQ(generated.exitCode, 0) << generated.Describe();
    EXPECT_THAT(generated.out, HasSubstr("Manifest " + Manifest().string() + " written\n"));
    EXPECT_THAT(generated.out, HasSubstr("\tFiles: 0 / 0 / 4\n"));
    EXPECT_THAT(generated.out, EndsWith("SUCCEEDED\n"));
    EXPECT_THAT(generated.err, Not(HasSubstr("\r"))) << "progress drawn on a non-terminal";
    const std::string text = ict_test::ReadText(Manifest());
    EXPECT_THAT(text, HasSubstr("path=\"%ProductRoot%\\bin\\sub\\b.dll\""));
    EXPECT_THAT(text, Not(HasSubstr("b.pdb")));
    EXPECT_THAT(text, Not(HasSubstr("integrity_check.xml")));

    const auto verified = Check({Manifest().string()});
    ASSERT_EQ(verified.exitCode, 0) << verified.Describe();
    EXPECT_THAT(verified.out, HasSubstr("\tFiles: 0 / 0 / 4\n"));

    WriteProduct("bin/a.dll", "library a, patched");
    const auto tampered = Check({Manifest().string()});
    EXPECT_EQ(tampered.exitCode, 1) << tampered.Describe();
    EXPECT_THAT(tampered.err,
                HasSubstr("file " + (Product() / "bin" / "a.dll").string() + " failed"));
    EXPECT_THAT(tampered.err, Not(HasSubstr("b.dll failed")));
    EXPECT_THAT(tampered.err, Not(HasSubstr("app.exe failed")));
    EXPECT_THAT(tampered.out, HasSubstr("\tFiles: 1 / 0 / 3\n"));
    EXPECT_THAT(tampered.err, EndsWith("FAILED\n"));
}

TEST_F(CompanionTest, GroupsPlaceholdersAndFiltersTravelWithTheProduct) {
    const auto config = WriteConfig(R"(
  <Check type="Sha256"/><Check type="Gost2012"/>
  <Environment key="Bin" value="%ProductRoot%\bin"/>
  <Directory path="%Bin%" group="true"><Include pattern="*.dll"/></Directory>
  <Directory path="%ProductRoot%\doc" os="Windows"/>
  <File path="%ProductRoot%\app.exe" defined="full"><Check type="Value"/></File>
  <File path="%ProductRoot%\debug.log"><Check type="NotExists"/></File>
  <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo"><Value name="Version" type="REG_SZ"/></Registry>)");
    const auto generated = Generate(config, {"--edition", "Desktop"});
    ASSERT_EQ(generated.exitCode, 0) << generated.Describe();
    const std::string text = ict_test::ReadText(Manifest());
    EXPECT_THAT(text, HasSubstr("<Files path=\"%Bin%\" edition=\"Desktop\">"));
    EXPECT_THAT(text, HasSubstr("<File path=\"sub\\b.dll\">"));

    // The manifest moves with the tree: %ProductRoot% is wherever it lies.
    fs::rename(Product(), dir_ / "moved");
    const fs::path moved = dir_ / "moved" / "integrity_check.xml";
    const auto plain = Check({moved.string()});
    ASSERT_EQ(plain.exitCode, 0) << plain.Describe();
    // a.dll, b.dll and debug.log checked; readme (Windows only) and app.exe (needs "full") skipped.
    EXPECT_THAT(plain.out, HasSubstr("\tFiles: 0 / 2 / 3\n"));
    EXPECT_THAT(plain.out, HasSubstr("\tRegistries: 0 / 1 / 0\n"));

    const auto full = Check({"--define", "full", moved.string()});
    ASSERT_EQ(full.exitCode, 0) << full.Describe();
    EXPECT_THAT(full.out, HasSubstr("\tFiles: 0 / 1 / 4\n"));

    ict_test::WriteText(dir_ / "moved" / "debug.log", "should not be here");
    const auto withLog = Check({moved.string()});
    EXPECT_EQ(withLog.exitCode, 1);
    EXPECT_THAT(withLog.err, HasSubstr("debug.log failed"));

    // Stamped for another edition or an NT version, nothing applies on this system.
    fs::rename(dir_ / "moved", Product());
    fs::remove(Product() / "debug.log");
    for (const auto& stamp : {std::vector<std::string>{"--edition", "Server"},
                              std::vector<std::string>{"--version", "10.0"}}) {
        const auto restamped = Generate(config, stamp);
        ASSERT_EQ(restamped.exitCode, 0) << restamped.Describe();
        const auto skipped = Check({"--define", "full", Manifest().string()});
        ASSERT_EQ(skipped.exitCode, 0) << skipped.Describe();
        EXPECT_THAT(skipped.out, HasSubstr("\tFiles: 0 / 5 / 0\n")) << stamp[0];
    }
}

TEST_F(CompanionTest, NormalizedOlderDialectVerifiesTheSameWay) {
    const fs::path old = Product() / "old.xml";
    const std::string legacy =
        "<IntegrityManifest generationDatetime=\"2020-01-01T00:00:00\">\n"
        "  <File><Path>%ProductRoot%\\bin\\a.dll</Path><Hash algorithm=\"SHA256\">" +
        Base64Sha256("library a") +
        "</Hash></File>\n"
        "  <File os=\"windows\"><Path>%ProductRoot%\\app.exe</Path><Hash algorithm=\"SHA256\">" +
        Base64Sha256("other") + "</Hash></File>\n</IntegrityManifest>\n";
    ict_test::WriteText(old, legacy);
    fs::copy_file(old, Product() / "current.xml");

    const auto normalized = Tool({"normalize", (Product() / "current.xml").string()});
    ASSERT_EQ(normalized.exitCode, 0) << normalized.Describe();
    EXPECT_THAT(normalized.out, EndsWith("SUCCEEDED\n"));
    const std::string text = ict_test::ReadText(Product() / "current.xml");
    EXPECT_THAT(text, HasSubstr("<Manifest generationDateTime=\"2020-01-01T00:00:00\">"));
    EXPECT_THAT(text, HasSubstr("<File path=\"%ProductRoot%\\app.exe\" os=\"Windows\">"));
    EXPECT_THAT(text, Not(HasSubstr("<Hash")));

    for (const bool tamper : {false, true}) {
        if (tamper) {
            WriteProduct("bin/a.dll", "changed");
        }
        const auto before = Check({old.string()});
        const auto after = Check({(Product() / "current.xml").string()});
        EXPECT_EQ(before.exitCode, tamper ? 1 : 0) << before.Describe();
        EXPECT_EQ(after.exitCode, before.exitCode) << after.Describe();
        EXPECT_NE(Summary(before.out), "");
        EXPECT_EQ(Summary(after.out), Summary(before.out));
    }
}

TEST_F(CompanionTest, FailedNormalizeLeavesTheManifestByteForByte) {
    const std::string broken =
        "<Manifest>\r\n  <File path=\"a\"><Check type=\"Md5\"/></File>\r\n"
        "</Manifest>\r\n";
    ict_test::WriteText(Manifest(), broken);
    const auto bad = Tool({"normalize", Manifest().string()});
    EXPECT_EQ(bad.exitCode, 1) << bad.Describe();
    EXPECT_THAT(bad.err, HasSubstr("Normalization of manifest " + Manifest().string() +
                                   " failed. Reason: Invalid name: Md5"));
    EXPECT_THAT(bad.err, EndsWith("FAILED\n"));
    EXPECT_EQ(ict_test::ReadText(Manifest()), broken);

    // A write that fails half-way (the file-size limit binds root too) must
    // not reach the manifest either.
    std::string large = "<Manifest>\n";
    for (int index = 0; index < 3000; ++index) {
        large += "<File path=\"%ProductRoot%\\bin\\file" + std::to_string(index) +
                 ".dll\"><Check type=\"Exists\"/></File>\n";
    }
    large += "</Manifest>\n";
    ict_test::WriteText(Manifest(), large);
    const fs::path bash = boost::process::search_path("bash");
    ASSERT_FALSE(bash.empty());
    ict_test::RunOptions options;
    options.arguments = {"-c", "trap '' XFSZ; ulimit -f 64; exec \"$0\" normalize \"$1\"",
                         ManifestToolPath().string(), Manifest().string()};
    const auto limited = ict_test::RunProgram(bash, options);
    EXPECT_EQ(limited.exitCode, 1) << limited.Describe();
    EXPECT_THAT(limited.err, HasSubstr("Can't write file " + Manifest().string()));
    EXPECT_EQ(ict_test::ReadText(Manifest()), large);
    EXPECT_EQ(std::distance(fs::directory_iterator(Product()), fs::directory_iterator()), 4)
        << "a temporary file was left behind";
}

TEST_F(CompanionTest, HashPrintsWhatOpensslPrints) {
    const fs::path openssl = boost::process::search_path("openssl");
    ASSERT_FALSE(openssl.empty());
    const fs::path file = Product() / "bin" / "a.dll";
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {"Sha256", {"dgst", "-sha256", "-r", file.string()}},
        {"Gost2012", {"dgst", "-engine", "gost", "-md_gost12_256", "-r", file.string()}},
    };
    for (const auto& [type, reference] : cases) {
        ict_test::RunOptions options;
        options.arguments = reference;
        const auto expected = ict_test::RunProgram(openssl, options);
        ASSERT_EQ(expected.exitCode, 0) << expected.Describe();
        const std::string digest = expected.out.substr(0, expected.out.find(' '));
        ASSERT_GE(digest.size(), 64u);

        const auto hashed = Tool({"hash", "--type", type, file.string()});
        ASSERT_EQ(hashed.exitCode, 0) << hashed.Describe();
        EXPECT_EQ(hashed.out, digest + "\nSUCCEEDED\n") << type;
    }

    const auto value = Tool({"hash", "--type", "Value", (Product() / "app.exe").string()});
    EXPECT_EQ(value.out, "7468652070726f6772616d\nSUCCEEDED\n");  // "the program"

    const auto missing = Tool({"hash", "--type", "Sha256", (Product() / "none").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.err, HasSubstr((Product() / "none").string()));
    EXPECT_THAT(missing.err, EndsWith("FAILED\n"));
}

TEST_F(CompanionTest, GenerationFailuresWriteNothingAndSayWhy) {
    const auto noConfig = Generate(dir_ / "none.xml");
    EXPECT_EQ(noConfig.exitCode, 1) << noConfig.Describe();
    EXPECT_THAT(noConfig.err, HasSubstr("Generation of manifest " + Manifest().string() +
                                        " failed. Reason: Can't read generation configuration"));
    EXPECT_FALSE(fs::exists(Manifest()));

    ict_test::MakeFifo(Product() / "bin" / "pipe.dll");
    const auto withMissing = Generate(WriteConfig(R"(
  <Directory path="%ProductRoot%\bin"/>
  <File path="%ProductRoot%\missing.dll"><Check type="Exists"/></File>)"));
    EXPECT_EQ(withMissing.exitCode, 1) << withMissing.Describe();
    EXPECT_THAT(withMissing.err,
                HasSubstr("Generation of file %ProductRoot%\\missing.dll failed. Reason: "));
    EXPECT_THAT(withMissing.err, HasSubstr("pipe.dll skipped: not a regular file"));
    EXPECT_THAT(withMissing.out, HasSubstr("\tFiles: 1 / 0 / 3\n"));
    EXPECT_FALSE(fs::exists(Manifest()));

    // The configuration is never overwritten, whichever way the output names it.
    const fs::path config = WriteConfig(R"(<Directory path="%ProductRoot%\bin"/>)");
    const std::string kept = ict_test::ReadText(config);
    fs::create_symlink(config, dir_ / "config-link.xml");
    for (const fs::path& output : {config, dir_ / "config-link.xml"}) {
        const auto overwrite =
            Tool({"generate", "--config", config.string(), "--output", output.string()});
        EXPECT_EQ(overwrite.exitCode, 1) << overwrite.Describe();
        EXPECT_THAT(overwrite.err, HasSubstr("it would overwrite the generation configuration"));
        EXPECT_EQ(ict_test::ReadText(config), kept);
    }

    const auto misuse = Tool({"generate", "--config", "c.xml"});
    EXPECT_EQ(misuse.exitCode, 1);
    EXPECT_THAT(misuse.err, HasSubstr("generate needs the option --output"));
    EXPECT_THAT(misuse.err, EndsWith("FAILED\n"));
}

// A tree with every kind of name a product may hold. Names the manifest
// can carry are listed and found again by the checker; the others are
// skipped with a warning that shows them escaped.
TEST_F(CompanionTest, HostileNamesRoundTrip) {
    const std::string longName = std::string(246, 'L') + ".dll";
    for (const std::string& name :
         {std::string("100%.txt"), std::string("new\nline.txt"), std::string("a&b<c>\"d'.txt"),
          std::string("&#x41;.txt"), std::string("tab\there.txt"), longName,
          std::string("%HOME%.txt"), std::string("end\xD6"), std::string("pct%dir/x%y.txt")}) {
        WriteProduct(name, "content of " + name);
    }
    fs::create_symlink("bin/a.dll", Product() / "link.dll");
    fs::create_symlink("loop", Product() / "loop");
    // The manifest is written through a link to the product folder.
    fs::create_directory_symlink(Product(), dir_ / "alias");
    const fs::path output = dir_ / "alias" / "integrity_check.xml";
    const auto config = WriteConfig(R"(<Directory path="%ProductRoot%"/>)");
    const std::vector<std::string> arguments = {"generate", "--config", config.string(), "--output",
                                                output.string()};
    // The second run finds the first one's manifest in the tree.
    for (int run = 0; run < 2; ++run) {
        const auto generated = Tool(arguments);
        ASSERT_EQ(generated.exitCode, 0) << generated.Describe();
        EXPECT_THAT(generated.out, HasSubstr("\tFiles: 0 / 0 / 12\n"));
        for (const char* warning : {"%HOME%.txt skipped: its name holds a % sign",
                                    "pct%dir/x%y.txt skipped: its name holds a % sign",
                                    "end\\xD6 skipped: its name is not valid UTF-8",
                                    "loop skipped: a symbolic link loop"}) {
            EXPECT_THAT(generated.err, HasSubstr(warning));
        }
    }
    const std::string text = ict_test::ReadText(Manifest());
    EXPECT_THAT(text, HasSubstr("&amp;#x41;.txt"));
    EXPECT_THAT(text, HasSubstr("new&#x0A;line.txt"));
    EXPECT_THAT(text, Not(HasSubstr("integrity_check.xml")));

    const auto verified = Check({Manifest().string()});
    ASSERT_EQ(verified.exitCode, 0) << verified.Describe();
    EXPECT_THAT(verified.out, HasSubstr("\tFiles: 0 / 0 / 12\n"));

    for (const std::string& changed : {std::string("new\nline.txt"), longName}) {
        const std::string original = ict_test::ReadText(Product() / changed);
        WriteProduct(changed, "changed");
        const auto tampered = Check({Manifest().string()});
        EXPECT_EQ(tampered.exitCode, 1) << tampered.Describe();
        EXPECT_THAT(tampered.err, HasSubstr("file " + (Product() / changed).string() + " failed"));
        EXPECT_THAT(tampered.out, HasSubstr("\tFiles: 1 / 0 / 11\n"));
        WriteProduct(changed, original);
    }
}

TEST_F(CompanionTest, NormalizeKeepsTheFileItsOwnerAndItsRights) {
    const auto config = WriteConfig(R"(<Directory path="%ProductRoot%\bin"/>)");
    // The longest name a file may have still leaves room for the temporary.
    const fs::path longest = Product() / (std::string(250, 'm') + ".xml");
    const auto generated =
        Tool({"generate", "--config", config.string(), "--output", longest.string()});
    ASSERT_EQ(generated.exitCode, 0) << generated.Describe();
    const auto normalized = Tool({"normalize", longest.string()});
    ASSERT_EQ(normalized.exitCode, 0) << normalized.Describe();
    EXPECT_EQ(std::distance(fs::directory_iterator(Product()), fs::directory_iterator()), 4);

#ifndef _WIN32
    if (ict_test::CanReadEverything()) {
        // Run by root over another user's manifest, normalize leaves it theirs.
        ASSERT_EQ(::chown(longest.c_str(), 65534, 65534), 0);
        ASSERT_EQ(::chmod(longest.c_str(), 0640), 0);
        ASSERT_EQ(Tool({"normalize", longest.string()}).exitCode, 0);
        struct stat info {};
        ASSERT_EQ(::stat(longest.c_str(), &info), 0);
        EXPECT_EQ(info.st_uid, 65534u);
        EXPECT_EQ(info.st_gid, 65534u);
        EXPECT_EQ(info.st_mode & 07777, 0640u);
    }
#endif

    // Neither is a manifest: one never ends, the other is a folder.
    for (const auto& [target, reason] :
         {std::make_pair(std::string("/dev/zero"), std::string("it is not a regular file")),
          std::make_pair(std::string("."), std::string("it is a directory, not a regular file"))}) {
        const auto refused = Tool({"normalize", target});
        EXPECT_EQ(refused.exitCode, 1) << refused.Describe();
        EXPECT_THAT(refused.err, HasSubstr(". Reason: " + reason + "\n")) << target;
        EXPECT_THAT(refused.err, EndsWith("FAILED\n"));
    }
}

TEST_F(CompanionTest, UnreadableFolderIsNamedAndTheRestStillListed) {
    // Root reads any folder: it runs the tool without the rights that allow it.
    fs::path program = ManifestToolPath();
    ict_test::RunOptions options;
    options.arguments = {"generate", "--config",
                         WriteConfig(R"(<Directory path="%ProductRoot%"/>)").string(), "--output",
                         Manifest().string()};
    if (ict_test::CanReadEverything()) {
        program = boost::process::search_path("setpriv");
        if (program.empty()) {
            GTEST_SKIP() << "setpriv is needed to run without the right to override permissions";
        }
        options.arguments.insert(
            options.arguments.begin(),
            {"--inh-caps=-all", "--bounding-set=-all", ManifestToolPath().string()});
    }
    WriteProduct("bin/locked/hidden.dll", "hidden");
    ict_test::SetPermissions(Product() / "bin" / "locked", fs::no_perms);
    const auto run = ict_test::RunProgram(program, options);
    ict_test::SetPermissions(Product() / "bin" / "locked", fs::owner_all);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Generation of directory %ProductRoot%\\bin\\locked failed. "
                                   "Reason: Can't enumerate " +
                                   (Product() / "bin" / "locked").string() +
                                   ". Reason: Permission denied\n"));
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 5\n"));
    EXPECT_FALSE(fs::exists(Manifest()));
}

TEST_F(CompanionTest, SignerSignsWhatALinkLeadsToAndKeepsTheLink) {
    const fs::path privateDir = ict_test::SourceDir() / "trust" / "development" / "private";
    const fs::path vds = privateDir / "vds";
    const std::vector<std::vector<std::string>> signers = {
        {"vds", "--cert", (vds / "signer.pem").string(), "--key", (vds / "signer.key.pem").string(),
         "--chain", (vds / "signing-ca.pem").string()},
        {"dsvm", "--key", (privateDir / "dsvm" / "release-1.pem").string()},
    };
    for (auto arguments : signers) {
        const std::string content = "content for " + arguments[0];
        WriteProduct("bin/real.dll", content);
        fs::remove(Product() / "bin" / "link.dll");
        fs::create_symlink("real.dll", Product() / "bin" / "link.dll");
        arguments.push_back((Product() / "bin" / "link.dll").string());
        ict_test::RunOptions options;
        options.arguments = arguments;
        const auto run = ict_test::RunProgram(SignerPath(), options);
        ASSERT_EQ(run.exitCode, 0) << run.Describe();
        ASSERT_TRUE(fs::is_symlink(Product() / "bin" / "link.dll")) << arguments[0];
        EXPECT_EQ(fs::read_symlink(Product() / "bin" / "link.dll"), "real.dll");
        const std::string isSigned = ict_test::ReadText(Product() / "bin" / "real.dll");
        EXPECT_EQ(isSigned.find(content), 0u) << arguments[0];
        EXPECT_GT(isSigned.size(), content.size()) << arguments[0] << ": the target is unsigned";

        const fs::path manifest = Product() / "signed.xml";
        ict_test::WriteText(manifest,
                            "<Manifest><File path=\"%ProductRoot%\\bin\\link.dll\"/>"
                            "<File path=\"%ProductRoot%\\bin\\real.dll\"/></Manifest>");
        const auto checked = Check({"--signature-only", "--signature-type",
                                    arguments[0] == "vds" ? "vds" : "dsvm2", manifest.string()});
        EXPECT_EQ(checked.exitCode, 0) << checked.Describe();
        EXPECT_THAT(checked.out, HasSubstr("\tFiles: 0 / 0 / 2\n"));
    }
}

}  // namespace
