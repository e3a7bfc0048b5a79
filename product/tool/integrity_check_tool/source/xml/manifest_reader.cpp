#include "xml/manifest_reader.h"

#include <cstring>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "xml/manifest_layout.h"
#include "xml/text_check.h"

namespace integrity_check_tool::xml {
namespace {

const char* UnknownAttribute() {
    return "Unknown attribute %1% of %2% at row %3% of manifest %4% is ignored";
}

const char* const kFilterAttributes[] = {
    "arch",   "os", "edition", "bitness", "minVersionNt", "maxVersionNt", "linuxKernelVersion",
    "defined"};
const char* const kLegacyFilterAttributes[] = {"bitness", "os", "edition", "minVersionNT",
                                               "maxVersionNT"};

template <typename Names>
bool Contains(const Names& names, const char* name) {
    for (const char* known : names) {
        if (std::strcmp(known, name) == 0) {
            return true;
        }
    }
    return false;
}

// Namespace declarations are not conditions.
bool IsNamespaceDeclaration(const char* name) {
    return std::strncmp(name, "xmlns", 5) == 0 && (name[5] == '\0' || name[5] == ':');
}

// The builder's white-space condensing is one global switch; text is taken
// as written while a manifest is read, and the switch is put back after.
class KeepWhiteSpace {
public:
    KeepWhiteSpace() : previous_(TiXmlBase::IsWhiteSpaceCondensed()) {
        TiXmlBase::SetCondenseWhiteSpace(false);
    }
    ~KeepWhiteSpace() { TiXmlBase::SetCondenseWhiteSpace(previous_); }
    KeepWhiteSpace(const KeepWhiteSpace&) = delete;
    KeepWhiteSpace& operator=(const KeepWhiteSpace&) = delete;

private:
    bool previous_;
};

// Builds one element of the checked text at a time, ended in place by a
// zero that is taken away again: the text is never copied.
class RecordParser {
public:
    explicit RecordParser(std::string& text) : text_(text) {}

    // The element in [begin, end), whose '<' is on `row`.
    const TiXmlElement& Parse(std::size_t begin, std::size_t end, int row) {
        const char saved = text_[end];
        text_[end] = '\0';
        document_.Clear();
        document_.Parse(text_.data() + begin, nullptr, TIXML_ENCODING_UTF8);
        text_[end] = saved;
        return Element(row);
    }

    // The root's start tag alone, as if it were an empty element.
    const TiXmlElement& ParseStartTag(const RootSpan& root) {
        if (root.tagEnd == root.end) {
            return Parse(root.begin, root.end, root.row);
        }
        // "<Manifest a='1'>" is read as "<Manifest a='1'/>": the '>' and the
        // two bytes after it (the end tag follows, so they exist) are borrowed.
        char* tail = &text_[root.tagEnd - 1];
        const char saved[3] = {tail[0], tail[1], tail[2]};
        tail[0] = '/';
        tail[1] = '>';
        tail[2] = '\0';
        document_.Clear();
        document_.Parse(text_.data() + root.begin, nullptr, TIXML_ENCODING_UTF8);
        std::memcpy(tail, saved, sizeof(saved));
        return Element(root.row);
    }

private:
    // The checked text leaves the builder little to reject (it still refuses
    // some names XML allows); its own message and row stand then.
    const TiXmlElement& Element(int row) {
        const TiXmlElement* element = document_.RootElement();
        if (document_.Error() || element == nullptr) {
            ICT_THROW(Exception(document_.ErrorDesc()) << XmlRowInfo(row + document_.ErrorRow() - 1)
                                                       << XmlColumnInfo(document_.ErrorCol()));
        }
        return *element;
    }

    std::string& text_;
    TiXmlDocument document_;
};

}  // namespace

void ReadContext::Warn(const TiXmlElement& element, const char* attribute) const {
    if (tracer_ != nullptr) {
        tracer_->Trace(trace_level::Warning, UnknownAttribute(), attribute, element.Value(),
                       RowOf(element), origin_);
    }
}

void ReadContext::WarnUnknownAttributes(const TiXmlElement& element,
                                        std::initializer_list<const char*> known,
                                        bool withFilter) const {
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        const char* name = attribute->Name();
        if (!Contains(known, name) && !(withFilter && Contains(kFilterAttributes, name)) &&
            !IsNamespaceDeclaration(name)) {
            Warn(element, name);
        }
    }
}

void ReadContext::WarnUnknownLegacyAttributes(const TiXmlElement& element,
                                              std::initializer_list<const char*> known) const {
    for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        const char* name = attribute->Name();
        if (!Contains(known, name) && !Contains(kLegacyFilterAttributes, name) &&
            !IsNamespaceDeclaration(name)) {
            Warn(element, name);
        }
    }
}

ManifestPtr ReadManifest(std::string& text, std::size_t size, ReadContext& context) {
    ManifestLayout layout;
    CheckXmlText(text.data(), size, &layout);

    const RootSpan* root = layout.CurrentRoot();
    const bool legacy = root == nullptr;
    if (legacy) {
        root = layout.LegacyRoot();
    }
    if (root == nullptr) {
        ThrowNodeAbsent("Manifest");
    }

    const KeepWhiteSpace keepWhiteSpace;
    RecordParser parser(text);
    auto manifest = std::make_unique<Manifest>();
    context.SetFirstRow(root->row);
    const TiXmlElement& rootElement = parser.ParseStartTag(*root);
    if (legacy) {
        ReadLegacyRoot(rootElement, *manifest, context);
    } else {
        ReadCurrentRoot(rootElement, *manifest, context);
    }
    for (const RecordSpan& record : root->records) {
        context.SetFirstRow(record.row);
        const TiXmlElement& element = parser.Parse(record.begin, record.end, record.row);
        if (legacy) {
            ReadLegacyRecord(element, *manifest, context);
        } else {
            ReadCurrentRecord(element, *manifest, context);
        }
    }
    return manifest;
}

}  // namespace integrity_check_tool::xml
