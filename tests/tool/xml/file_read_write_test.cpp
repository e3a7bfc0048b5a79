// The manifest's text form: the values it encodes, reading both dialects and
// writing the current one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/archive/iterators/dataflow_exception.hpp>

#include "support/enum_printing.h"

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "ruk/exception.h"
#include "support/thrown.h"
#include "xml/manifest_reader.h"
#include "xml/values.h"
#include "xml_test_helpers.h"

namespace integrity_check_tool::xml {
namespace {

using ::testing::HasSubstr;
using testing::ReadFailure;
using testing::ReadXml;
using testing::WriteXml;

TEST(ReadNumberTest, DecimalAndHexadecimalOrNamedFailure) {
    // "4294967297" is read as 64 bits and kept as 32.
    const std::pair<const char*, std::uint32_t> numbers[] = {
        {"601", 601u},     {"0x0A", 10u},      {"0X0a00", 0xA00u},
        {"0x0A00", 2560u}, {"10abc", 10u},     {"  \t10", 10u},
        {" 0x10 t", 16u},  {"4294967297", 1u}, {"0x1FFFFFFFF", 0xFFFFFFFFu}};
    for (const auto& [text, number] : numbers) {
        EXPECT_EQ(ReadNumber(text), number) << text;
    }
    for (const char* text : {"abc", "", "   ", "x10"}) {
        EXPECT_EQ(ict_test::ThrownText<Exception>([&] { ReadNumber(text); }),
                  std::string("Invalid number: ") + text);
    }
}

TEST(Base64Test, PaddingFollowsTheByteCountAndIsOptionalOnReading) {
    const std::pair<Bytes, std::string> pairs[] = {{{}, ""},
                                                   {{1, 2, 3}, "AQID"},
                                                   {{1, 2, 3, 4}, "AQIDBA=="},
                                                   {{1, 2, 3, 4, 5}, "AQIDBAU="},
                                                   {{0xFB, 0xFF}, "+/8="}};
    for (const auto& [bytes, text] : pairs) {
        EXPECT_EQ(EncodeBase64(bytes), text);
        EXPECT_EQ(DecodeBase64(text), bytes) << text;
        EXPECT_EQ(DecodeBase64(text.substr(0, text.find('='))), bytes) << text;
    }
    EXPECT_EQ(DecodeBase64("=="), Bytes{});
    Bytes bytes;
    for (int length = 0; length < 70; ++length) {
        EXPECT_EQ(DecodeBase64(EncodeBase64(bytes)), bytes) << length;
        bytes.push_back(static_cast<std::uint8_t>(length * 37 + 11));
    }
    // Even in the last group, which carries no whole byte.
    for (const char* text : {"AQ*D", "AQID!", "A QID", "AQIDB-==", "\xC3\xA9QID"}) {
        EXPECT_THROW(DecodeBase64(text), boost::archive::iterators::dataflow_exception) << text;
    }
}

// Every kind of record and condition, written loosely: defaults left out,
// a hexadecimal number, padding left off, attributes in any order, one path
// twice, elements the reader skips, all inside the wrapper.
constexpr const char* kLoose = R"(<?xml version="1.0" encoding="UTF-8"?>
<Config><Manifest productVersion="1.0" productName="Demo &amp; Co" generationDateTime="2024-01-01">
    <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo" os="Windows">
        <Value name="Version" type="REG_SZ" minVersionNt="0x601">
            <Check type="Value" value="AQID"/>
        </Value>
        <Value name="Default"/>
    </Registry>
    <Environment key="Bin" value="%ProductRoot%\bin"/>
    <Environment/>
    <File bitness="64" path="%Bin%\a.dll" edition="Server" arch="X86_64">
        <Check type="Sha256" value="AAECAw=="/>
        <Check/>
        <Unknown/>
    </File>
    <File path="%Bin%\a.dll" defined="Extras" linuxKernelVersion="515" os="MacOS"/>
    <Files path="%Bin%\plugins" maxVersionNt="1000">
        <File path="p.dll"><Check type="Gost2012" value="CQ"/></File>
    </Files>
    <Environment key="Second" value="2" os="Linux"/>
    <Comment>ignored</Comment>
</Manifest></Config>
)";

// What the writer makes of it: records and attributes in a fixed order,
// defaults named, records of one path kept apart.
constexpr const char* kCanonical = R"(<?xml version="1.0" encoding="UTF-8" ?>
<Manifest productName="Demo &amp; Co" productVersion="1.0" generationDateTime="2024-01-01">
    <Environment key="Bin" value="%ProductRoot%\bin" />
    <Environment />
    <Environment key="Second" value="2" os="Linux" />
    <File path="%Bin%\a.dll" arch="X86_64" edition="Server" bitness="64">
        <Check type="Sha256" value="AAECAw==" />
        <Check type="Exists" />
    </File>
    <File path="%Bin%\a.dll" os="MacOS" linuxKernelVersion="515" defined="Extras" />
    <Files path="%Bin%\plugins" maxVersionNt="1000">
        <File path="p.dll">
            <Check type="Gost2012" value="CQ==" />
        </File>
    </Files>
    <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo" os="Windows">
        <Value name="Version" type="REG_SZ" minVersionNt="1537">
            <Check type="Value" value="AQID" />
        </Value>
        <Value name="Default" type="REG_BINARY" />
    </Registry>
</Manifest>
)";

TEST(XmlReadTest, CurrentDialectReadsEveryRecordAndWritesBackInOneForm) {
    const auto manifest = ReadXml(kLoose);
    // What a text compared with text can't show: what names and values mean.
    const auto& file = *manifest->files.begin()->second;
    EXPECT_EQ(file.filter.bitness, Bitness::Bits64);
    EXPECT_EQ(file.filter.arch, Arch::X86_64);
    EXPECT_EQ(file.checks.at(0).value, (Bytes{0, 1, 2, 3}));
    EXPECT_EQ(manifest->environments.at(2).filter.os, Os::Linux);
    EXPECT_EQ(manifest->registries.at(0)->values.at(0)->filter.minVersionNt, 0x601u);
    // No environment is tied before the manifest is loaded from a file.
    EXPECT_FALSE(file.environment);

    EXPECT_EQ(WriteXml(*manifest), kCanonical);
    EXPECT_EQ(WriteXml(*ReadXml(kCanonical)), kCanonical);
}

TEST(XmlReadTest, OnlyAKnownRootIsRead) {
    // With both roots at the top only the current one is read.
    const auto both = ReadXml(
        "<IntegrityManifest generationDatetime=\"old\"><File><Path>/old</Path></File>"
        "</IntegrityManifest><Manifest generationDateTime=\"new\"/>");
    EXPECT_EQ(both->generationDateTime, "new");
    EXPECT_TRUE(both->files.empty());
    // The older dialect never had the wrapper; a Manifest beside a Config is not looked for.
    for (const char* text :
         {"<Config><IntegrityManifest/></Config>", "<manifest/>", "<Config/><Manifest/>"}) {
        EXPECT_EQ(ReadFailure(text), "XML node Manifest is absent") << text;
    }
}

TEST(XmlReadTest, OlderDialectMapsToTheModel) {
    const auto manifest = ReadXml(R"(<?xml version="1.0"?>
<IntegrityManifest generationDatetime="2019-05-05" generationDateTime="ignored">
    <File bitness="64" os="windows" minVersionNT="0x601" maxVersionNT="1000">
        <Path>/opt/a.dll</Path>
        <Hash algorithm="SHA256">AAECAw==</Hash>
        <Hash algorithm="GOST_34.12-2012">BAUG</Hash>
    </File>
    <File bitness="32" os="linux" edition="any"><Path>/opt/b.so</Path></File>
    <File edition="none"><Path>/opt/c.so</Path></File>
    <File edition="desktop"><Path>/opt/d.so</Path></File>
    <File edition="server"><Path>/opt/e.so</Path></File>
</IntegrityManifest>)");
    // The older writer crossed the bitness names: its "64" is 32 bits.
    EXPECT_EQ(manifest->files.begin()->second->filter.bitness, Bitness::Bits32);
    EXPECT_EQ(WriteXml(*manifest), R"(<?xml version="1.0" encoding="UTF-8" ?>
<Manifest generationDateTime="2019-05-05">
    <File path="/opt/a.dll" os="Windows" bitness="32" minVersionNt="1537" maxVersionNt="1000">
        <Check type="Sha256" value="AAECAw==" />
        <Check type="Gost2012" value="BAUG" />
    </File>
    <File path="/opt/b.so" os="Linux" bitness="64" />
    <File path="/opt/c.so" />
    <File path="/opt/d.so" edition="Desktop" />
    <File path="/opt/e.so" edition="Server" />
</Manifest>
)");
}

std::string Current(const std::string& body) {
    return "<Manifest>\n" + body + "</Manifest>";
}
std::string Older(const std::string& body) {
    return "<IntegrityManifest>\n" + body + "</IntegrityManifest>";
}

// A record that can't be read abandons the manifest and names the row of its
// own element; the base64 decoder's failure keeps its own type and text.
TEST(XmlReadTest, RecordFailuresCarryTheRowOfTheirElement) {
    const std::string base64 = "attempt to decode a value not in base64 char set";
    const std::tuple<std::string, std::string, int> cases[] = {
        {Current("<File path=\"/b\"\n arch=\"x86\"/>"), "Invalid name: x86", 2},
        {Current("<File>\n\n<Check type=\"exists\"/></File>"), "Invalid name: exists", 4},
        {Current("<Registry>\n<Value type=\"REG_FOO\"/></Registry>"), "Invalid name: REG_FOO", 3},
        {Current("<Registry><Value minVersionNt=\"abc\"/></Registry>"), "Invalid number: abc", 2},
        {Current("<Files>\n<File os=\"Solaris\"/></Files>"), "Invalid name: Solaris", 3},
        {Current("\n<Environment key=\"A\" edition=\"Home\"/>"), "Invalid name: Home", 3},
        {Current("<File bitness=\"\"/>"), "Invalid name: ", 2},
        {Current("<Files><File>\n<Check type=\"Sha256\" value=\"**\"/></File></Files>"), base64, 3},
        {Older("<File bitness=\"86\"><Path>/a</Path></File>"),
         "XML attribute bitness has invalid value: 86", 2},
        {Older("<File/>\n<File os=\"Windows\"/>"), "XML attribute os has invalid value: Windows",
         3},
        {Older("<File edition=\"Server\"/>"), "XML attribute edition has invalid value: Server", 2},
        {Older("<File minVersionNT=\"new\"/>"), "Invalid number: new", 2},
        {Older("<File><Path>/b</Path>\n<Hash algorithm=\"MD5\">AA==</Hash></File>"),
         "XML attribute algorithm has invalid value: MD5", 3},
        {Older("<File>\n<Hash>AA==</Hash></File>"),
         "XML attribute algorithm has invalid value: ", 3},
        {Older("<File><Path>/b</Path>\n<Hash algorithm=\"SHA256\">@</Hash></File>"), base64, 3},
    };
    for (const auto& [text, message, row] : cases) {
        SCOPED_TRACE(text);
        try {
            ReadXml(text);
            ADD_FAILURE() << "accepted";
        } catch (const boost::exception& error) {
            const auto* standard = dynamic_cast<const std::exception*>(&error);
            ASSERT_NE(standard, nullptr);
            EXPECT_EQ(standard->what(), message);
            const int* at = boost::get_error_info<XmlRowInfo>(error);
            ASSERT_NE(at, nullptr);
            EXPECT_EQ(*at, row);
            EXPECT_EQ(boost::get_error_info<XmlColumnInfo>(error), nullptr);
        }
    }
}

// Texts that look like markup or references, and characters XML only takes
// as references, must come back as they were in every text of every record,
// however often a manifest is normalised.
TEST(XmlWriteTest, EveryTextComesBackAsItWas) {
    for (const std::string text :
         {"a&#x41;b", "&#x26;", "x&#x", "&#x\"<'>;", "&#65;&amp;&lt;", "tab\there", "line\nend\r\n",
          "&&#x&&#x;", "del \x7F", "  two  blanks  ", "\xC3\xA9\xE2\x82\xAC", "%A%&%B%"}) {
        SCOPED_TRACE(text);
        Manifest manifest;
        manifest.productName = text;
        manifest.environments.push_back({{}, nullptr, text, text});
        manifest.environments.back().filter.defined = text;
        auto file = std::make_unique<FileInfo>();
        file->path = PathFromUtf8(text);
        AddFile(manifest.files, std::move(file));
        manifest.registries.push_back(std::make_unique<RegistryInfo>());
        manifest.registries[0]->path = text;
        manifest.registries[0]->values.push_back(std::make_unique<RegistryValueInfo>());
        manifest.registries[0]->values[0]->name = text;

        const std::string written = WriteXml(manifest);
        const auto reread = ReadXml(written);
        EXPECT_EQ(PrintManifest(*reread), PrintManifest(manifest));
        EXPECT_EQ(WriteXml(*reread), written);
    }
}

TEST(XmlWriteTest, WriteReplacesTheWholeStream) {
    Manifest manifest;
    manifest.productName = "P";
    auto io = testing::MemoryStream(std::string(100000, 'x'));
    File(nullptr).Write(manifest, *io);
    EXPECT_EQ(testing::TextOf(*io), WriteXml(manifest));
}

// A stream that fails the chosen operation or writes less than asked.
class FaultyStream : public ruk::MemoryIO {
public:
    enum class Fault { SetSize, Write, ShortWrite, Flush };
    explicit FaultyStream(Fault fault) : fault_(fault) {}

    ruk::result_t SetSize(std::uint64_t size) override {
        return fault_ == Fault::SetSize ? ruk::result::AccessDenied : MemoryIO::SetSize(size);
    }
    ruk::result_t Write(const void* buffer, std::size_t size, std::size_t* written) override {
        if (fault_ == Fault::Write) {
            return ruk::result::IoError;
        }
        return MemoryIO::Write(buffer, fault_ == Fault::ShortWrite ? size / 2 : size, written);
    }
    ruk::result_t Flush() override {
        return fault_ == Fault::Flush ? ruk::result::IoError : ruk::result::Success;
    }

private:
    Fault fault_;
};

TEST(XmlWriteTest, StreamFailuresAreReported) {
    Manifest manifest;
    manifest.productName = "P";
    for (const auto fault : {FaultyStream::Fault::SetSize, FaultyStream::Fault::Write,
                             FaultyStream::Fault::ShortWrite, FaultyStream::Fault::Flush}) {
        auto io = ruk::MakeIntrusive<FaultyStream>(fault);
        try {
            File(nullptr).Write(manifest, *io);
            ADD_FAILURE() << "fault " << static_cast<int>(fault) << " went unnoticed";
        } catch (const Exception& error) {
            EXPECT_THAT(error.GetMessage(), HasSubstr("Can't write manifest."));
            if (fault != FaultyStream::Fault::ShortWrite) {
                EXPECT_NE(boost::get_error_info<ruk::ResultCodeInfo>(error), nullptr);
            } else {
                EXPECT_THAT(error.GetMessage(), HasSubstr("bytes were written"));
            }
        }
    }
}

}  // namespace
}  // namespace integrity_check_tool::xml
