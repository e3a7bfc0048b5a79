// integrity_manifest: generates, normalizes and hashes for integrity_checker,
// through the checker's own application, factory and actions.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <boost/exception/diagnostic_information.hpp>

#include "application.h"
#include "manifest_arguments.h"
#include "platform/locale.h"

namespace {

enum class Outcome { HelpShown, Succeeded, Failed };

Outcome RunManifestTool(const std::vector<std::string>& commandLine) {
    using namespace integrity_check_tool;
    auto arguments = std::make_shared<ManifestToolArguments>();
    arguments->Parse(commandLine);
    if (arguments->IsHelpRequested()) {
        arguments->PrintHelp(std::cout);
        return Outcome::HelpShown;
    }
    auto configuration = arguments->BuildConfiguration();
    // No checker arguments: this program never verifies.
    auto application = std::make_unique<Application>(configuration, nullptr);
    const bool succeeded = application->Run();
    application.reset();
    return succeeded ? Outcome::Succeeded : Outcome::Failed;
}

}  // namespace

int main(int argc, char* argv[]) {
    integrity_check_tool::platform::SetUserLocale();
    try {
        switch (RunManifestTool(std::vector<std::string>(argv, argv + argc))) {
            case Outcome::HelpShown:
                return 0;
            case Outcome::Succeeded:
                std::cout << "SUCCEEDED" << std::endl;
                return 0;
            case Outcome::Failed:
                break;
        }
        std::cout.flush();
        std::cerr << "FAILED" << std::endl;
        return 1;
    } catch (...) {
        std::cout.flush();
        std::cerr << boost::current_exception_diagnostic_information() << std::endl;
        std::cerr << "FAILED" << std::endl;
        return 1;
    }
}
