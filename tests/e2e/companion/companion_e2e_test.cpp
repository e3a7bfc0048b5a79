// The companion programs with the checker: a manifest generated or
// normalized by one is verified by the other; the signer signs in place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "support/e2e_product.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

class CompanionTest : public testing::Test {
protected:
    fs::path Product() const { return dir_ / "product"; }
    fs::path Manifest() const { return Product() / "integrity_check.xml"; }
    void WriteProduct(const std::string& name, const std::string& text) {
        ict_test::WriteText(Product() / name, text);
    }
    ict_test::RunResult Tool(std::vector<std::string> arguments) {
        return e2e::Run(e2e::ManifestToolPath(), std::move(arguments), dir_.Path());
    }

    ict_test::TempDir dir_;
};

// A tree with every kind of name a product may hold, generated through a
// link to it. Names a manifest can carry are listed and found again by the
// checker; the others are skipped with a warning that shows them escaped.
// The manifest is never listed in itself, and it moves with the tree.
TEST_F(CompanionTest, GeneratedManifestVerifiesWhereverItLiesAndCatchesAChange) {
    for (const std::string& name :
         {std::string("app.exe"), std::string("bin/a.dll"), std::string("bin/sub/b.dll"),
          std::string("bin/b.pdb"), std::string("100%.txt"), std::string("new\nline.txt"),
          std::string("a&b<c>\"d'.txt"), std::string("&#x41;.txt"), std::string("tab\there.txt"),
          std::string(246, 'L') + ".dll", std::string("%HOME%.txt"), std::string("end\xD6"),
          std::string("pct%dir/x%y.txt")}) {
        WriteProduct(name, "content of " + name);
    }
    fs::create_symlink("bin/a.dll", Product() / "link.dll");
    fs::create_symlink("loop", Product() / "loop");
    fs::create_directory_symlink(Product(), dir_ / "alias");
    ict_test::WriteText(
        dir_ / "generation.xml",
        "<ManifestGeneration productName=\"Demo\" productRoot=\"product\">\n"
        "  <Directory path=\"%ProductRoot%\"><Exclude pattern=\"*.pdb\"/></Directory>\n"
        "</ManifestGeneration>\n");
    // The second run finds the first one's manifest in the tree.
    for (int run = 0; run < 2; ++run) {
        const auto generated =
            Tool({"generate", "--config", (dir_ / "generation.xml").string(), "--output",
                  (dir_ / "alias" / "integrity_check.xml").string()});
        ASSERT_EQ(generated.exitCode, 0) << generated.Describe();
        EXPECT_THAT(generated.out, HasSubstr("\tFiles: 0 / 0 / 10\n"));
        EXPECT_THAT(generated.out, EndsWith("SUCCEEDED\n"));
        EXPECT_THAT(generated.err, Not(HasSubstr("\r"))) << "progress drawn on a non-terminal";
        for (const char* warning : {"%HOME%.txt skipped: its name holds a % sign",
                                    "end\\xD6 skipped: its name is not valid UTF-8",
                                    "loop skipped: a symbolic link loop"}) {
            EXPECT_THAT(generated.err, HasSubstr(warning));
        }
    }
    const std::string text = ict_test::ReadText(Manifest());
    EXPECT_THAT(text, HasSubstr("path=\"%ProductRoot%\\bin\\sub\\b.dll\""));
    EXPECT_THAT(text, HasSubstr("&amp;#x41;.txt"));
    EXPECT_THAT(text, HasSubstr("new&#x0A;line.txt"));
    EXPECT_THAT(text, Not(HasSubstr("b.pdb")));
    EXPECT_THAT(text, Not(HasSubstr("integrity_check.xml")));

    // %ProductRoot% is wherever the manifest lies.
    fs::rename(Product(), dir_ / "moved");
    const fs::path moved = dir_ / "moved" / "integrity_check.xml";
    const auto verified = e2e::Checker({moved.string()});
    ASSERT_EQ(verified.exitCode, 0) << verified.Describe();
    EXPECT_THAT(verified.out, HasSubstr("\tFiles: 0 / 0 / 10\n"));
    ict_test::WriteText(dir_ / "moved" / "bin" / "a.dll", "library a, patched");
    const auto tampered = e2e::Checker({moved.string()});
    EXPECT_EQ(tampered.exitCode, 1) << tampered.Describe();
    EXPECT_THAT(tampered.err,
                HasSubstr("file " + (dir_ / "moved" / "bin" / "a.dll").string() + " failed"));
    EXPECT_THAT(tampered.out, HasSubstr("\tFiles: 2 / 0 / 8\n"));
}

// Each command reaches its action (whose rules are the actions' tests): hash
// prints the digest in hex, normalize rewrites an older manifest.
TEST_F(CompanionTest, HashAndNormalizeRunFromTheCommandLine) {
    WriteProduct("app.exe", "the program");
    auto run = Tool({"hash", "--type", "Sha256", (Product() / "app.exe").string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, e2e::Sha256Hex("the program") + "\nSUCCEEDED\n");
    run = Tool({"hash", "--type", "Sha256", (Product() / "none").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr((Product() / "none").string()));
    EXPECT_THAT(run.err, EndsWith("FAILED\n"));

    ict_test::WriteText(Manifest(), "<Config><Manifest productName=\"Demo\">" +
                                        e2e::FileRecord("%ProductRoot%\\app.exe") +
                                        "</Manifest></Config>");
    run = Tool({"normalize", Manifest().string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    const std::string text = ict_test::ReadText(Manifest());
    EXPECT_THAT(text, Not(HasSubstr("<Config>")));
    EXPECT_THAT(text, HasSubstr("path=\"%ProductRoot%\\app.exe\""));
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
            e2e::SignDsvm("release-1", link);
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
