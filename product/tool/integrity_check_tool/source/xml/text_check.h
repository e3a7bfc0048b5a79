#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct XML_ParserStruct;

namespace integrity_check_tool::xml {

// Bounds on every XML text the tools read. TinyXML recurses per level and
// is quadratic in an element's attribute count, so both are bounded before
// it sees the text.
constexpr std::size_t kMaxNesting = 256;
constexpr std::size_t kMaxAttributes = 64;
// Manifests have always been read with more than one top-level element; a
// few are enough for that.
constexpr std::size_t kMaxTopElements = 64;
constexpr std::uint64_t kMaxTextSize = 256u * 1024 * 1024;

// An element as the check meets its start tag. Offsets count bytes from the
// start of the text; rows and columns count from 1, columns in characters.
struct ElementStart {
    const char* name = nullptr;
    std::size_t depth = 0;   // 1 for a top-level element
    std::size_t begin = 0;   // its '<'
    std::size_t tagEnd = 0;  // one past its start tag
    int row = 0;
    int column = 0;
};

// Told where elements begin and end; must not throw for anything but a
// reason to reject the text.
class IElementObserver {
public:
    virtual ~IElementObserver() = default;
    virtual void OnStart(const ElementStart& element) = 0;
    // `end` is one past the element's end tag.
    virtual void OnEnd(std::size_t depth, std::size_t end) = 0;
};

// Where a text is read from, in blocks, from any offset.
class ITextSource {
public:
    virtual ~ITextSource() = default;
    // The next Read starts `offset` bytes from the start of the text.
    virtual void Seek(std::uint64_t offset) = 0;
    // Fills the buffer; fewer bytes only at the end of the text.
    virtual std::size_t Read(char* buffer, std::size_t size) = 0;
    // A source that holds its text in memory shows the part from `offset`
    // to the end, so that it is checked where it lies; others return false.
    virtual bool View(std::uint64_t /*offset*/, const char** /*text*/, std::size_t* /*size*/) {
        return false;
    }
};

class MemoryTextSource : public ITextSource {
public:
    MemoryTextSource(const char* text, std::size_t size);
    void Seek(std::uint64_t offset) override;
    std::size_t Read(char* buffer, std::size_t size) override;
    bool View(std::uint64_t offset, const char** text, std::size_t* size) override;

private:
    const char* text_;
    std::size_t size_;
    std::size_t position_ = 0;
};

// Checks with expat that the text is well-formed XML in UTF-8 within the
// bounds above. Several top-level elements one after another are accepted,
// as manifests have always been read (up to kMaxTopElements). A document type declaration (entity
// definitions) and a processing instruction that holds '>' are refused: the
// document builder would read them differently. A rejected text throws
// Exception with the parser's description, or the bound that was passed,
// and XmlRowInfo / XmlColumnInfo.
// The text is read in blocks and never held whole.
void CheckXmlText(ITextSource& source, IElementObserver* observer = nullptr);
void CheckXmlText(const char* text, std::size_t size, IElementObserver* observer = nullptr);

// CheckXmlText with one parser kept for every text it checks: creating a
// parser costs more than checking a manifest record, and a manifest is
// checked again record by record.
class XmlTextChecker {
public:
    XmlTextChecker();
    ~XmlTextChecker();
    XmlTextChecker(const XmlTextChecker&) = delete;
    XmlTextChecker& operator=(const XmlTextChecker&) = delete;

    void Check(ITextSource& source, IElementObserver* observer = nullptr);
    void Check(const char* text, std::size_t size, IElementObserver* observer = nullptr);

private:
    struct ParserDeleter {
        void operator()(XML_ParserStruct* parser) const;
    };
    // The parser, new or reset, ready for a text.
    XML_ParserStruct* Prepare();

    std::unique_ptr<XML_ParserStruct, ParserDeleter> parser_;
};

// Exception "XML text larger than %1% bytes" when `size` passes the bound.
void CheckXmlTextSize(std::uint64_t size);

}  // namespace integrity_check_tool::xml
