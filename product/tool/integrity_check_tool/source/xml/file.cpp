#include "xml/file.h"

#include <memory>
#include <string>

#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "manifest/environment.h"
#include "manifest/manifest_operations.h"
#include "manifest/path_text.h"
#include "ruk/exception.h"
#include "xml/manifest_reader.h"
#include "xml/manifest_writer.h"
#include "xml/text_check.h"

namespace integrity_check_tool::xml {
namespace {

// Manifests up to this size are held whole while they are read.
constexpr std::size_t kHeldTextSize = 16 * 1024 * 1024;

const char* CantOpenFile() {
    return "Can't open manifest file %1%. Reason: %2%";
}
const char* CantReplaceFile() {
    return "Can't replace manifest file %1%. Reason: %2%";
}
const char* CantReadStream() {
    return "Can't read manifest. Reason: %1%";
}
const char* CantWriteStream() {
    return "Can't write manifest. Reason: %1%";
}
const char* PartialWrite() {
    return "Can't write manifest. Only %1% of %2% bytes were written";
}
const char* ManifestLoaded() {
    return "Manifest file %1% loaded:";
}
const char* ManifestStored() {
    return "Manifest file %1% stored:";
}

void CheckStream(ruk::result_t code, const char* message) {
    if (ruk::Failed(code)) {
        ICT_THROW(Exception(MessageFormat(message, ruk::GetResultText(code)))
                  << ruk::ResultCodeInfo(code));
    }
}

// `shownPath` is the path the user asked for, which a temporary file stands in for.
ruk::intrusive_ptr<ruk::IIO> OpenFile(const boost::filesystem::path& path, ruk::OpenMode mode,
                                      const boost::filesystem::path& shownPath) {
    ruk::intrusive_ptr<ruk::IIO> io;
    const ruk::result_t code = ruk::OpenFileIO(path, mode, &io);
    if (ruk::Failed(code)) {
        ICT_THROW(Exception(MessageFormat(CantOpenFile(), PathToUtf8(shownPath),
                                          ruk::GetResultText(code)))
                  << ruk::ResultCodeInfo(code));
    }
    return io;
}

const char* InvalidAt() {
    return "Manifest file %1% is invalid at row %2%, column %3%: %4%";
}
const char* InvalidAtRow() {
    return "Manifest file %1% is invalid at row %2%: %3%";
}
const char* Invalid() {
    return "Manifest file %1% is invalid: %2%";
}

// The manifest's stream as the checker and the reader see it: read in
// blocks from wherever they ask, never held whole.
class StreamTextSource : public ITextSource {
public:
    explicit StreamTextSource(ruk::IIO& io) : io_(io) {}

    void Seek(std::uint64_t offset) override {
        CheckStream(io_.Seek(static_cast<std::int64_t>(offset), ruk::SeekOrigin::Begin, nullptr),
                    CantReadStream());
    }

    std::size_t Read(char* buffer, std::size_t size) override {
        std::size_t read = 0;
        CheckStream(ruk::ReadFully(io_, buffer, size, &read), CantReadStream());
        return read;
    }

private:
    ruk::IIO& io_;
};

// The line that says which manifest failed and where, shown before the
// manifest's failure line.
std::string DescribeFailure(const std::string& name, const boost::exception& error) {
    const auto* standard = dynamic_cast<const std::exception*>(&error);
    const std::string reason = standard != nullptr ? standard->what() : "Unknown exception.";
    const int* row = boost::get_error_info<XmlRowInfo>(error);
    const int* column = boost::get_error_info<XmlColumnInfo>(error);
    if (row != nullptr && column != nullptr) {
        return MessageFormat(InvalidAt(), name, *row, *column, reason);
    }
    if (row != nullptr) {
        return MessageFormat(InvalidAtRow(), name, *row, reason);
    }
    return MessageFormat(Invalid(), name, reason);
}

// A stream failure names its cause already; anything else is the manifest's
// content, and the user needs to know which file and where.
void AttachLocation(const std::string& name, boost::exception& error) {
    if (boost::get_error_info<ruk::ResultCodeInfo>(error) == nullptr &&
        boost::get_error_info<ErrorContextInfo>(error) == nullptr) {
        error << ErrorContextInfo(DescribeFailure(name, error));
    }
}

void TraceManifest(const TracerPtr& tracer, const char* format, const boost::filesystem::path& path,
                   const Manifest& manifest) {
    if (tracer && tracer->IsEnabled(trace_level::Detail)) {
        tracer->Write(trace_level::Detail,
                      MessageFormat(format, PathToUtf8(path)) + "\n" + PrintManifest(manifest));
    }
}

}  // namespace

File::File(TracerPtr tracer) : tracer_(std::move(tracer)) {}

ManifestPtr File::Read(ruk::IIO& io, const std::string& origin) const {
    std::uint64_t size = 0;
    if (ruk::Succeeded(io.GetSize(&size))) {
        CheckXmlTextSize(size);
    }
    ReadContext context(tracer_.get(), origin);
    // A manifest of usual size is read once and held: its records are then
    // built from the very bytes that were checked. A larger one is read
    // again record by record, so that memory follows the records.
    try {
        std::string text;
        const ruk::result_t held = ruk::ReadWhole(io, kHeldTextSize, &text);
        if (ruk::Succeeded(held)) {
            MemoryTextSource source(text.data(), text.size());
            return ReadManifest(source, context);
        }
        if (held != ruk::result::OutOfRange) {
            CheckStream(held, CantReadStream());
        }
        StreamTextSource source(io);
        return ReadManifest(source, context);
    } catch (boost::exception& error) {
        AttachLocation(origin, error);
        throw;
    }
}

ManifestPtr File::Load(const boost::filesystem::path& path, const FilterEvaluator* filter) const {
    auto io = OpenFile(path, ruk::OpenMode::Read, path);
    ManifestPtr manifest;
    try {
        manifest = Read(*io, PathToUtf8(path));
        RegisterEnvironment(*manifest, std::make_shared<Environment>(path, tracer_), filter);
    } catch (boost::exception& error) {
        AttachLocation(PathToUtf8(path), error);
        throw;
    }
    TraceManifest(tracer_, ManifestLoaded(), path, *manifest);
    return manifest;
}

void File::Write(const Manifest& manifest, ruk::IIO& io) const {
    const std::string text = PrintManifestXml(manifest);
    CheckStream(io.SetSize(0), CantWriteStream());
    CheckStream(io.Seek(0, ruk::SeekOrigin::Begin, nullptr), CantWriteStream());
    std::size_t written = 0;
    CheckStream(io.Write(text.data(), text.size(), &written), CantWriteStream());
    if (written != text.size()) {
        ICT_THROW(Exception(MessageFormat(PartialWrite(), written, text.size())));
    }
    CheckStream(io.Flush(), CantWriteStream());
}

void File::Store(const Manifest& manifest, const boost::filesystem::path& path) const {
    const auto folder = path.has_parent_path() ? path.parent_path() : boost::filesystem::path(".");
    const auto temporary =
        folder / boost::filesystem::unique_path(path.filename().native() +
                                                boost::filesystem::path(".%%%%-%%%%.tmp").native());
    try {
        {
            auto io = OpenFile(temporary, ruk::OpenMode::CreateReadWrite, path);
            Write(manifest, *io);
        }
        boost::system::error_code error;
        boost::filesystem::rename(temporary, path, error);
        if (error) {
            ICT_THROW(
                Exception(MessageFormat(CantReplaceFile(), PathToUtf8(path), error.message())));
        }
    } catch (...) {
        boost::system::error_code ignored;
        boost::filesystem::remove(temporary, ignored);
        throw;
    }
    TraceManifest(tracer_, ManifestStored(), path, manifest);
}

}  // namespace integrity_check_tool::xml
