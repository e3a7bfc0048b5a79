#include "action/normalize.h"

#include <iostream>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "manifest/path_text.h"
#include "platform/file_replacement.h"
#include "ruk/exception.h"
#include "utils/atomic_file.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

const char* ManifestNormalized() {
    return "Manifest %1% normalized";
}
const char* NormalizationFailed() {
    return "Normalization of manifest %1% failed. Reason: %2%";
}
const char* CantOpenFile() {
    return "Can't open manifest file %1%. Reason: %2%";
}
const char* IsDirectory() {
    return "it is a directory, not a regular file";
}
const char* NotRegularFile() {
    return "it is not a regular file";
}
const char* TooLarge() {
    return "it is larger than %1% bytes";
}

// No manifest is near this size; a larger file is not one.
constexpr std::uint64_t kLargestManifest = 256ULL * 1024 * 1024;

struct ReadManifest {
    ManifestPtr manifest;
    platform::FileStamp stamp;
};

// Only a regular file is read, through the handle it was opened with, so a
// device or FIFO is never read from and the stamp belongs to what was read.
ReadManifest ReadRegularManifest(const xml::File& file, const boost::filesystem::path& path) {
    std::vector<std::uint8_t> bytes;
    ReadManifest read;
    platform::FileKind kind = platform::FileKind::Other;
    const ruk::result_t result =
        platform::ReadRegularFile(path, kLargestManifest, &bytes, &read.stamp, &kind);
    std::string reason;
    if (result == ruk::result::OutOfRange) {
        reason = MessageFormat(TooLarge(), kLargestManifest);
    } else if (ruk::Failed(result)) {
        reason = ruk::GetResultText(result);
    } else if (kind == platform::FileKind::Directory) {
        reason = IsDirectory();
    } else if (kind != platform::FileKind::Regular) {
        reason = NotRegularFile();
    }
    if (!reason.empty()) {
        ICT_THROW(Exception(MessageFormat(CantOpenFile(), PathToUtf8(path), reason)));
    }
    const auto io = ruk::CreateMemoryIO(std::move(bytes));
    read.manifest = file.Read(*io, PathToUtf8(path));
    return read;
}

}  // namespace

Normalize::Normalize(TracerPtr tracer, NormalizeSettings settings)
    : tracer_(std::move(tracer)), settings_(std::move(settings)) {}

std::string Normalize::GetName() const {
    return "Normalize";
}

bool Normalize::Execute() {
    const std::string name = PathToUtf8(settings_.manifestPath);
    try {
        const xml::File file(tracer_);
        const ReadManifest read = ReadRegularManifest(file, settings_.manifestPath);
        WriteFileAtomically(
            settings_.manifestPath, [&](ruk::IIO& io) { file.Write(*read.manifest, io); },
            &read.stamp);
    } catch (...) {
        // Where it happened comes first, on a line of its own.
        const std::string context = CurrentExceptionContext();
        const std::string failed =
            MessageFormat(NormalizationFailed(), name, CurrentExceptionText());
        for (const std::string* line : {&context, &failed}) {
            if (line->empty()) {
                continue;
            }
            tracer_->Write(trace_level::Error, *line);
            // This action has no console writer; a log file must not hide the reason.
            if (tracer_->WritesToFile()) {
                std::cerr << *line << std::endl;
            }
        }
        return false;
    }
    tracer_->Trace(trace_level::Info, ManifestNormalized(), name);
    return true;
}

}  // namespace integrity_check_tool::action
