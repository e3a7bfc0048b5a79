#include "action/normalize.h"

#include <iostream>

#include "common/exception.h"
#include "common/message_format.h"
#include "common/trace_level.h"
#include "manifest/path_text.h"
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
        const ManifestPtr manifest = file.Load(settings_.manifestPath);
        WriteFileAtomically(settings_.manifestPath,
                            [&](ruk::IIO& io) { file.Write(*manifest, io); });
    } catch (...) {
        const std::string line = MessageFormat(NormalizationFailed(), name, CurrentExceptionText());
        tracer_->Write(trace_level::Error, line);
        // This action has no console writer; a log file must not hide the reason.
        if (tracer_->WritesToFile()) {
            std::cerr << line << std::endl;
        }
        return false;
    }
    tracer_->Trace(trace_level::Info, ManifestNormalized(), name);
    return true;
}

}  // namespace integrity_check_tool::action
