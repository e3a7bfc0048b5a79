#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"

#include "xml_test_helpers.h"

namespace integrity_check_tool::xml {
namespace {

using testing::ReadFailure;
using testing::ReadXml;

constexpr const char* kCurrentManifest = R"(<?xml version="1.0" encoding="UTF-8"?>
<Manifest productName="Demo" productVersion="1.0.0.1" generationDateTime="2024-01-01T00:00:00">
    <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo" os="Windows">
        <Value name="Version" type="REG_SZ" minVersionNt="0x601">
            <Check type="Value" value="AQID"/>
        </Value>
        <Value name="Default"/>
    </Registry>
    <Environment key="Bin" value="%ProductRoot%\bin"/>
    <File path="%Bin%\a.dll" bitness="64" arch="X86_64" edition="Server" linuxKernelVersion="515" defined="Extras">
        <Check type="Sha256" value="AAECAw=="/>
        <Check/>
        <Unknown/>
    </File>
    <Files path="%Bin%\plugins" maxVersionNt="1000">
        <File path="p.dll"><Check type="Exists"/></File>
    </Files>
    <Environment key="Second" value="2" os="Linux"/>
    <Comment>ignored</Comment>
</Manifest>
)";

TEST(XmlReadTest, CurrentDialectFillsEveryRecord) {
    const auto manifest = ReadXml(kCurrentManifest);
    EXPECT_EQ(manifest->productName, "Demo");
    EXPECT_EQ(manifest->productVersion, "1.0.0.1");
    EXPECT_EQ(manifest->generationDateTime, "2024-01-01T00:00:00");

    ASSERT_EQ(manifest->environments.size(), 2u);
    EXPECT_EQ(manifest->environments[0].key, "Bin");
    EXPECT_EQ(manifest->environments[0].value, "%ProductRoot%\\bin");
    EXPECT_EQ(manifest->environments[1].filter.os, Os::Linux);

    ASSERT_EQ(manifest->files.size(), 1u);
    const auto& file = *manifest->files.begin()->second;
    EXPECT_EQ(file.path, "%Bin%\\a.dll");
    EXPECT_EQ(file.filter.bitness, Bitness::Bits64);
    EXPECT_EQ(file.filter.arch, Arch::X86_64);
    EXPECT_EQ(file.filter.osEdition, OsEdition::Server);
    EXPECT_EQ(file.filter.linuxKernelVersion, 515u);
    EXPECT_EQ(file.filter.defined, std::string("Extras"));
    EXPECT_FALSE(file.filter.os);
    ASSERT_EQ(file.checks.size(), 2u);
    EXPECT_EQ(file.checks[0].type, CheckType::Sha256);
    EXPECT_EQ(file.checks[0].value, (Bytes{0, 1, 2, 3}));
    // A Check without attributes is an Exists check with no value.
    EXPECT_EQ(file.checks[1].type, CheckType::Exists);
    EXPECT_TRUE(file.checks[1].value.empty());

    ASSERT_EQ(manifest->directories.size(), 1u);
    const auto& directory = *manifest->directories[0];
    EXPECT_EQ(directory.path, "%Bin%\\plugins");
    EXPECT_EQ(directory.filter.maxVersionNt, 1000u);
    ASSERT_EQ(directory.files.size(), 1u);
    EXPECT_EQ(directory.files[0]->path, "p.dll");

    ASSERT_EQ(manifest->registries.size(), 1u);
    const auto& registry = *manifest->registries[0];
    EXPECT_EQ(registry.path, "HKEY_LOCAL_MACHINE\\SOFTWARE\\Demo");
    EXPECT_EQ(registry.filter.os, Os::Windows);
    ASSERT_EQ(registry.values.size(), 2u);
    EXPECT_EQ(registry.values[0]->name, "Version");
    EXPECT_EQ(registry.values[0]->type, RegistryType::Sz);
    EXPECT_EQ(registry.values[0]->filter.minVersionNt, 0x601u);
    EXPECT_EQ(registry.values[0]->checks[0].value, (Bytes{1, 2, 3}));
    // A Value without type is REG_BINARY.
    EXPECT_EQ(registry.values[1]->type, RegistryType::Binary);
    EXPECT_TRUE(registry.values[1]->checks.empty());

    // No environment is tied before the manifest is loaded from a file.
    EXPECT_FALSE(file.environment);
}

TEST(XmlReadTest, AbsentAttributesReadAsEmptyOrUnset) {
    const auto manifest =
        ReadXml("<Manifest><Environment/><File/><Registry><Value/></Registry></Manifest>");
    EXPECT_EQ(manifest->productName, "");
    EXPECT_EQ(manifest->environments[0].key, "");
    EXPECT_EQ(manifest->environments[0].value, "");
    const auto& file = *manifest->files.begin()->second;
    EXPECT_EQ(file.path, "");
    EXPECT_TRUE(file.checks.empty());
    const Filter& filter = file.filter;
    EXPECT_FALSE(filter.arch || filter.os || filter.osEdition || filter.bitness ||
                 filter.minVersionNt || filter.maxVersionNt || filter.linuxKernelVersion ||
                 !filter.defined.empty());
    EXPECT_EQ(manifest->registries[0]->values[0]->name, "");
}

TEST(XmlReadTest, RootIsFoundBareOrInsideConfig) {
    const char* wrapped = "<Config><Manifest productName=\"Wrapped\"/></Config>";
    EXPECT_EQ(ReadXml(wrapped)->productName, "Wrapped");
    EXPECT_EQ(ReadXml("<Manifest productName=\"Bare\"/>")->productName, "Bare");

    // With both roots at the top only the current one is read.
    const auto both = ReadXml(
        "<IntegrityManifest generationDatetime=\"old\"><File><Path>/old</Path></File>"
        "</IntegrityManifest><Manifest generationDateTime=\"new\"/>");
    EXPECT_EQ(both->generationDateTime, "new");
    EXPECT_TRUE(both->files.empty());

    // The older dialect never had the wrapper.
    EXPECT_EQ(ReadFailure("<Config><IntegrityManifest/></Config>"), "XML node Manifest is absent");
    EXPECT_EQ(ReadFailure("<manifest/>"), "XML node Manifest is absent");
    // A Manifest outside a present Config is not looked for.
    EXPECT_EQ(ReadFailure("<Config/><Manifest/>"), "XML node Manifest is absent");
}

TEST(XmlReadTest, SameFileTwiceIsKeptAsWritten) {
    // Which records merge is the verify walk's decision, once it knows which apply.
    const auto kept = ReadXml(
        "<Manifest><File path=\"/a\" os=\"Windows\"><Check type=\"Sha256\" value=\"AQ==\"/>"
        "</File><File path=\"/a\"><Check type=\"Exists\"/></File></Manifest>");
    ASSERT_EQ(kept->files.size(), 2u);
    const auto& first = *kept->files.begin()->second;
    const auto& second = *std::next(kept->files.begin())->second;
    EXPECT_EQ(first.filter.os, Os::Windows);
    ASSERT_EQ(first.checks.size(), 1u);
    EXPECT_EQ(first.checks[0].type, CheckType::Sha256);
    EXPECT_FALSE(second.filter.os);
    ASSERT_EQ(second.checks.size(), 1u);
    EXPECT_EQ(second.checks[0].type, CheckType::Exists);
}

TEST(XmlReadTest, InvalidValuesAbandonTheManifest) {
    EXPECT_EQ(ReadFailure("<Manifest><File><Check type=\"exists\"/></File></Manifest>"),
              "Invalid name: exists");
    EXPECT_EQ(ReadFailure("<Manifest><File arch=\"x86\"/></Manifest>"), "Invalid name: x86");
    EXPECT_EQ(ReadFailure("<Manifest><Registry><Value type=\"REG_FOO\"/></Registry></Manifest>"),
              "Invalid name: REG_FOO");
    EXPECT_EQ(ReadFailure("<Manifest><Files><File os=\"Solaris\"/></Files></Manifest>"),
              "Invalid name: Solaris");
    EXPECT_EQ(ReadFailure("<Manifest><Environment key=\"A\" minVersionNt=\"abc\"/></Manifest>"),
              "Invalid number: abc");
    EXPECT_EQ(ReadFailure("<Manifest><File bitness=\"\"/></Manifest>"), "Invalid name: ");
    // Where a syntax error is, the loading tests show.
    EXPECT_EQ(ReadFailure("<Manifest"), "unclosed token");
}

TEST(XmlReadTest, ReadStartsAtTheBeginningOfTheStream) {
    auto io = testing::MemoryStream("<Manifest productName=\"Rewound\"/>");
    std::uint64_t position = 0;
    ASSERT_EQ(io->Seek(0, ruk::SeekOrigin::End, &position), ruk::result::Success);
    EXPECT_EQ(File(nullptr).Read(*io)->productName, "Rewound");
    EXPECT_EQ(File(nullptr).Read(*io)->productName, "Rewound");
}

constexpr const char* kOlderManifest = R"(<?xml version="1.0"?>
<IntegrityManifest generationDatetime="2019-05-05" generationDateTime="ignored">
    <File bitness="64" os="windows" edition="server" minVersionNT="0x601" maxVersionNT="1000">
        <Path>C:\Program Files\Demo\a.dll</Path>
        <Hash algorithm="SHA256">AAECAw==</Hash>
        <Hash algorithm="GOST_34.12-2012">BAUG</Hash>
    </File>
    <File bitness="32" os="linux" edition="any">
        <Path>/opt/demo/b.so</Path>
    </File>
    <File edition="none"><Path>/opt/demo/c.so</Path></File>
    <File edition="desktop"><Path>/opt/demo/d.so</Path></File>
</IntegrityManifest>
)";

TEST(XmlReadTest, OlderDialectMapsToTheModel) {
    const auto manifest = ReadXml(kOlderManifest);
    EXPECT_EQ(manifest->generationDateTime, "2019-05-05");
    ASSERT_EQ(manifest->files.size(), 4u);

    const auto& windows = *manifest->files.find("C:\\Program Files\\Demo\\a.dll")->second;
    // The older reader's crossing: "64" is the value 0.
    EXPECT_EQ(windows.filter.bitness, Bitness::Bits32);
    EXPECT_EQ(windows.filter.os, Os::Windows);
    EXPECT_EQ(windows.filter.osEdition, OsEdition::Server);
    EXPECT_EQ(windows.filter.minVersionNt, 0x601u);
    EXPECT_EQ(windows.filter.maxVersionNt, 1000u);
    ASSERT_EQ(windows.checks.size(), 2u);
    EXPECT_EQ(windows.checks[0].type, CheckType::Sha256);
    EXPECT_EQ(windows.checks[0].value, (Bytes{0, 1, 2, 3}));
    EXPECT_EQ(windows.checks[1].type, CheckType::Gost2012);
    EXPECT_EQ(windows.checks[1].value, (Bytes{4, 5, 6}));

    const auto& onLinux = *manifest->files.find("/opt/demo/b.so")->second;
    EXPECT_EQ(onLinux.filter.bitness, Bitness::Bits64);
    EXPECT_EQ(onLinux.filter.os, Os::Linux);
    EXPECT_FALSE(onLinux.filter.osEdition);
    EXPECT_FALSE(manifest->files.find("/opt/demo/c.so")->second->filter.osEdition);
    EXPECT_EQ(manifest->files.find("/opt/demo/d.so")->second->filter.osEdition, OsEdition::Desktop);
}

TEST(XmlReadTest, OlderDialectRejectsValuesOutsideItsLists) {
    const auto failure = [](const std::string& attributes, const std::string& children = "") {
        return ReadFailure("<IntegrityManifest><File " + attributes + "><Path>/a</Path>" +
                           children + "</File></IntegrityManifest>");
    };
    EXPECT_EQ(failure("bitness=\"86\""), "XML attribute bitness has invalid value: 86");
    EXPECT_EQ(failure("os=\"Windows\""), "XML attribute os has invalid value: Windows");
    EXPECT_EQ(failure("os=\"macos\""), "XML attribute os has invalid value: macos");
    EXPECT_EQ(failure("edition=\"Server\""), "XML attribute edition has invalid value: Server");
    EXPECT_EQ(failure("minVersionNT=\"new\""), "Invalid number: new");
    EXPECT_EQ(failure("", "<Hash algorithm=\"MD5\">AA==</Hash>"),
              "XML attribute algorithm has invalid value: MD5");
    EXPECT_EQ(failure("", "<Hash>AA==</Hash>"), "XML attribute algorithm has invalid value: ");
}

}  // namespace
}  // namespace integrity_check_tool::xml
