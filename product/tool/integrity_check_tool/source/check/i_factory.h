#pragma once

#include <memory>
#include <string>

#include <boost/filesystem/path.hpp>

#include "check/i_checkers.h"
#include "check/i_value_provider.h"
#include "common/configuration.h"
#include "common/enumerations.h"
#include "data_object/i_data_object.h"
#include "manifest/manifest.h"
#include "signature/i_signature_verifier.h"
#include "tracer.h"

namespace integrity_check_tool {

// What the actions and the generator ask of the run's factory. The factory
// that builds the actions implements it, so actions, generator and factory
// never include each other in a circle.
class IFactory {
public:
    virtual ~IFactory() = default;

    virtual ISignatureVerifierPtr CreateSignatureVerifier() const = 0;
    virtual IFileCheckerPtr CreateFileChecker(const CheckInfo& check) const = 0;
    virtual IRegistryCheckerPtr CreateRegistryChecker(const CheckInfo& check) const = 0;
    virtual IDataObjectPtr CreateFile(const boost::filesystem::path& path) const = 0;
    virtual IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& keyPath,
                                          RegistryType expectedType) const = 0;
    virtual IValueProviderPtr CreateValueProvider(CheckType type) const = 0;

    virtual const TracerPtr& GetTracer() const = 0;
    virtual const std::shared_ptr<const ApplicationConfiguration>& GetConfiguration() const = 0;
};

using IFactoryPtr = std::shared_ptr<const IFactory>;

}  // namespace integrity_check_tool
