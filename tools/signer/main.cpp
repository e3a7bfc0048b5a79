// integrity_signer: signs files for the integrity checker.
#include <iostream>
#include <string>
#include <vector>

#include "command.h"
#include "common/exception.h"
#include "common/message_format.h"

namespace {

using integrity_check_tool::MessageFormat;
using integrity_check_tool::signer::Command;

const char* Usage() {
    return "Usage: integrity_signer <command> [options] FILE...\n"
           "\n"
           "Commands:\n";
}
const char* CommandLine() {
    return "  %-6s %s\n";
}
const char* CommandHelp() {
    return "\nRun 'integrity_signer <command> --help' for the options of a command.\n";
}
const char* UnknownCommand() {
    return "integrity_signer: unknown command '%1%'";
}
const char* Failed() {
    return "integrity_signer: %1%";
}

void PrintUsage(std::ostream& stream, const std::vector<Command>& commands) {
    stream << Usage();
    for (const auto& command : commands) {
        stream << boost::format(CommandLine()) % command.name % command.summary;
    }
    stream << CommandHelp();
}

}  // namespace

int main(int argc, char* argv[]) {
    const std::vector<Command> commands = integrity_check_tool::signer::GetCommands();
    if (argc < 2) {
        PrintUsage(std::cerr, commands);
        return 1;
    }
    const std::string name = argv[1];
    if (name == "--help" || name == "-h" || name == "help") {
        PrintUsage(std::cout, commands);
        return 0;
    }
    for (const auto& command : commands) {
        if (name == command.name) {
            try {
                return command.run(std::vector<std::string>(argv + 2, argv + argc));
            } catch (...) {
                std::cerr << MessageFormat(Failed(), integrity_check_tool::CurrentExceptionText())
                          << std::endl;
                return 1;
            }
        }
    }
    std::cerr << MessageFormat(UnknownCommand(), name) << std::endl;
    PrintUsage(std::cerr, commands);
    return 1;
}
