#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"

#include "common/exception.h"
#include "generate/generation_config.h"
#include "generate/nt_version.h"
#include "support/e2e.h"
#include "support/thrown.h"

namespace integrity_check_tool::generate {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const boost::filesystem::path kOrigin = "/configs/product/generation.xml";

std::string ErrorOf(const std::string& text) {
    return ict_test::ThrownText<Exception>([&] { ParseGenerationConfig(text, kOrigin); });
}

TEST(GenerationConfigTest, ReadsEveryPartOfTheVocabulary) {
    const auto config = ParseGenerationConfig(R"(<?xml version="1.0"?>
<ManifestGeneration productName="Demo" productVersion="1.0.0.1" productRoot="../tree">
  <Check type="Sha256"/>
  <Check type="Gost2012"/>
  <Environment key="Bin" value="%ProductRoot%\bin" os="Windows"/>
  <Directory path="%Bin%" group="true" bitness="64" minVersionNt="0x0A00">
    <Include pattern="*.dll"/>
    <Include pattern="*.exe"/>
    <Exclude pattern="tmp/"/>
    <Check type="Value"/>
  </Directory>
  <Directory path="%ProductRoot%\doc"/>
  <File path="%ProductRoot%\debug.log" defined="strict"><Check type="NotExists"/></File>
  <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo" arch="X86">
    <Value name="Version" type="REG_SZ"/>
    <Value><Check type="Sha256"/></Value>
  </Registry>
</ManifestGeneration>)",
                                              kOrigin);
    EXPECT_EQ(config.productName, "Demo");
    EXPECT_EQ(config.productVersion, "1.0.0.1");
    ASSERT_TRUE(config.productRoot);
    EXPECT_EQ(*config.productRoot, boost::filesystem::path("/configs/tree"));

    ASSERT_EQ(config.environments.size(), 1u);
    EXPECT_EQ(config.environments[0].key, "Bin");
    EXPECT_EQ(config.environments[0].value, "%ProductRoot%\\bin");
    EXPECT_EQ(config.environments[0].filter.os, Os::Windows);

    ASSERT_EQ(config.directories.size(), 2u);
    const auto& bin = config.directories[0];
    EXPECT_EQ(bin.path, "%Bin%");
    EXPECT_TRUE(bin.group);
    EXPECT_EQ(bin.filter.bitness, Bitness::Bits64);
    EXPECT_EQ(bin.filter.minVersionNt, 0x0A00u);
    ASSERT_EQ(bin.includes.size(), 2u);
    EXPECT_EQ(bin.includes[1].GetText(), "*.exe");
    ASSERT_EQ(bin.excludes.size(), 1u);
    EXPECT_TRUE(bin.excludes[0].Matches("tmp/a.dll"));
    EXPECT_THAT(bin.checks, ElementsAre(CheckType::Value));
    // Without checks of its own a folder takes the document's.
    EXPECT_FALSE(config.directories[1].group);
    EXPECT_THAT(config.directories[1].checks, ElementsAre(CheckType::Sha256, CheckType::Gost2012));

    ASSERT_EQ(config.files.size(), 1u);
    EXPECT_EQ(config.files[0].filter.defined, std::string("strict"));
    EXPECT_THAT(config.files[0].checks, ElementsAre(CheckType::NotExists));

    ASSERT_EQ(config.registries.size(), 1u);
    const auto& registry = config.registries[0];
    EXPECT_EQ(registry.filter.arch, Arch::X86);
    ASSERT_EQ(registry.values.size(), 2u);
    EXPECT_EQ(registry.values[0].type, RegistryType::Sz);
    EXPECT_THAT(registry.values[0].checks, ElementsAre(CheckType::Value));
    EXPECT_EQ(registry.values[1].name, "");
    EXPECT_EQ(registry.values[1].type, RegistryType::Binary);
    EXPECT_THAT(registry.values[1].checks, ElementsAre(CheckType::Sha256));
}

TEST(GenerationConfigTest, MinimalDocumentDefaults) {
    const auto config = ParseGenerationConfig(
        "<ManifestGeneration><Directory path='x'/><File path='y'>"
        "<Check type='Exists'/><Check type='Exists'/></File></ManifestGeneration>",
        kOrigin);
    EXPECT_FALSE(config.productRoot);
    EXPECT_TRUE(config.productName.empty());
    EXPECT_THAT(config.directories.at(0).checks, ElementsAre(CheckType::Sha256));
    EXPECT_TRUE(config.directories.at(0).includes.empty());
    // A type listed twice counts once.
    EXPECT_THAT(config.files.at(0).checks, ElementsAre(CheckType::Exists));
}

std::string Document(const std::string& body) {
    return "<ManifestGeneration>" + body + "</ManifestGeneration>";
}

// The configuration is XML from outside too: it goes through the manifests'
// own text check (whose every rule the XML tests hold), and its description
// and row come along.
TEST(GenerationConfigTest, ErrorsNameFileRowAndCause) {
    std::string deep;
    for (int level = 0; level < 50000; ++level) {
        deep += "<a>";
    }
    const std::pair<std::string, std::string> cases[] = {
        {"<Manifest/>", "1: root element ManifestGeneration is absent"},
        {Document("\n<Folder path='x'/>"), "2: unknown element Folder in ManifestGeneration"},
        {Document("\n\n<Directory path='x' grup='true'/>"),
         "3: unknown attribute grup of Directory"},
        {Document("<File/>"), "1: element File needs the attribute path"},
        {Document("<Environment key='A' value=''/>"),
         "1: element Environment needs the attribute value"},
        {Document("<Directory path='x' group='yes'/>"),
         "1: attribute group must be true or false, not yes"},
        {Document("<Check type='sha256'/>"), "1: Invalid name: sha256"},
        {Document("<Directory path='x'><Include pattern='[a'/></Directory>"),
         "1: Invalid pattern [a: '[' without its closing ']'"},
        {Document("<Directory path='%Bin%'><Check type='NotExists'/></Directory>"),
         "1: check type NotExists can't be used for the files of directory %Bin%"},
        {"<ManifestGeneration>\n<File path='x'>", "2: no element found"},
        {"<ManifestGeneration>" + deep, "1: XML nesting deeper than 256 levels"},
        {Document("\n<File path='a&b'/>"), "2: not well-formed (invalid token)"},
    };
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(ErrorOf(text),
                  "Invalid generation configuration /configs/product/generation.xml, row " + error)
            << text.substr(0, 100);
    }
}

// How a file is read, productRoot taken from where it lies, the action tests show.
TEST(GenerationConfigTest, UnreadableFilesAreNamed) {
    ict_test::TempDir dir;
    EXPECT_THAT(ict_test::ThrownText<Exception>([&] { ReadGenerationConfig(dir / "missing.xml"); }),
                HasSubstr("Can't read generation configuration " + (dir / "missing.xml").string() +
                          ". Reason: "));
    EXPECT_THROW(ReadGenerationConfig(dir.Path()), Exception);
}

TEST(NtVersionTest, DottedDecimalAndHexadecimalForms) {
    EXPECT_EQ(ParseNtVersion("10.0"), 1000u);
    EXPECT_EQ(ParseNtVersion("6.1"), 601u);
    EXPECT_EQ(ParseNtVersion("1000"), 1000u);
    EXPECT_EQ(ParseNtVersion("0x3E8"), 1000u);
    for (const char* bad : {"", "ten", "10.", "10.0.1", " 10.0", "-1", "0x"}) {
        EXPECT_THROW(ParseNtVersion(bad), Exception) << bad;
    }
    EXPECT_EQ(ict_test::ThrownText<Exception>([] { ParseNtVersion("win10"); }),
              "Invalid version win10: expected major.minor (10.0) or a number (1000)");
}

}  // namespace
}  // namespace integrity_check_tool::generate
