#pragma once

#include <memory>

#include "common/configuration.h"
#include "ruk/intrusive_ptr.h"
#include "ruk/service_locator.h"
#include "tracer.h"

namespace integrity_check_tool {

class CheckerArguments;

// One run of the tool: holds the framework service and the tracer for the
// run's lifetime, writes the start-up lines and runs the configured actions.
class Application {
public:
    // Throws when the framework service or the tracer cannot be had.
    Application(std::shared_ptr<const ApplicationConfiguration> configuration,
                std::shared_ptr<const CheckerArguments> arguments);
    // The same over another service locator; for tests.
    Application(std::shared_ptr<const ApplicationConfiguration> configuration,
                std::shared_ptr<const CheckerArguments> arguments, ruk::IServiceLocator* locator);

    // True when every action that ran succeeded.
    bool Run();

    const TracerPtr& GetTracer() const { return tracer_; }

private:
    std::shared_ptr<const ApplicationConfiguration> configuration_;
    std::shared_ptr<const CheckerArguments> arguments_;
    ruk::intrusive_ptr<ruk::IService> service_;
    TracerPtr tracer_;
};

}  // namespace integrity_check_tool
