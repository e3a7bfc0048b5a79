#include "xml/text_check.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <expat.h>

#include "common/exception.h"
#include "common/message_format.h"
#include "xml/errors.h"

namespace integrity_check_tool::xml {
namespace {

const char* NestingTooDeep() {
    return "XML nesting deeper than %1% levels";
}
const char* TooManyAttributes() {
    return "XML element %1% has more than %2% attributes";
}
const char* TextTooLarge() {
    return "XML text larger than %1% bytes";
}
const char* DoctypeRefused() {
    return "XML document type declarations are not accepted";
}
const char* TooManyTopElements() {
    return "XML text with more than %1% top-level elements";
}
const char* NotUtf8() {
    return "XML text is not in UTF-8";
}
const char* InstructionRefused() {
    return "XML processing instruction holding '>' is not accepted";
}

// expat salts its hash tables against crafted names; left to itself it asks
// the system for a fresh salt per parser, one system call per record read.
// One random salt per process keeps the protection.
unsigned long HashSalt() {
    static const unsigned long salt = [] {
        std::random_device random;
        const unsigned long value =
            (static_cast<unsigned long>(random()) << 16) ^ static_cast<unsigned long>(random());
        return value == 0 ? 1ul : value;
    }();
    return salt;
}

}  // namespace

void XmlTextChecker::ParserDeleter::operator()(XML_ParserStruct* parser) const {
    XML_ParserFree(parser);
}

XmlTextChecker::XmlTextChecker() = default;
XmlTextChecker::~XmlTextChecker() = default;

XML_ParserStruct* XmlTextChecker::Prepare() {
    if (!parser_ || XML_ParserReset(parser_.get(), "UTF-8") != XML_TRUE) {
        parser_.reset(XML_ParserCreate("UTF-8"));
    }
    if (!parser_) {
        throw std::bad_alloc();
    }
    XML_SetHashSalt(parser_.get(), HashSalt());
    return parser_.get();
}

namespace {

// Where a segment of the text starts: a document of several top-level
// elements is checked one element after another, each by a fresh parser.
struct Origin {
    std::size_t offset = 0;
    int row = 1;
    int column = 1;
};

// One pass of expat over one segment.
class Pass {
public:
    // `parser` is fresh or reset, and stays the caller's.
    Pass(ITextSource& source, const Origin& origin, IElementObserver* observer,
         XML_ParserStruct* parser)
        : source_(source), origin_(origin), observer_(observer), parser_(parser) {
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, &Pass::Start, &Pass::End);
        XML_SetStartDoctypeDeclHandler(parser_, &Pass::Doctype);
        XML_SetProcessingInstructionHandler(parser_, &Pass::Instruction);
    }

    // True when the segment ended with a complete top-level element followed
    // by another one, which starts at `next`.
    bool Run(Origin& next) {
        bool complete = false;
        if (!ParseHeld(complete)) {
            complete = ParseRead();
        }
        if (complete) {
            return false;
        }
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        const XML_Error code = XML_GetErrorCode(parser_);
        if (code == XML_ERROR_JUNK_AFTER_DOC_ELEMENT && StartsElement()) {
            next = Origin{Offset(), Row(), Column()};
            return true;
        }
        Fail(XML_ErrorString(code));
    }

    [[noreturn]] void Fail(const std::string& message) const {
        ICT_THROW(Exception(message) << XmlRowInfo(Row()) << XmlColumnInfo(Column()));
    }

private:
    static Pass& Of(void* data) { return *static_cast<Pass*>(data); }

    void RefuseUtf16(const char* text, std::size_t length) const {
        // expat follows a UTF-16 byte order mark whatever it is told.
        if (origin_.offset == 0 && length >= 2 &&
            ((text[0] == '\xFE' && text[1] == '\xFF') ||
             (text[0] == '\xFF' && text[1] == '\xFE'))) {
            Fail(NotUtf8());
        }
    }

    // A text held in memory is parsed where it lies, without a copy. False
    // when the source does not hold its text; `complete` when the parser
    // accepted the rest of it.
    bool ParseHeld(bool& complete) {
        const char* text = nullptr;
        std::size_t length = 0;
        if (!source_.View(origin_.offset, &text, &length)) {
            return false;
        }
        CheckXmlTextSize(origin_.offset + length);
        RefuseUtf16(text, length);
        // In pieces: expat copies what it is given, and a piece at a time
        // keeps that copy small.
        constexpr std::size_t kPiece = 64 * 1024;
        for (;;) {
            const std::size_t piece = std::min(length, kPiece);
            const bool last = piece == length;
            if (XML_Parse(parser_, text, static_cast<int>(piece), last ? XML_TRUE : XML_FALSE) !=
                XML_STATUS_OK) {
                complete = false;
                return true;
            }
            if (last) {
                complete = true;
                return true;
            }
            text += piece;
            length -= piece;
        }
    }

    // True when the parser accepted the rest of the text; false when it
    // stopped.
    bool ParseRead() {
        // Read in growing blocks: a parser stopped early by a following
        // element has read little, and a huge token is scanned again only
        // as often as the block doubles.
        source_.Seek(origin_.offset);
        std::uint64_t total = origin_.offset;
        std::vector<char> block(64 * 1024);
        for (bool first = true;; first = false) {
            const std::size_t length = source_.Read(block.data(), block.size());
            total += length;
            CheckXmlTextSize(total);
            if (first) {
                RefuseUtf16(block.data(), length);
            }
            const bool last = length < block.size();
            if (XML_Parse(parser_, block.data(), static_cast<int>(length),
                          last ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
                return false;
            }
            if (last) {
                return true;
            }
            // The old block goes before the new one is taken.
            const auto next = static_cast<std::size_t>(
                std::min<std::uint64_t>(block.size() * 2, kMaxTextSize + 1));
            block = std::vector<char>();
            block.resize(next);
        }
    }

    // The bytes of the current event, as far as expat holds them.
    std::pair<const char*, std::size_t> Event() const {
        int offset = 0;
        int size = 0;
        const char* context = XML_GetInputContext(parser_, &offset, &size);
        if (context == nullptr) {
            return {nullptr, 0};
        }
        return {context + offset, static_cast<std::size_t>(size - offset)};
    }

    // Whether the text that came after the document element is another
    // element (not text, a section or an end tag).
    bool StartsElement() const {
        const auto event = Event();
        return event.second >= 2 && event.first[0] == '<' && event.first[1] != '!' &&
               event.first[1] != '?' && event.first[1] != '/';
    }

    std::size_t Offset() const {
        return origin_.offset + static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_));
    }
    int Row() const {
        return origin_.row + static_cast<int>(XML_GetCurrentLineNumber(parser_)) - 1;
    }
    // expat counts columns from 0; the first line of a segment continues the
    // line its predecessor ended on.
    int Column() const {
        const int column = static_cast<int>(XML_GetCurrentColumnNumber(parser_));
        return XML_GetCurrentLineNumber(parser_) == 1 ? origin_.column + column : column + 1;
    }

    // Handlers run inside expat, which is C: nothing may be thrown through
    // it. The first failure stops the parser and is thrown once it returns.
    template <typename Body>
    void Guard(Body&& body) {
        if (failure_) {
            return;
        }
        try {
            body();
        } catch (...) {
            failure_ = std::current_exception();
            XML_StopParser(parser_, XML_FALSE);
        }
    }

    static void XMLCALL Start(void* data, const XML_Char* name, const XML_Char** attributes) {
        Pass& pass = Of(data);
        pass.Guard([&] {
            if (++pass.depth_ > kMaxNesting) {
                pass.Fail(MessageFormat(NestingTooDeep(), kMaxNesting));
            }
            std::size_t count = 0;
            while (attributes[2 * count] != nullptr) {
                ++count;
            }
            if (count > kMaxAttributes) {
                pass.Fail(MessageFormat(TooManyAttributes(), name, kMaxAttributes));
            }
            if (pass.observer_ != nullptr) {
                ElementStart element;
                element.name = name;
                element.depth = pass.depth_;
                element.begin = pass.Offset();
                element.tagEnd =
                    element.begin + static_cast<std::size_t>(XML_GetCurrentByteCount(pass.parser_));
                element.row = pass.Row();
                element.column = pass.Column();
                pass.observer_->OnStart(element);
            }
        });
    }

    static void XMLCALL End(void* data, const XML_Char*) {
        Pass& pass = Of(data);
        pass.Guard([&] {
            if (pass.observer_ != nullptr) {
                const std::size_t end =
                    pass.Offset() + static_cast<std::size_t>(XML_GetCurrentByteCount(pass.parser_));
                pass.observer_->OnEnd(pass.depth_, end);
            }
            --pass.depth_;
        });
    }

    // Entity definitions would be expanded here but not by the document
    // builder, which would then read another text than the one checked.
    static void XMLCALL Doctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*,
                                int) {
        Pass& pass = Of(data);
        pass.Guard([&] { pass.Fail(DoctypeRefused()); });
    }

    // The document builder ends an instruction at its first '>'.
    static void XMLCALL Instruction(void* data, const XML_Char*, const XML_Char*) {
        Pass& pass = Of(data);
        pass.Guard([&] {
            const auto event = pass.Event();
            const auto count = static_cast<std::size_t>(XML_GetCurrentByteCount(pass.parser_));
            if (event.first == nullptr || event.second < count ||
                std::count(event.first, event.first + count, '>') != 1) {
                pass.Fail(InstructionRefused());
            }
        });
    }

    ITextSource& source_;
    Origin origin_;
    IElementObserver* observer_;
    XML_ParserStruct* parser_;
    std::size_t depth_ = 0;
    std::exception_ptr failure_;
};

}  // namespace

void CheckXmlTextSize(std::uint64_t size) {
    if (size > kMaxTextSize) {
        ICT_THROW(Exception(MessageFormat(TextTooLarge(), kMaxTextSize)));
    }
}

void CheckXmlText(ITextSource& source, IElementObserver* observer) {
    XmlTextChecker().Check(source, observer);
}

void XmlTextChecker::Check(ITextSource& source, IElementObserver* observer) {
    Origin origin;
    for (std::size_t elements = 1;; ++elements) {
        Pass pass(source, origin, observer, Prepare());
        if (!pass.Run(origin)) {
            return;
        }
        if (elements == kMaxTopElements) {
            ICT_THROW(Exception(MessageFormat(TooManyTopElements(), kMaxTopElements))
                      << XmlRowInfo(origin.row) << XmlColumnInfo(origin.column));
        }
    }
}

MemoryTextSource::MemoryTextSource(const char* text, std::size_t size) : text_(text), size_(size) {}

void MemoryTextSource::Seek(std::uint64_t offset) {
    position_ = static_cast<std::size_t>(std::min<std::uint64_t>(offset, size_));
}

std::size_t MemoryTextSource::Read(char* buffer, std::size_t size) {
    const std::size_t length = std::min(size, size_ - position_);
    std::copy(text_ + position_, text_ + position_ + length, buffer);
    position_ += length;
    return length;
}

bool MemoryTextSource::View(std::uint64_t offset, const char** text, std::size_t* size) {
    const auto start = static_cast<std::size_t>(std::min<std::uint64_t>(offset, size_));
    *text = text_ + start;
    *size = size_ - start;
    return true;
}

void XmlTextChecker::Check(const char* text, std::size_t size, IElementObserver* observer) {
    CheckXmlTextSize(size);
    MemoryTextSource source(text, size);
    // The parser keeps a copy of a text it was given whole; a large one goes
    // with it rather than staying beside whatever is built next.
    constexpr std::size_t kKeptParserText = 64 * 1024;
    try {
        Check(source, observer);
    } catch (...) {
        if (size > kKeptParserText) {
            parser_.reset();
        }
        throw;
    }
    if (size > kKeptParserText) {
        parser_.reset();
    }
}

void CheckXmlText(const char* text, std::size_t size, IElementObserver* observer) {
    XmlTextChecker().Check(text, size, observer);
}

}  // namespace integrity_check_tool::xml
