#pragma once

#include <functional>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>
#include <boost/program_options.hpp>

namespace integrity_check_tool::signer {

// One subcommand: `integrity_signer <name> [arguments]`.
struct Command {
    const char* name;
    const char* summary;
    // Gets the arguments after the name; returns the process exit code.
    int (*run)(const std::vector<std::string>& arguments);
};

// Each subcommand defines `Command <Name>Command()` in its own file and is
// listed once in command_list.h.
#define ICT_SIGNER_COMMAND(Name) Command Name##Command();
#include "command_list.h"
#undef ICT_SIGNER_COMMAND

// Every subcommand, in the order of command_list.h.
std::vector<Command> GetCommands();

// What a subcommand's command line is checked against.
struct SubcommandSyntax {
    const char* usage;
    const char* errorPrefix;  // e.g. "integrity_signer dsvm: "
    boost::program_options::options_description visible;
    std::vector<const char*> required;  // options that must be given
    const char* missingRequired;        // shown when one of them is absent
    const char* noFiles;                // shown when no file is named
};

// Parses the arguments after the subcommand's name, the files as positionals.
// Returns the exit code when the run ends here (help: 0; an error: 1, shown
// with the usage and the options), nothing when `options` is ready to use.
boost::optional<int> ParseSubcommand(const std::vector<std::string>& arguments,
                                     const SubcommandSyntax& syntax,
                                     boost::program_options::variables_map& options);

// Signs each file in turn with `sign`, which throws on failure: prints
// "Signed <file>" or the failure on standard error, goes on with the next
// file, and returns 0 when all were signed, 1 otherwise. `sign` gets the name
// as given and the file to write: for a symbolic link, the file it leads to,
// so that the target is signed and the link stays a link.
int SignEach(const std::vector<std::string>& files,
             const std::function<void(const boost::filesystem::path& named,
                                      const boost::filesystem::path& target)>& sign);

}  // namespace integrity_check_tool::signer
