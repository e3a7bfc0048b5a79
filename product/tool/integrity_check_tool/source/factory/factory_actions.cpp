#include <vector>

#include "action/check_signature.h"
#include "action/check_single_file.h"
#include "action/composite.h"
#include "action/display_version.h"
#include "action/generate.h"
#include "action/normalize.h"
#include "action/verify.h"
#include "arguments/checker.h"
#include "common/console_output.h"
#include "common/run_statistics.h"
#include "factory/factory.h"

namespace integrity_check_tool {
namespace {

// One helper per action, so that each can be replaced on its own.

action::IActionPtr CreateDisplayVersionAction() {
    return std::make_shared<action::DisplayVersion>(std::make_shared<ConsoleOutput>(false));
}

action::IActionPtr CreateGenerateAction(const FactoryPtr& factory) {
    return std::make_shared<action::Generate>(factory, std::make_shared<ConsoleOutput>(true));
}

action::IActionPtr CreateVerifyAction(const FactoryPtr& factory, bool verbose) {
    return std::make_shared<action::Verify>(
        *factory->GetConfiguration()->verify, factory->GetTracer(), factory,
        std::make_shared<RunStatistics>(factory->GetTracer(),
                                        std::make_shared<ConsoleOutput>(verbose)));
}

action::IActionPtr CreateCheckSignatureAction(const FactoryPtr& factory, bool verbose) {
    return std::make_shared<action::CheckSignature>(
        *factory->GetConfiguration()->verify, factory->GetTracer(), factory,
        std::make_shared<RunStatistics>(factory->GetTracer(),
                                        std::make_shared<ConsoleOutput>(verbose)));
}

// The normalize action gets no console writer of its own.
action::IActionPtr CreateNormalizeAction(const FactoryPtr& factory) {
    return std::make_shared<action::Normalize>(factory->GetTracer(),
                                               *factory->GetConfiguration()->normalize);
}

action::IActionPtr CreateCheckSingleFileAction(const FactoryPtr& factory) {
    return std::make_shared<action::CheckSingleFile>(*factory->GetConfiguration()->singleFileCheck,
                                                     factory->GetTracer(), factory,
                                                     std::make_shared<ConsoleOutput>(false));
}

}  // namespace

Factory::Factory(TracerPtr tracer, std::shared_ptr<const ApplicationConfiguration> configuration,
                 std::shared_ptr<const CheckerArguments> arguments)
    : tracer_(std::move(tracer)),
      configuration_(std::move(configuration)),
      arguments_(std::move(arguments)) {}

action::IActionPtr Factory::CreateAction() {
    const FactoryPtr self = shared_from_this();
    std::vector<action::IActionPtr> actions;
    if (configuration_->displayVersion) {
        actions.push_back(CreateDisplayVersionAction());
    }
    if (configuration_->generate) {
        actions.push_back(CreateGenerateAction(self));
    }
    if (configuration_->verify) {
        const bool verbose = configuration_->verify->isVerbose;
        actions.push_back(configuration_->verify->signatureOnly
                              ? CreateCheckSignatureAction(self, verbose)
                              : CreateVerifyAction(self, verbose));
    }
    if (configuration_->normalize) {
        actions.push_back(CreateNormalizeAction(self));
    }
    if (configuration_->singleFileCheck) {
        actions.push_back(CreateCheckSingleFileAction(self));
    }
    return std::make_shared<action::Composite>(std::move(actions));
}

}  // namespace integrity_check_tool
