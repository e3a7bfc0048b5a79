#include "program_main.h"

#include <iostream>
#include <string>
#include <vector>

#include <boost/exception/diagnostic_information.hpp>

#include "application.h"
#include "arguments/checker.h"
#include "platform/console_text.h"
#include "platform/locale.h"

namespace integrity_check_tool {
namespace {

enum class Outcome { HelpShown, Succeeded, Failed };

Outcome Run(const std::vector<std::string>& commandLine, std::shared_ptr<Arguments> arguments,
            std::shared_ptr<const CheckerArguments> checkerArguments) {
    arguments->Parse(commandLine);
    if (arguments->IsHelpRequested()) {
        arguments->PrintHelp(std::cout);
        return Outcome::HelpShown;
    }
    auto configuration = arguments->BuildConfiguration();
    auto application = std::make_unique<Application>(configuration, checkerArguments);
    const bool succeeded = application->Run();
    // The tracer goes with the application, before the final word is printed.
    application.reset();
    configuration.reset();
    checkerArguments.reset();
    arguments.reset();
    return succeeded ? Outcome::Succeeded : Outcome::Failed;
}

}  // namespace

int RunProgramMain(int argc, char* argv[], std::shared_ptr<Arguments> arguments,
                   std::shared_ptr<const CheckerArguments> checkerArguments) {
    platform::SetUserLocale();
    platform::ShowTextOnConsoleAsCharacters();
    try {
        switch (Run(std::vector<std::string>(argv, argv + argc), std::move(arguments),
                    std::move(checkerArguments))) {
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

}  // namespace integrity_check_tool
