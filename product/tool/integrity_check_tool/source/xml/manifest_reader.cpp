#include "xml/manifest_reader.h"

#include <cstring>

#include "manifest/manifest_operations.h"

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "xml/manifest_layout.h"
#include "xml/text_check.h"

namespace integrity_check_tool::xml {
namespace {

const char* ChangedWhileRead() {
    return "XML text changed while it was read";
}
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

// Zeros after a record: the document builder may step over a few bytes at
// the end of a character before it looks for the end of the text.
constexpr std::size_t kTerminatingZeros = 4;

// Builds one element of the checked text at a time from its own bytes, read
// again from the source: the whole text is never held. Records come in
// document order, so they are read through a window that moves forward,
// a few system calls for many records. Unless the source holds its text in
// memory, the bytes are checked again before the builder sees them, for the
// source may have changed since.
class RecordParser {
public:
    explicit RecordParser(ITextSource& source) : source_(source) {
        const char* text = nullptr;
        std::size_t size = 0;
        held_ = source_.View(0, &text, &size);
    }

    // The element in [begin, end), whose '<' is on `row`.
    const TiXmlElement& Parse(std::size_t begin, std::size_t end, int row) {
        Load(begin, end);
        return Build(row);
    }

    // The root's start tag alone, as an empty element: "<Manifest a='1'>"
    // is read as "<Manifest a='1'/>".
    const TiXmlElement& ParseStartTag(const RootSpan& root) {
        Load(root.begin, root.tagEnd);
        if (root.tagEnd != root.end) {
            bytes_.insert(bytes_.size() - 1, "/");
        }
        return Build(root.row);
    }

    // Lets go of the last element and what it was built from.
    void Release() {
        document_.Clear();
        if (bytes_.capacity() > kWindowSize) {
            bytes_ = std::string();
        } else {
            bytes_.clear();
        }
    }

private:
    static constexpr std::size_t kWindowSize = 256 * 1024;

    void Load(std::size_t begin, std::size_t end) {
        Release();
        const std::size_t size = end - begin;
        if (size > kWindowSize) {
            // A record larger than the window is read on its own.
            bytes_.resize(size);
            if (ReadAt(begin, &bytes_[0], size) != size) {
                ICT_THROW(Exception(ChangedWhileRead()));
            }
            return;
        }
        if (begin < windowBegin_ || end > windowBegin_ + window_.size()) {
            window_.resize(kWindowSize);
            window_.resize(ReadAt(begin, &window_[0], kWindowSize));
            windowBegin_ = begin;
            if (window_.size() < size) {
                ICT_THROW(Exception(ChangedWhileRead()));
            }
        }
        bytes_.assign(window_, begin - windowBegin_, size);
    }

    // Reads up to `size` bytes at `offset`; fewer only at the end of the text.
    std::size_t ReadAt(std::size_t offset, char* buffer, std::size_t size) {
        source_.Seek(offset);
        return source_.Read(buffer, size);
    }

    const TiXmlElement& Build(int row) {
        // Text held in memory can't have changed since it was checked.
        if (!held_) {
            try {
                checker_.Check(bytes_.data(), bytes_.size());
            } catch (const Exception&) {
                ICT_THROW(Exception(ChangedWhileRead()) << XmlRowInfo(row));
            }
        }
        bytes_.append(kTerminatingZeros, '\0');
        document_.Parse(bytes_.data(), nullptr, TIXML_ENCODING_UTF8);
        const TiXmlElement* element = document_.RootElement();
        // The checked text leaves the builder little to reject (it still
        // refuses some names XML allows); its own message and row stand then.
        if (document_.Error() || element == nullptr) {
            ICT_THROW(Exception(document_.ErrorDesc()) << XmlRowInfo(row + document_.ErrorRow() - 1)
                                                       << XmlColumnInfo(document_.ErrorCol()));
        }
        return *element;
    }

    ITextSource& source_;
    bool held_ = false;
    XmlTextChecker checker_;
    std::string window_;
    std::size_t windowBegin_ = 0;
    std::string bytes_;
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

ManifestPtr ReadManifest(ITextSource& source, ReadContext& context) {
    ManifestLayout layout;
    CheckXmlText(source, &layout);

    const RootSpan* root = layout.CurrentRoot();
    const bool legacy = root == nullptr;
    if (legacy) {
        root = layout.LegacyRoot();
    }
    if (root == nullptr) {
        ThrowNodeAbsent("Manifest");
    }

    const KeepWhiteSpace keepWhiteSpace;
    RecordParser parser(source);
    auto manifest = std::make_unique<Manifest>();
    context.SetFirstRow(root->row);
    const TiXmlElement& rootElement = parser.ParseStartTag(*root);
    if (legacy) {
        ReadLegacyRoot(rootElement, *manifest, context);
    } else {
        ReadCurrentRoot(rootElement, *manifest, context);
    }
    // Records arrive in document order; each kind has its own list, so each
    // kind keeps its document order.
    for (const RecordSpan& record : root->records) {
        context.SetFirstRow(record.row);
        const TiXmlElement& element = parser.Parse(record.begin, record.end, record.row);
        PendingRecord pending =
            legacy ? ReadLegacyRecord(element, context) : ReadCurrentRecord(element, context);
        // The builder's copy goes before the record joins the manifest.
        parser.Release();
        AddRecord(std::move(pending), *manifest, record.row);
    }
    return manifest;
}

void AddRecord(PendingRecord record, Manifest& manifest, int row) {
    try {
        if (record.environment) {
            manifest.environments.push_back(std::move(*record.environment));
        } else if (record.file) {
            AddFile(manifest.files, std::move(record.file));
        } else if (record.directory) {
            manifest.directories.push_back(std::move(record.directory));
        } else if (record.registry) {
            manifest.registries.push_back(std::move(record.registry));
        }
    } catch (boost::exception& error) {
        error << XmlRowInfo(row);
        throw;
    }
}

}  // namespace integrity_check_tool::xml
