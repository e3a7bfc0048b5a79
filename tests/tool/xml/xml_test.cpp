// The manifest's text form, read in both dialects and written in one. A
// hostile text must fail with the parser's description and where, or read
// exactly as written: never crash, hang or change what it says.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>
#include <boost/archive/iterators/dataflow_exception.hpp>
#include <boost/exception/get_error_info.hpp>

#include "support/enum_printing.h"

#include "common/exception.h"
#include "manifest/environment.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "ruk/exception.h"
#include "ruk/io.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "xml/file.h"
#include "xml/manifest_reader.h"
#include "xml/text_check.h"
#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

ruk::intrusive_ptr<ruk::MemoryIO> MemoryStream(const std::string& text = "") {
    return ruk::MakeIntrusive<ruk::MemoryIO>(std::vector<std::uint8_t>(text.begin(), text.end()));
}

std::string TextOf(const ruk::MemoryIO& io) {
    return std::string(io.Data().begin(), io.Data().end());
}

ManifestPtr ReadXml(const std::string& text) {
    return File(nullptr).Read(*MemoryStream(text));
}

std::string WriteXml(const Manifest& manifest) {
    auto io = MemoryStream();
    File(nullptr).Write(manifest, *io);
    return TextOf(*io);
}

// What reading `text` threw and where it says that happened: "message @
// row:column", "message @ row" or "message @ "; an error of another type than
// ours is marked "other: ".
std::string Refusal(const std::string& text) {
    try {
        ReadXml(text);
    } catch (const boost::exception& error) {
        const int* row = boost::get_error_info<XmlRowInfo>(error);
        const int* column = boost::get_error_info<XmlColumnInfo>(error);
        return (dynamic_cast<const Exception*>(&error) ? "" : "other: ") +
               std::string(dynamic_cast<const std::exception&>(error).what()) + " @ " +
               (row ? std::to_string(*row) : "") + (column ? ":" + std::to_string(*column) : "");
    }
    return "accepted";
}

TEST(ReadNumberTest, DecimalAndHexadecimalOrNamedFailure) {
    // "4294967297" is read as 64 bits and kept as 32.
    const std::pair<const char*, std::uint32_t> numbers[] = {
        {"601", 601u},   {"0x0A", 10u},    {"0X0a00", 0xA00u}, {"10abc", 10u},
        {"  \t10", 10u}, {" 0x10 t", 16u}, {"4294967297", 1u}, {"0x1FFFFFFFF", 0xFFFFFFFFu}};
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
        EXPECT_EQ(Refusal(text), "XML node Manifest is absent @ ") << text;
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
    const std::string base64 = "other: attempt to decode a value not in base64 char set";
    const std::tuple<std::string, std::string, int> cases[] = {
        {Current("<File path=\"/b\"\n arch=\"x86\"/>"), "Invalid name: x86", 2},
        {Current("<File>\n\n<Check type=\"exists\"/></File>"), "Invalid name: exists", 4},
        {Current("<Registry>\n<Value type=\"REG_FOO\"/></Registry>"), "Invalid name: REG_FOO", 3},
        {Current("<Registry><Value minVersionNt=\"abc\"/></Registry>"), "Invalid number: abc", 2},
        {Current("<Files>\n<File os=\"Solaris\"/></Files>"), "Invalid name: Solaris", 3},
        {Current("\n<Environment key=\"A\" edition=\"Home\"/>"), "Invalid name: Home", 3},
        {Current("<Files><File>\n<Check type=\"Sha256\" value=\"**\"/></File></Files>"), base64, 3},
        {Older("<File bitness=\"86\"><Path>/a</Path></File>"),
         "XML attribute bitness has invalid value: 86", 2},
        {Older("<File/>\n<File os=\"Windows\"/>"), "XML attribute os has invalid value: Windows",
         3},
        {Older("<File edition=\"Server\"/>"), "XML attribute edition has invalid value: Server", 2},
        {Older("<File minVersionNT=\"new\"/>"), "Invalid number: new", 2},
        {Older("<File><Path>/b</Path>\n<Hash algorithm=\"MD5\">AA==</Hash></File>"),
         "XML attribute algorithm has invalid value: MD5", 3},
        {Older("<File><Path>/b</Path>\n<Hash algorithm=\"SHA256\">@</Hash></File>"), base64, 3},
    };
    for (const auto& [text, message, row] : cases) {
        EXPECT_EQ(Refusal(text), message + " @ " + std::to_string(row)) << text;
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

TEST(XmlWriteTest, WriteReplacesTheWholeStreamOrReportsItsFailure) {
    Manifest manifest;
    manifest.productName = "P";
    auto longer = MemoryStream(std::string(100000, 'x'));
    File(nullptr).Write(manifest, *longer);
    EXPECT_EQ(TextOf(*longer), WriteXml(manifest));
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

// The failure line names neither the file nor where; the line made for it
// does, in one of three forms. A file that can't be opened says so itself.
TEST(XmlLoadTest, ContentFailuresCarryALineNamingTheFileAndWhere) {
    ict_test::TempDir directory;
    const auto path = directory / "manifest.xml";
    const std::pair<std::string, std::string> cases[] = {
        {"<Manifest>\n  <File path=\"a\">\n</Manifest>\n", " at row 3, column 3: mismatched tag"},
        {"<Manifest>\n\n  <File arch=\"x86\"/>\n</Manifest>\n", " at row 3: Invalid name: x86"},
        {"<Manifest><File>\n<Check value=\"A*\"/></File></Manifest>",
         " at row 2: attempt to decode a value not in base64 char set"},
        {"<Config/>", ": XML node Manifest is absent"},
        {"<Manifest><Environment key=\"A\" value=\"\"/></Manifest>",
         ": Value of environment variable A is empty"},
    };
    // The line made for what loading `manifest` threw.
    const auto context = [](const boost::filesystem::path& manifest) {
        try {
            File(nullptr).Load(manifest);
        } catch (...) {
            return CurrentExceptionContext();
        }
        return std::string("loaded");
    };
    for (const auto& [text, line] : cases) {
        ict_test::WriteText(path, text);
        EXPECT_EQ(context(path), "Manifest file " + path.string() + " is invalid" + line) << text;
    }
    const auto missing = directory / "missing.xml";
    EXPECT_EQ(context(missing), "");
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] { File(nullptr).Load(missing); }),
              "Can't open manifest file " + missing.string() +
                  ". Reason: " + ict_test::os_error::Text(ict_test::os_error::kNoEntry));
}

// Every record is tied to the manifest's environment. Entries are stored as
// written and only those that apply on this system: a later entry for
// another system does not replace the one that applies, and an entry nothing
// uses cannot fail the manifest.
TEST(XmlLoadTest, LoadTiesEveryRecordToTheEntriesThatApplyAndTracesIt) {
    ict_test::TempDir directory;
    const auto path = directory / "manifest.xml";
    ict_test::WriteText(path,
                        "<Manifest productName=\"Demo\">\n"
                        "  <Environment key=\"Dir\" value=\"bin\"/>\n"
                        "  <Environment key=\"Dir\" value=\"windows\" os=\"Windows\"/>\n"
                        "  <Environment key=\"Dir\" value=\"\" arch=\"E2K32\"/>\n"
                        "  <Environment key=\"Loop\" value=\"%Loop%/x\"/>\n"
                        "  <File path=\"%ProductRoot%/%Dir%/a\"/>\n"
                        "  <Files path=\"%Dir%\"><File path=\"b.so\"/></Files>\n"
                        "  <Registry path=\"HKEY_CURRENT_USER\\%Dir%\"/>\n"
                        "</Manifest>\n");
    platform::SystemFacts facts;
    facts.platform = platform::kPlatformLinux;
    facts.archCode = platform::kArchX86_64;
    const FilterEvaluator filter(nullptr, SystemInfo({}, facts));
    ict_test::TraceCapture capture;

    auto manifest = File(capture.Tracer()).Load(path, &filter);

    const auto& environment = manifest->environments[0].environment;
    ASSERT_TRUE(environment);
    EXPECT_EQ(environment->GetValue("ManifestPath"), path.string());
    EXPECT_EQ(environment->GetValue("Dir"), "bin");
    EXPECT_EQ(environment->GetValue("Loop"), "%Loop%/x");
    EXPECT_EQ(manifest->directories[0]->environment, environment);
    EXPECT_EQ(manifest->directories[0]->files[0]->environment, environment);
    EXPECT_EQ(manifest->registries[0]->environment, environment);
    const auto lines = capture.Lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_THAT(lines[2], HasSubstr("Environment variable Dir is set to bin"));
    EXPECT_THAT(lines[4], HasSubstr("Manifest file " + path.string() + " loaded:\n{"));
    EXPECT_THAT(lines[4], HasSubstr("\"productName\": \"Demo\""));
    ExpandManifest(*manifest);
    EXPECT_EQ(manifest->files.begin()->first, directory.Path() / "bin" / "a");

    // Without a filter every entry is set, in order, so the empty one fails.
    EXPECT_THROW(File(nullptr).Load(path), Exception);
}

std::string Repeated(const std::string& text, std::size_t count) {
    std::string repeated;
    for (std::size_t index = 0; index < count; ++index) {
        repeated += text;
    }
    return repeated;
}

std::string Nested(std::size_t levels) {
    return Repeated("<a>", levels) + Repeated("</a>", levels);
}

// One "File" with `count` attributes, its path among them.
std::string ManyAttributes(std::size_t count) {
    std::string text = "<Manifest><File path=\"/x\"";
    for (std::size_t index = 1; index < count; ++index) {
        text += " a" + std::to_string(index) + "=\"v\"";
    }
    return text + "/></Manifest>";
}

std::string FileWithPath(const std::string& path) {
    return "<Manifest>\n<File path=\"" + path + "\"><Check/></File>\n</Manifest>";
}

TEST(HostileXmlTest, RejectedTextsFailWithTheParsersTextRowAndColumn) {
    const std::string nesting = "XML nesting deeper than 256 levels";
    const std::string partial = "partial character";  // the text ends inside one
    const std::string token = "not well-formed (invalid token)";
    const std::string reference = "reference to invalid character number";
    const std::string attributes = "XML element File has more than 64 attributes";
    const std::string top = "XML text with more than 64 top-level elements";
    const std::string utf16 = "XML text is not in UTF-8";
    const std::tuple<std::string, std::string, int, int> cases[] = {
        {Nested(257), nesting, 1, 1 + 256 * 3},
        {"<Manifest>aaaa\xC7", partial, 1, 15},
        {"<Manifest productName=\"\xE2\x82", partial, 1, 1},
        {"<Manifest><Fi\xF0\x9F", partial, 1, 11},
        {FileWithPath("a\xD6&#x41;b"), token, 2, 14},  // a byte that starts no character
        {ManyAttributes(65), attributes, 1, 11},
        {FileWithPath("/etc/hostname&#0;.missing"), reference, 2, 26},
        {FileWithPath("a&#xD800;"), reference, 2, 14},  // a surrogate
        {FileWithPath("/etc/hostname&.missing"), token, 2, 27},
        {FileWithPath("a&nbsp;"), "undefined entity", 2, 1},
        // Entity definitions could multiply a text without end.
        {"<!DOCTYPE Manifest [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>\n"
         "<Manifest productName=\"&b;\"/>",
         "XML document type declarations are not accepted", 1, 20},
        // The document builder would end this instruction early.
        {"<Manifest><?pi x> <File path=\"/etc/hostname\"/> ?></Manifest>",
         "XML processing instruction holding '>' is not accepted", 1, 11},
        {"<Manifest/>junk", "junk after document element", 1, 12},
        {"<Manifest/>\n<IntegrityManifest>", "no element found", 2, 20},
        {"", "no element found", 1, 1},
        {Repeated("<a/>", 65), top, 1, 1 + 64 * 4},
        {std::string("\xFF\xFE<\0M\0a\0n\0i\0f\0e\0s\0t\0/\0>\0", 24), utf16, 1, 1},
        {std::string("\xFE\xFF\0<\0M\0/\0>", 10), utf16, 1, 1},
        {std::string("<Manifest>\0</Manifest>", 22), token, 1, 11},
    };
    for (const auto& [text, message, row, column] : cases) {
        EXPECT_EQ(Refusal(text),
                  message + " @ " + std::to_string(row) + ":" + std::to_string(column))
            << text.substr(0, 80);
    }
}

TEST(HostileXmlTest, BoundsAreExactAndTextSizeIsBounded) {
    EXPECT_NO_THROW(CheckXmlText(Nested(256).data(), Nested(256).size()));
    const std::string topElements = Repeated("<a/>\n", 63) + "<Manifest productName=\"last\"/>";
    EXPECT_EQ(ReadXml(topElements)->productName, "last");
    EXPECT_EQ(ReadXml(ManyAttributes(64))->files.size(), 1u);
    EXPECT_NO_THROW(CheckXmlTextSize(kMaxTextSize));
    EXPECT_EQ(ict_test::ThrownText<Exception>([] { CheckXmlTextSize(kMaxTextSize + 1); }),
              "XML text larger than 268435456 bytes");
}

// What well-formed XML says, the model says: references, sections and
// comments read as XML defines them, and only the roots the reader knows
// are read.
TEST(HostileXmlTest, WellFormedTextsReadAsWritten) {
    // A File "p" after what the reader must see through: no other record is read.
    const auto before = [](const std::string& text) {
        return "<Manifest>" + text + "<File path=\"p\"/></Manifest>";
    };
    const auto older = [](const std::string& path) {
        return "<IntegrityManifest><File><Path>" + path + "</Path></File></IntegrityManifest>";
    };
    const std::pair<std::string, std::string> cases[] = {
        {FileWithPath("&#x41;&#66;&#x10FFFF;&amp;&lt;&gt;&quot;&apos;"),
         "AB\xF4\x8F\xBF\xBF&<>\"'"},
        {FileWithPath("a&amp;#x41;b"), "a&#x41;b"},
        {FileWithPath("  a\tb  "), "  a\tb  "},
        {before("<?pi x?>"), "p"},
        {"\xEF\xBB\xBF" + before(""), "p"},
        {before("<!-- <File path=\"q\"/> -->"), "p"},
        {before("<x><![CDATA[<File path=\"q\"/>]]></x>"), "p"},
        {before("<x><File path=\"q\"/></x>"), "p"},
        // The older dialect's path is taken as written, from all its pieces.
        {older("  a  b.txt "), "  a  b.txt "},
        {older("a<!-- c -->b<![CDATA[ <c> ]]>&#x20;d "), "ab <c>  d "},
        {"<Other/>\n" + older("p"), "p"},
    };
    // The builder's white space switch is global: the reader turns it off
    // for itself, and a reader elsewhere in the process keeps its setting.
    TiXmlBase::SetCondenseWhiteSpace(true);
    for (const auto& [text, path] : cases) {
        SCOPED_TRACE(text);
        const auto manifest = ReadXml(text);
        ASSERT_EQ(manifest->files.size(), 1u);
        // As UTF-8: Windows' narrow form of a path is in the code page.
        EXPECT_EQ(PathToUtf8(manifest->files.begin()->second->path), path);
    }
    EXPECT_TRUE(TiXmlBase::IsWhiteSpaceCondensed());
}

// A misspelt condition (the older "minVersionNT" in the current dialect, a
// "bitnes") would widen where a record applies: each is named with its
// element and row at the warning level; known ones are not.
TEST(HostileXmlTest, UnknownAttributesAreWarnedOfWithElementAndRow) {
    ict_test::TraceCapture capture;
    auto io = MemoryStream(
        "<Manifest productName=\"p\" xmlns=\"urn:x\" vendor=\"v\">\n"
        "  <Environment key=\"A\" value=\"1\" os=\"Linux\" scope=\"x\"/>\n"
        "  <File path=\"/a\" minVersionNT=\"0x600\" bitnes=\"64\" arch=\"X86\">\n"
        "    <Check type=\"Exists\" valeu=\"AA==\"/>\n"
        "  </File>\n"
        "  <Unknown attribute=\"is not looked at\"/>\n"
        "  <Registry path=\"k\" os=\"Windows\"><Value name=\"n\" type=\"REG_SZ\" kind=\"x\"/>"
        "</Registry>\n"
        "</Manifest>");
    File(capture.Tracer()).Read(*io, "m.xml");
    // Each line from its level word on.
    const auto warnings = [](const ict_test::TraceCapture& trace) {
        std::vector<std::string> lines;
        for (const auto& line : trace.Lines()) {
            lines.push_back(line.substr(line.find(" WARNING ") + 1));
        }
        return lines;
    };
    const std::string unknown = "WARNING Unknown attribute ";
    EXPECT_THAT(warnings(capture),
                ElementsAre(unknown + "vendor of Manifest at row 1 of manifest m.xml is ignored",
                            unknown + "scope of Environment at row 2 of manifest m.xml is ignored",
                            unknown + "minVersionNT of File at row 3 of manifest m.xml is ignored",
                            unknown + "bitnes of File at row 3 of manifest m.xml is ignored",
                            unknown + "valeu of Check at row 4 of manifest m.xml is ignored",
                            unknown + "kind of Value at row 7 of manifest m.xml is ignored"));

    ict_test::TraceCapture legacy;
    auto older = MemoryStream(
        "<IntegrityManifest generationDatetime=\"d\" generationDateTime=\"x\">\n"
        "<File minVersionNt=\"1\" maxVersionNT=\"2\"><Path>/a</Path>"
        "<Hash algorithm=\"SHA256\" alg=\"x\"/></File></IntegrityManifest>");
    File(legacy.Tracer()).Read(*older, "old.xml");
    const std::string where = " of manifest old.xml is ignored";
    EXPECT_THAT(warnings(legacy),
                ElementsAre(unknown + "generationDateTime of IntegrityManifest at row 1" + where,
                            unknown + "minVersionNt of File at row 2" + where,
                            unknown + "alg of Hash at row 2" + where));
}

// A source that keeps its text to itself, as a file does; from the first
// seek after it was read to its end (the records being read again) it shows
// `later` instead, as a file changed by someone else would.
class StreamedText : public ITextSource {
public:
    StreamedText(std::string text, std::string later = "")
        : text_(std::move(text)), later_(std::move(later)) {}
    void Seek(std::uint64_t offset) override {
        if (position_ == text_.size() && !later_.empty()) {
            text_ = later_;
        }
        position_ = std::min<std::size_t>(offset, text_.size());
    }
    std::size_t Read(char* buffer, std::size_t size) override {
        const std::size_t count = std::min(size, text_.size() - position_);
        std::copy_n(text_.data() + position_, count, buffer);
        position_ += count;
        return count;
    }

private:
    std::string text_;
    std::string later_;
    std::size_t position_ = 0;
};

// A text larger than the reader holds whole is read again record by record
// through a moving window (and a record larger than the window on its own):
// it must give what the text held in memory gives, and a text changed
// between the two readings must be refused.
TEST(HostileXmlTest, TextReadAgainByRecordsReadsAsHeldAndRefusesChanges) {
    std::string text = "<Manifest productName=\"P\">\n  <Environment key=\"Bin\" value=\"/b\"/>\n";
    for (int index = 0; index < 4000; ++index) {
        text += "  <File path=\"%Bin%/f" + std::to_string(index) +
                "\"><Check type=\"Sha256\" value=\"AQID\"/></File>\n";
        if (index == 2000) {
            text += "  <File path=\"/" + std::string(300 * 1024, 'x') + "\"/>\n";
        }
    }
    text += "</Manifest>\n";

    ReadContext heldContext(nullptr, "held");
    MemoryTextSource held(text.data(), text.size());
    const auto fromMemory = ReadManifest(held, heldContext);
    ReadContext streamedContext(nullptr, "streamed");
    StreamedText streamed(text);
    const auto fromStream = ReadManifest(streamed, streamedContext);
    EXPECT_EQ(fromStream->files.size(), 4001u);
    EXPECT_EQ(PrintManifest(*fromStream), PrintManifest(*fromMemory));

    for (const std::string& changed : {std::string("value=\"AQID'"), std::string("<!-- -->")}) {
        std::string later = text;
        later.replace(later.find("value=\"AQID\"", text.size() / 2), changed.size(), changed);
        StreamedText changing(text, later);
        ReadContext context(nullptr, "changing");
        try {
            ReadManifest(changing, context);
            ADD_FAILURE() << "a changed text was accepted: " << changed;
        } catch (const Exception& error) {
            EXPECT_EQ(error.GetMessage(), "XML text changed while it was read");
        }
    }
}

}  // namespace
}  // namespace integrity_check_tool::xml
