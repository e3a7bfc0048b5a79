// The companion programs with the checker: a manifest generated or
// normalized by one is verified by the other; the signer signs in place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <boost/process/search_path.hpp>

#include "support/e2e_product.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

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
        return e2e::Run(e2e::ManifestToolPath(), std::move(arguments), dir_.Path());
    }
    ict_test::RunResult Generate(const fs::path& config, std::vector<std::string> extra = {}) {
        std::vector<std::string> arguments{"generate", "--config", config.string(), "--output",
                                           Manifest().string()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        return Tool(arguments);
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

    // The manifest moves with the tree: %ProductRoot% is wherever it lies.
    fs::rename(Product(), dir_ / "moved");
    const fs::path moved = dir_ / "moved" / "integrity_check.xml";
    const auto verified = e2e::Checker({moved.string()});
    ASSERT_EQ(verified.exitCode, 0) << verified.Describe();
    EXPECT_THAT(verified.out, HasSubstr("\tFiles: 0 / 0 / 4\n"));

    ict_test::WriteText(dir_ / "moved" / "bin" / "a.dll", "library a, patched");
    const auto tampered = e2e::Checker({moved.string()});
    EXPECT_EQ(tampered.exitCode, 1) << tampered.Describe();
    EXPECT_THAT(tampered.err,
                HasSubstr("file " + (dir_ / "moved" / "bin" / "a.dll").string() + " failed"));
    EXPECT_THAT(tampered.out, HasSubstr("\tFiles: 1 / 0 / 3\n"));
}

TEST_F(CompanionTest, HashPrintsWhatOpensslPrints) {
    const fs::path file = Product() / "bin" / "a.dll";
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {"Sha256", {"dgst", "-sha256", "-r", file.string()}},
        {"Gost2012", {"dgst", "-engine", "gost", "-md_gost12_256", "-r", file.string()}},
    };
    for (const auto& [type, reference] : cases) {
        const auto expected = ict_test::RunTool(boost::process::search_path("openssl"), reference);
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
    const auto config = WriteConfig(R"(<Directory path="%ProductRoot%"/>)");
    const std::vector<std::string> arguments = {"generate", "--config", config.string(), "--output",
                                                (dir_ / "alias" / "integrity_check.xml").string()};
    // The second run finds the first one's manifest in the tree.
    for (int run = 0; run < 2; ++run) {
        const auto generated = Tool(arguments);
        ASSERT_EQ(generated.exitCode, 0) << generated.Describe();
        EXPECT_THAT(generated.out, HasSubstr("\tFiles: 0 / 0 / 12\n"));
        for (const char* warning : {"%HOME%.txt skipped: its name holds a % sign",
                                    "end\\xD6 skipped: its name is not valid UTF-8",
                                    "loop skipped: a symbolic link loop"}) {
            EXPECT_THAT(generated.err, HasSubstr(warning));
        }
    }
    const std::string text = ict_test::ReadText(Manifest());
    EXPECT_THAT(text, HasSubstr("&amp;#x41;.txt"));
    EXPECT_THAT(text, HasSubstr("new&#x0A;line.txt"));
    EXPECT_THAT(text, Not(HasSubstr("integrity_check.xml")));

    const auto verified = e2e::Checker({Manifest().string()});
    ASSERT_EQ(verified.exitCode, 0) << verified.Describe();
    EXPECT_THAT(verified.out, HasSubstr("\tFiles: 0 / 0 / 12\n"));
    for (const std::string& changed : {std::string("new\nline.txt"), longName}) {
        const std::string original = ict_test::ReadText(Product() / changed);
        WriteProduct(changed, "changed");
        const auto tampered = e2e::Checker({Manifest().string()});
        EXPECT_EQ(tampered.exitCode, 1) << tampered.Describe();
        EXPECT_THAT(tampered.err, HasSubstr("file " + (Product() / changed).string() + " failed"));
        EXPECT_THAT(tampered.out, HasSubstr("\tFiles: 1 / 0 / 11\n"));
        WriteProduct(changed, original);
    }
}

TEST_F(CompanionTest, SignerSignsWhatALinkLeadsToAndKeepsTheLink) {
    const fs::path link = Product() / "bin" / "link.dll";
    for (const std::string type : {"vds", "dsvm2"}) {
        SCOPED_TRACE(type);
        const std::string content = "content for " + type;
        WriteProduct("bin/real.dll", content);
        fs::remove(link);
        fs::create_symlink("real.dll", link);
        if (type == "vds") {
            e2e::SignVds(link, "signer");
        } else {
            e2e::SignDsvm("release-1", {link});
        }
        ASSERT_TRUE(fs::is_symlink(link));
        EXPECT_EQ(fs::read_symlink(link), "real.dll");
        const std::string isSigned = ict_test::ReadText(Product() / "bin" / "real.dll");
        EXPECT_EQ(isSigned.find(content), 0u);
        EXPECT_GT(isSigned.size(), content.size()) << "the target is unsigned";

        const fs::path manifest =
            e2e::WriteManifest(Product() / "signed.xml",
                               {"%ProductRoot%\\bin\\link.dll", "%ProductRoot%\\bin\\real.dll"});
        const auto checked =
            e2e::Checker({"--signature-only", "--signature-type", type, manifest.string()});
        EXPECT_EQ(checked.exitCode, 0) << checked.Describe();
        EXPECT_THAT(checked.out, HasSubstr("\tFiles: 0 / 0 / 2\n"));
    }
}

}  // namespace
