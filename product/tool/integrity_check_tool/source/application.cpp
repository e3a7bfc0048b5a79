#include "application.h"

#include "arguments/checker.h"
#include "build_info.h"
#include "common/configuration_dump.h"
#include "common/trace_level.h"
#include "common/version.h"
#include "factory/factory.h"
#include "ruk/exception.h"

namespace integrity_check_tool {
namespace {

// Where a failed service query is reported; fixed, it is part of the
// documented diagnostic output.
constexpr const char* kApplicationSource = "product/tool/integrity_check_tool/source/application";
constexpr int kServiceQueryLine = 89;

const char* VersionLine() {
    return "Version %1%";
}
const char* SchemaVersionLine() {
    return "Schema version: %1%";
}
const char* TrustSetLine() {
    return "Trust set: %1%";
}
const char* ConfigurationDump() {
    return "Application configuration:\n%1%";
}

}  // namespace

Application::Application(std::shared_ptr<const ApplicationConfiguration> configuration,
                         std::shared_ptr<const CheckerArguments> arguments)
    : Application(std::move(configuration), std::move(arguments), ruk::GetRootServiceLocator()) {}

Application::Application(std::shared_ptr<const ApplicationConfiguration> configuration,
                         std::shared_ptr<const CheckerArguments> arguments,
                         ruk::IServiceLocator* locator)
    : configuration_(std::move(configuration)), arguments_(std::move(arguments)) {
    RUK_ASSERT_AT(locator != nullptr && ruk::Succeeded(locator->GetService(&service_)) && service_,
                  kApplicationSource, kServiceQueryLine);
    tracer_ = std::make_shared<Tracer>(locator, configuration_->logLevel, configuration_->logFile);
    tracer_->Trace(trace_level::Startup, VersionLine(), GetProductVersion());
    tracer_->Trace(trace_level::Startup, SchemaVersionLine(), kManifestSchemaVersion);
    tracer_->Trace(trace_level::Startup, TrustSetLine(), ICT_TRUST_SET_NAME);
    if (tracer_->IsEnabled(trace_level::Detail)) {
        tracer_->Write(trace_level::Detail,
                       MessageFormat(ConfigurationDump(), DumpConfiguration(*configuration_)));
    }
}

bool Application::Run() {
    const auto factory = std::make_shared<Factory>(tracer_, configuration_, arguments_);
    return factory->CreateAction()->Execute();
}

}  // namespace integrity_check_tool
