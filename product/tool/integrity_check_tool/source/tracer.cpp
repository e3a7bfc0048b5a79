#include "tracer.h"

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "platform/file_replacement.h"
#include "ruk/exception.h"

namespace integrity_check_tool {
namespace {

// The location that names a failing construction step in "Expression failed".
constexpr const char* kTracerSource = "product/tool/integrity_check_tool/source/tracer";

const char* CantOpenTraceFile() {
    return "Can't open trace file %1%. Reason: %2%";
}

}  // namespace

Tracer::Tracer(ruk::IServiceLocator* locator, unsigned level,
               const boost::optional<boost::filesystem::path>& tracePath) {
    try {
        PrivateConstruct(locator, level, tracePath);
    } catch (...) {
        ICT_THROW(Exception(
            MessageFormat("Can't create tracer. Reason: %1%", CurrentExceptionDiagnostic())));
    }
}

Tracer::Tracer(unsigned level, ruk::intrusive_ptr<ruk::ITraceChannel> channel) : level_(level) {
    RUK_ASSERT(ruk::Succeeded(ruk::GetRootServiceLocator()->CreateTracer(&tracer_)));
    RUK_ASSERT(ruk::Succeeded(tracer_->SetLevel(level)));
    RUK_ASSERT(ruk::Succeeded(tracer_->AttachChannel(channel)));
}

void Tracer::PrivateConstruct(ruk::IServiceLocator* locator, unsigned level,
                              const boost::optional<boost::filesystem::path>& tracePath) {
    if (tracePath) {
        boost::optional<platform::FileKind> kind;
        const ruk::result_t found = platform::GetFileKind(*tracePath, &kind);
        if (ruk::Succeeded(found) && kind && *kind != platform::FileKind::Regular) {
            ICT_THROW(Exception(MessageFormat("Trace path %1% is not a file", *tracePath)));
        }
    }
    RUK_ASSERT_AT(locator != nullptr && ruk::Succeeded(locator->CreateTracer(&tracer_)),
                  kTracerSource, __LINE__);
    RUK_ASSERT_AT(ruk::Succeeded(tracer_->SetLevel(level)), kTracerSource, __LINE__);

    ruk::intrusive_ptr<ruk::ITraceChannel> channel;
    if (tracePath) {
        // The user needs the file and the system's own reason, not an assertion.
        const ruk::result_t opened = ruk::CreateFileTraceChannel(*tracePath, &channel);
        if (ruk::Failed(opened)) {
            ICT_THROW(Exception(MessageFormat(CantOpenTraceFile(), tracePath->string(),
                                              ruk::GetResultText(opened))));
        }
    } else {
        RUK_ASSERT_AT(ruk::Succeeded(ruk::CreateConsoleTraceChannel(&channel)), kTracerSource,
                      __LINE__);
    }
    RUK_ASSERT_AT(ruk::Succeeded(tracer_->AttachChannel(channel)), kTracerSource, __LINE__);
    level_ = level;
    writesToFile_ = static_cast<bool>(tracePath);
}

void Tracer::Write(unsigned level, const std::string& text) const {
    if (IsEnabled(level)) {
        tracer_->Write(level, text);
    }
}

}  // namespace integrity_check_tool
