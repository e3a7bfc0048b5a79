#include "xml/text_check.h"

#include <algorithm>
#include <exception>
#include <memory>
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

struct ParserDeleter {
    void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};
using ParserPtr = std::unique_ptr<XML_ParserStruct, ParserDeleter>;

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
    Pass(ITextSource& source, const Origin& origin, IElementObserver* observer)
        : source_(source), origin_(origin), observer_(observer) {
        parser_.reset(XML_ParserCreate("UTF-8"));
        if (!parser_) {
            throw std::bad_alloc();
        }
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(parser_.get(), &Pass::Start, &Pass::End);
        XML_SetStartDoctypeDeclHandler(parser_.get(), &Pass::Doctype);
        XML_SetProcessingInstructionHandler(parser_.get(), &Pass::Instruction);
    }

    // True when the segment ended with a complete top-level element followed
    // by another one, which starts at `next`.
    bool Run(Origin& next) {
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
            // expat follows a UTF-16 byte order mark whatever it is told.
            if (first && origin_.offset == 0 && length >= 2 &&
                ((block[0] == '\xFE' && block[1] == '\xFF') ||
                 (block[0] == '\xFF' && block[1] == '\xFE'))) {
                Fail(NotUtf8());
            }
            const bool last = length < block.size();
            if (XML_Parse(parser_.get(), block.data(), static_cast<int>(length),
                          last ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
                break;
            }
            if (last) {
                return false;
            }
            // The old block goes before the new one is taken.
            const auto next = static_cast<std::size_t>(
                std::min<std::uint64_t>(block.size() * 2, kMaxTextSize + 1));
            block = std::vector<char>();
            block.resize(next);
        }
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        const XML_Error code = XML_GetErrorCode(parser_.get());
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

    // The bytes of the current event, as far as expat holds them.
    std::pair<const char*, std::size_t> Event() const {
        int offset = 0;
        int size = 0;
        const char* context = XML_GetInputContext(parser_.get(), &offset, &size);
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
        return origin_.offset + static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get()));
    }
    int Row() const {
        return origin_.row + static_cast<int>(XML_GetCurrentLineNumber(parser_.get())) - 1;
    }
    // expat counts columns from 0; the first line of a segment continues the
    // line its predecessor ended on.
    int Column() const {
        const int column = static_cast<int>(XML_GetCurrentColumnNumber(parser_.get()));
        return XML_GetCurrentLineNumber(parser_.get()) == 1 ? origin_.column + column : column + 1;
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
            XML_StopParser(parser_.get(), XML_FALSE);
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
                element.tagEnd = element.begin + static_cast<std::size_t>(
                                                     XML_GetCurrentByteCount(pass.parser_.get()));
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
                    pass.Offset() +
                    static_cast<std::size_t>(XML_GetCurrentByteCount(pass.parser_.get()));
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
            const auto count =
                static_cast<std::size_t>(XML_GetCurrentByteCount(pass.parser_.get()));
            if (event.first == nullptr || event.second < count ||
                std::count(event.first, event.first + count, '>') != 1) {
                pass.Fail(InstructionRefused());
            }
        });
    }

    ITextSource& source_;
    Origin origin_;
    IElementObserver* observer_;
    ParserPtr parser_;
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
    Origin origin;
    for (std::size_t elements = 1;; ++elements) {
        Pass pass(source, origin, observer);
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

void CheckXmlText(const char* text, std::size_t size, IElementObserver* observer) {
    CheckXmlTextSize(size);
    MemoryTextSource source(text, size);
    CheckXmlText(source, observer);
}

}  // namespace integrity_check_tool::xml
