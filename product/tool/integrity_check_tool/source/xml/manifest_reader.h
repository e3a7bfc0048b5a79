#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>

#include <tinyxml.h>
#include <boost/archive/iterators/dataflow_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/optional.hpp>

#include "manifest/manifest.h"
#include "tracer.h"
#include "xml/errors.h"
#include "xml/text_check.h"

namespace integrity_check_tool::xml {

// One manifest being read: names it in warnings, and turns the rows of a
// record element parsed on its own into rows of the whole text.
class ReadContext {
public:
    // The tracer may be null.
    ReadContext(const Tracer* tracer, std::string origin)
        : tracer_(tracer), origin_(std::move(origin)) {}

    void SetFirstRow(int row) { firstRow_ = row; }
    int RowOf(const TiXmlElement& element) const { return firstRow_ + element.Row() - 1; }

    // Warns of every attribute of `element` that is neither in `known` nor,
    // when `withFilter`, a filter attribute: a misspelt condition would
    // otherwise widen where a record applies without a word.
    void WarnUnknownAttributes(const TiXmlElement& element,
                               std::initializer_list<const char*> known, bool withFilter) const;
    // The same for the older dialect's "File".
    void WarnUnknownLegacyAttributes(const TiXmlElement& element,
                                     std::initializer_list<const char*> known) const;

    // Runs `read`; a failure leaves with the element's row attached unless an
    // inner element already gave one.
    template <typename Read>
    auto AtElement(const TiXmlElement& element, Read&& read) const -> decltype(read()) {
        try {
            return read();
        } catch (boost::exception& error) {
            if (boost::get_error_info<XmlRowInfo>(error) == nullptr) {
                error << XmlRowInfo(RowOf(element));
            }
            throw;
        } catch (const boost::archive::iterators::dataflow_exception& error) {
            // The base64 decoder's own failure keeps its type and text.
            throw boost::enable_error_info(error) << XmlRowInfo(RowOf(element));
        }
    }

private:
    void Warn(const TiXmlElement& element, const char* attribute) const;

    const Tracer* tracer_;
    std::string origin_;
    int firstRow_ = 1;
};

// One record read from its element, not yet part of a manifest: at most one
// of these is set.
struct PendingRecord {
    boost::optional<EnvironmentInfo> environment;
    std::unique_ptr<FileInfo> file;
    std::unique_ptr<DirectoryInfo> directory;
    std::unique_ptr<RegistryInfo> registry;
};

// Reads the manifest from `source`. The text is checked first
// (CheckXmlText), without being held whole; then each record element is read
// again and built as a document of its own, in document order, so that
// memory follows the records rather than the text.
// Exception "XML node Manifest is absent" when neither root is there.
ManifestPtr ReadManifest(ITextSource& source, ReadContext& context);

// The two dialects: the attributes of the root, then one record element
// ("Environment", "File", "Files", "Registry"; or the older "File").
void ReadCurrentRoot(const TiXmlElement& root, Manifest& manifest, const ReadContext& context);
PendingRecord ReadCurrentRecord(const TiXmlElement& element, const ReadContext& context);
void ReadLegacyRoot(const TiXmlElement& root, Manifest& manifest, const ReadContext& context);
PendingRecord ReadLegacyRecord(const TiXmlElement& element, const ReadContext& context);

// Adds the record to the manifest (a file to a file of the same path, after
// CheckMismatches); a failure carries `row`, the record's own.
void AddRecord(PendingRecord record, Manifest& manifest, int row);

}  // namespace integrity_check_tool::xml
