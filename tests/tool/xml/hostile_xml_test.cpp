// Manifest texts an attacker or a careless editor may hand the reader: each
// must fail with the parser's description and where, or read exactly as
// written; none may crash, hang or change what it says.
#include <algorithm>
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

TEST(HostileXmlTest, RejectedTextsFailWithTheParsersTextRowAndColumn) {
    const std::string nesting = "XML nesting deeper than 256 levels";
    const std::string partial = "partial character";  // the text ends inside one
    const std::string token = "not well-formed (invalid token)";
    const std::string reference = "reference to invalid character number";
    const std::string attributes = "XML element File has more than 64 attributes";
    const std::string top = "XML text with more than 64 top-level elements";
    const std::string utf16 = "XML text is not in UTF-8";
    const std::tuple<std::string, std::string, int, int> cases[] = {
        {"<Manifest>" + Nested(50000) + "</Manifest>", nesting, 1, 1 + 10 + 255 * 3},
        {Nested(257), nesting, 1, 1 + 256 * 3},
        {"<Manifest>aaaa\xC7", partial, 1, 15},
        {"<Manifest productName=\"\xE2\x82", partial, 1, 1},
        {"<Manifest><Fi\xF0\x9F", partial, 1, 11},
        {FileWithPath("a\xD6&#x41;b"), token, 2, 14},  // a byte that starts no character
        {ManyAttributes(100000), attributes, 1, 11},
        {ManyAttributes(65), attributes, 1, 11},
        {FileWithPath("/etc/hostname&#0;.missing"), reference, 2, 26},
        {FileWithPath("/etc/hostname&#xFFFFFFFF;"), reference, 2, 26},
        {FileWithPath("/etc/hostname&#99999999999;"), reference, 2, 26},
        {FileWithPath("a&#xD800;"), reference, 2, 14},  // a surrogate
        {FileWithPath("/etc/hostname&#;.missing"), token, 2, 28},
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
        {Repeated("<a/>", 1000000), top, 1, 1 + 64 * 4},
        {std::string("\xFF\xFE<\0M\0a\0n\0i\0f\0e\0s\0t\0/\0>\0", 24), utf16, 1, 1},
        {std::string("\xFE\xFF\0<\0M\0/\0>", 10), utf16, 1, 1},
        {std::string("<Manifest>\0</Manifest>", 22), token, 1, 11},
    };
    for (const auto& [text, message, row, column] : cases) {
        SCOPED_TRACE(text.substr(0, 80));
        try {
            testing::ReadXml(text);
            ADD_FAILURE() << "accepted";
        } catch (const Exception& error) {
            EXPECT_EQ(error.GetMessage(), message);
            const int* at = boost::get_error_info<XmlRowInfo>(error);
            const int* in = boost::get_error_info<XmlColumnInfo>(error);
            ASSERT_NE(at, nullptr);
            ASSERT_NE(in, nullptr);
            EXPECT_EQ(*at, row);
            EXPECT_EQ(*in, column);
        }
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
        const auto manifest = testing::ReadXml(text);
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
