#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <boost/exception/diagnostic_information.hpp>

#include "application.h"
#include "arguments/checker.h"
#include "platform/locale.h"

namespace {

enum class Outcome { HelpShown, Succeeded, Failed };

Outcome RunChecker(const std::vector<std::string>& commandLine) {
    using namespace integrity_check_tool;
    auto arguments = std::make_shared<CheckerArguments>();
    arguments->Parse(commandLine);
    if (arguments->IsHelpRequested()) {
        arguments->PrintHelp(std::cout);
        return Outcome::HelpShown;
    }
    auto configuration = arguments->BuildConfiguration();
    auto application = std::make_unique<Application>(configuration, arguments);
    const bool succeeded = application->Run();
    // The tracer goes with the application, before the final word is printed.
    application.reset();
    configuration.reset();
    arguments.reset();
    return succeeded ? Outcome::Succeeded : Outcome::Failed;
}

}  // namespace

int main(int argc, char* argv[]) {
    integrity_check_tool::platform::SetUserLocale();
    try {
        switch (RunChecker(std::vector<std::string>(argv, argv + argc))) {
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
