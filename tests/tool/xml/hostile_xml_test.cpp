// Manifest texts an attacker or a careless editor may hand the reader: each
// must fail with the parser's description and where, or read exactly as
// written; none may crash, hang or change what it says.
#include <algorithm>
#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "xml/manifest_reader.h"
#include "xml/text_check.h"
#include "xml_test_helpers.h"

namespace integrity_check_tool::xml {
namespace {

using ::testing::HasSubstr;

std::string Repeated(const std::string& text, std::size_t count) {
    std::string repeated;
    for (std::size_t index = 0; index < count; ++index) {
        repeated += text;
    }
    return repeated;
}

std::string Nested(std::size_t levels) {
    std::string text;
    for (std::size_t level = 0; level < levels; ++level) {
        text += "<a>";
    }
    for (std::size_t level = 0; level < levels; ++level) {
        text += "</a>";
    }
    return text;
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

struct Rejected {
    const char* what;
    std::string text;
    std::string message;
    int row;
    int column;
};

TEST(HostileXmlTest, RejectedTextsFailWithTheParsersTextRowAndColumn) {
    const Rejected cases[] = {
        {"50,000 levels of nesting", "<Manifest>" + Nested(50000) + "</Manifest>",
         "XML nesting deeper than 256 levels", 1, 1 + 10 + 255 * 3},
        {"257 levels", Nested(257), "XML nesting deeper than 256 levels", 1, 1 + 256 * 3},
        {"text ending inside a character", "<Manifest>aaaa\xC7", "partial character", 1, 15},
        {"attribute ending inside a character", "<Manifest productName=\"\xE2\x82",
         "partial character", 1, 1},
        {"name ending inside a character", "<Manifest><Fi\xF0\x9F", "partial character", 1, 11},
        {"a byte that starts no character", FileWithPath("a\xD6&#x41;b"),
         "not well-formed (invalid token)", 2, 14},
        {"100,000 attributes", ManyAttributes(100000),
         "XML element File has more than 64 attributes", 1, 11},
        {"65 attributes", ManyAttributes(65), "XML element File has more than 64 attributes", 1,
         11},
        {"reference to character zero", FileWithPath("/etc/hostname&#0;.missing"),
         "reference to invalid character number", 2, 26},
        {"reference past Unicode", FileWithPath("/etc/hostname&#xFFFFFFFF;"),
         "reference to invalid character number", 2, 26},
        {"reference with eleven digits", FileWithPath("/etc/hostname&#99999999999;"),
         "reference to invalid character number", 2, 26},
        {"reference without digits", FileWithPath("/etc/hostname&#;.missing"),
         "not well-formed (invalid token)", 2, 28},
        {"bare ampersand", FileWithPath("/etc/hostname&.missing"),
         "not well-formed (invalid token)", 2, 27},
        {"reference to a surrogate", FileWithPath("a&#xD800;"),
         "reference to invalid character number", 2, 14},
        {"undefined entity", FileWithPath("a&nbsp;"), "undefined entity", 2, 1},
        {"entity definitions",
         "<!DOCTYPE Manifest [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>\n"
         "<Manifest productName=\"&b;\"/>",
         "XML document type declarations are not accepted", 1, 20},
        {"instruction the builder would end early",
         "<Manifest><?pi x> <File path=\"/etc/hostname\"/> ?></Manifest>",
         "XML processing instruction holding '>' is not accepted", 1, 11},
        {"text after the document", "<Manifest/>junk", "junk after document element", 1, 12},
        {"second root broken", "<Manifest/>\n<IntegrityManifest>", "no element found", 2, 20},
        {"empty text", "", "no element found", 1, 1},
        {"65 top-level elements", Repeated("<a/>", 65),
         "XML text with more than 64 top-level elements", 1, 1 + 64 * 4},
        {"a million top-level elements", Repeated("<a/>", 1000000),
         "XML text with more than 64 top-level elements", 1, 1 + 64 * 4},
        {"UTF-16 text", std::string("\xFF\xFE<\0M\0a\0n\0i\0f\0e\0s\0t\0/\0>\0", 24),
         "XML text is not in UTF-8", 1, 1},
        {"UTF-16 text, big end first", std::string("\xFE\xFF\0<\0M\0/\0>", 10),
         "XML text is not in UTF-8", 1, 1},
        {"a zero byte", std::string("<Manifest>\0</Manifest>", 22),
         "not well-formed (invalid token)", 1, 11},
    };
    for (const auto& rejected : cases) {
        SCOPED_TRACE(rejected.what);
        const auto started = std::chrono::steady_clock::now();
        try {
            testing::ReadXml(rejected.text);
            ADD_FAILURE() << "accepted";
        } catch (const Exception& error) {
            EXPECT_EQ(error.GetMessage(), rejected.message);
            const int* row = boost::get_error_info<XmlRowInfo>(error);
            const int* column = boost::get_error_info<XmlColumnInfo>(error);
            ASSERT_NE(row, nullptr);
            ASSERT_NE(column, nullptr);
            EXPECT_EQ(*row, rejected.row);
            EXPECT_EQ(*column, rejected.column);
        }
        // Linear work: even the largest of these is read in well under this.
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
    }
}

TEST(HostileXmlTest, BoundsAreExactAndTextSizeIsBounded) {
    EXPECT_NO_THROW(CheckXmlText(Nested(256).data(), Nested(256).size()));
    const std::string topElements = Repeated("<a/>\n", 63) + "<Manifest productName=\"last\"/>";
    EXPECT_EQ(testing::ReadXml(topElements)->productName, "last");
    const std::string sixtyFour = ManyAttributes(64);
    EXPECT_EQ(testing::ReadXml(sixtyFour)->files.size(), 1u);
    EXPECT_NO_THROW(CheckXmlTextSize(kMaxTextSize));
    EXPECT_EQ(ict_test::ThrownText<Exception>([] { CheckXmlTextSize(kMaxTextSize + 1); }),
              "XML text larger than 268435456 bytes");
}

// What well-formed XML says, the model says: references, sections and
// comments read as XML defines them, and only the roots the reader knows
// are read.
TEST(HostileXmlTest, WellFormedTextsReadAsWritten) {
    struct Accepted {
        const char* what;
        std::string text;
        std::string path;
    };
    const Accepted cases[] = {
        {"character references", FileWithPath("&#x41;&#66;&#x10FFFF;&amp;&lt;&gt;&quot;&apos;"),
         "AB\xF4\x8F\xBF\xBF&<>\"'"},
        {"literal reference text", FileWithPath("a&amp;#x41;b"), "a&#x41;b"},
        {"instruction without '>'", "<Manifest><?pi x?><File path=\"p\"/></Manifest>", "p"},
        {"byte order mark", "\xEF\xBB\xBF<Manifest><File path=\"p\"/></Manifest>", "p"},
        {"a record in a comment is no record",
         "<Manifest><!-- <File path=\"q\"/> --><File path=\"p\"/></Manifest>", "p"},
        {"a record in a section is no record",
         "<Manifest><x><![CDATA[<File path=\"q\"/>]]></x><File path=\"p\"/></Manifest>", "p"},
        {"a record deeper down is no record",
         "<Manifest><x><File path=\"q\"/></x><File path=\"p\"/></Manifest>", "p"},
        {"white space kept", FileWithPath("  a\tb  "), "  a\tb  "},
        {"older dialect path as written",
         "<IntegrityManifest><File><Path>  a  b.txt </Path></File></IntegrityManifest>",
         "  a  b.txt "},
        {"older dialect path in pieces",
         "<IntegrityManifest><File><Path>a<!-- c -->b<![CDATA[ <c> ]]>&#x20;d </Path></File>"
         "</IntegrityManifest>",
         "ab <c>  d "},
        {"older dialect after another root",
         "<Other/>\n<IntegrityManifest><File><Path>p</Path></File></IntegrityManifest>", "p"},
    };
    for (const auto& accepted : cases) {
        SCOPED_TRACE(accepted.what);
        const auto manifest = testing::ReadXml(accepted.text);
        ASSERT_EQ(manifest->files.size(), 1u);
        // As UTF-8: Windows' narrow form of a path is in the code page.
        EXPECT_EQ(PathToUtf8(manifest->files.begin()->second->path), accepted.path);
    }
}

// The switch is global: a reader elsewhere in the process keeps its setting.
TEST(HostileXmlTest, WhiteSpaceSwitchIsPutBack) {
    TiXmlBase::SetCondenseWhiteSpace(true);
    testing::ReadXml("<IntegrityManifest><File><Path> a </Path></File></IntegrityManifest>");
    EXPECT_TRUE(TiXmlBase::IsWhiteSpaceCondensed());
}

// A record failing deep in the text names the row of its own element; the
// base64 decoder's failure keeps its own type and text.
TEST(HostileXmlTest, RecordFailuresCarryTheRowOfTheirElement) {
    struct Failing {
        const char* what;
        std::string text;
        std::string message;
        int row;
    };
    const std::string head = "<?xml version=\"1.0\"?>\n<Manifest>\n  <File path=\"/a\"/>\n";
    const Failing cases[] = {
        {"name", head + "  <File path=\"/b\"\n      arch=\"x86\"/>\n</Manifest>",
         "Invalid name: x86", 4},
        {"check type",
         head + "  <File path=\"/b\">\n\n    <Check type=\"exists\"/></File></Manifest>",
         "Invalid name: exists", 6},
        {"number", head + "<Registry>\n<Value minVersionNt=\"abc\"/></Registry></Manifest>",
         "Invalid number: abc", 5},
        {"base64",
         head + "<Files><File>\n<Check type=\"Sha256\" value=\"**\"/></File></Files></Manifest>",
         "attempt to decode a value not in base64 char set", 5},
        {"environment", head + "\n\n<Environment key=\"A\" os=\"Solaris\"/></Manifest>",
         "Invalid name: Solaris", 6},
        {"older dialect",
         "<IntegrityManifest>\n<File bitness=\"16\"><Path>/a</Path></File>\n"
         "<File><Path>/b</Path>\n<Hash algorithm=\"SHA256\">@</Hash></File>"
         "</IntegrityManifest>",
         "XML attribute bitness has invalid value: 16", 2},
        {"older hash",
         "<IntegrityManifest>\n<File><Path>/b</Path>\n<Hash algorithm=\"SHA256\">@</Hash>"
         "</File></IntegrityManifest>",
         "attempt to decode a value not in base64 char set", 3},
    };
    for (const auto& failing : cases) {
        SCOPED_TRACE(failing.what);
        try {
            testing::ReadXml(failing.text);
            ADD_FAILURE() << "accepted";
        } catch (const boost::exception& error) {
            const auto* standard = dynamic_cast<const std::exception*>(&error);
            ASSERT_NE(standard, nullptr);
            EXPECT_EQ(standard->what(), failing.message);
            const int* row = boost::get_error_info<XmlRowInfo>(error);
            ASSERT_NE(row, nullptr);
            EXPECT_EQ(*row, failing.row);
            EXPECT_EQ(boost::get_error_info<XmlColumnInfo>(error), nullptr);
        }
    }
}

// A misspelt condition (the older "minVersionNT" in the current dialect, a
// "bitnes") would widen where a record applies: each is named with its
// element and row at the warning level; known ones are not.
TEST(HostileXmlTest, UnknownAttributesAreWarnedOfWithElementAndRow) {
    ict_test::TraceCapture capture;
    auto io = testing::MemoryStream(
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
    const std::string expected[] = {
        "Unknown attribute vendor of Manifest at row 1 of manifest m.xml is ignored",
        "Unknown attribute scope of Environment at row 2 of manifest m.xml is ignored",
        "Unknown attribute minVersionNT of File at row 3 of manifest m.xml is ignored",
        "Unknown attribute bitnes of File at row 3 of manifest m.xml is ignored",
        "Unknown attribute valeu of Check at row 4 of manifest m.xml is ignored",
        "Unknown attribute kind of Value at row 7 of manifest m.xml is ignored",
    };
    const auto lines = capture.Lines();
    ASSERT_EQ(lines.size(), std::size(expected));
    for (std::size_t index = 0; index < lines.size(); ++index) {
        EXPECT_THAT(lines[index], HasSubstr(expected[index]));
        EXPECT_THAT(lines[index], HasSubstr("WARNING"));
    }

    ict_test::TraceCapture legacy;
    auto older = testing::MemoryStream(
        "<IntegrityManifest generationDatetime=\"d\" generationDateTime=\"x\">\n"
        "<File minVersionNt=\"1\" maxVersionNT=\"2\"><Path>/a</Path>"
        "<Hash algorithm=\"SHA256\" alg=\"x\"/></File></IntegrityManifest>");
    File(legacy.Tracer()).Read(*older, "old.xml");
    const auto legacyLines = legacy.Lines();
    ASSERT_EQ(legacyLines.size(), 3u);
    EXPECT_THAT(legacyLines[0], HasSubstr("generationDateTime of IntegrityManifest at row 1"));
    EXPECT_THAT(legacyLines[1], HasSubstr("minVersionNt of File at row 2"));
    EXPECT_THAT(legacyLines[2], HasSubstr("alg of Hash at row 2"));
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
