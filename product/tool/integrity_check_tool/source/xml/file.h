#pragma once

#include <boost/filesystem/path.hpp>

#include "manifest/manifest.h"
#include "ruk/io.h"
#include "tracer.h"
#include "xml/errors.h"
#include "xml/values.h"

namespace integrity_check_tool {
class FilterEvaluator;
}

namespace integrity_check_tool::xml {

// Reads manifests of both dialects into the model and writes the model in
// the current dialect. A failure abandons the whole manifest: nothing partly
// read is ever returned.
class File {
public:
    // The tracer may be null.
    explicit File(TracerPtr tracer);

    // Reads the stream, from its start, and builds the manifest from it; the
    // stream is read in blocks, and each record again on its own, so the
    // text is never held whole. A text that is not well-formed, or passes the bounds of
    // CheckXmlText, is an Exception with the parser's description and
    // XmlRowInfo / XmlColumnInfo attached; a failure in a record carries the
    // row of its element. `origin` names the manifest in warnings.
    ManifestPtr Read(ruk::IIO& io, const std::string& origin = "stream") const;

    // Reads the file and gives the manifest its Environment (built-in keys
    // from the path, then those of the manifest's own entries that `filter`
    // lets through; every entry when it is null). A failure in the content
    // carries an ErrorContextInfo line naming the file and, where known, the
    // row and column.
    ManifestPtr Load(const boost::filesystem::path& path,
                     const FilterEvaluator* filter = nullptr) const;

    // Replaces the stream's contents with the manifest in the current dialect.
    void Write(const Manifest& manifest, ruk::IIO& io) const;

private:
    TracerPtr tracer_;
};

}  // namespace integrity_check_tool::xml
