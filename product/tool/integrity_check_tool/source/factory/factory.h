#pragma once

#include <memory>
#include <string>

#include <boost/filesystem/path.hpp>

#include "action/i_action.h"
#include "check/i_factory.h"

namespace integrity_check_tool {

class CheckerArguments;

// Makes what a run needs from its configuration: the actions, the checkers
// for each manifest check, the data objects they read, the value providers
// and the run's signature verifier.
//
// The operations are defined in several files by area: factory_actions.cpp,
// factory_checks.cpp and factory_signature.cpp.
class Factory : public IFactory, public std::enable_shared_from_this<Factory> {
public:
    Factory(TracerPtr tracer, std::shared_ptr<const ApplicationConfiguration> configuration,
            std::shared_ptr<const CheckerArguments> arguments);

    // One "Composite" action holding, in order, every action whose
    // configuration section is present: version display, generate, verify
    // (or signature check), normalize, single-file check.
    virtual action::IActionPtr CreateAction();

    ISignatureVerifierPtr CreateSignatureVerifier() const override;
    IFileCheckerPtr CreateFileChecker(const CheckInfo& check) const override;
    IRegistryCheckerPtr CreateRegistryChecker(const CheckInfo& check) const override;
    IDataObjectPtr CreateFile(const boost::filesystem::path& path) const override;
    IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& keyPath,
                                  RegistryType expectedType) const override;
    IValueProviderPtr CreateValueProvider(CheckType type) const override;

    const TracerPtr& GetTracer() const override { return tracer_; }
    const std::shared_ptr<const ApplicationConfiguration>& GetConfiguration() const override {
        return configuration_;
    }
    const std::shared_ptr<const CheckerArguments>& GetArguments() const { return arguments_; }

private:
    TracerPtr tracer_;
    std::shared_ptr<const ApplicationConfiguration> configuration_;
    std::shared_ptr<const CheckerArguments> arguments_;
};

using FactoryPtr = std::shared_ptr<Factory>;

}  // namespace integrity_check_tool
