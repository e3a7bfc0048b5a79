#pragma once

#include <string>

#include "arguments/arguments.h"

namespace integrity_check_tool {

// The command line of integrity_manifest: one command ("generate",
// "normalize" or "hash") with its options and operand. It fills the
// configuration sections that the checker's command line never fills.
class ManifestToolArguments : public Arguments {
public:
    void PrintHelp(std::ostream& stream) const override;
    // Parses, then checks that the command has what it needs and nothing it
    // can't use; every such error comes with the help text, as parser errors do.
    void Parse(const std::vector<std::string>& arguments) override;
    std::string GetToolName() const override;  // "integrity_manifest"
    boost::program_options::options_description GetHiddenOptions() const override;
    boost::program_options::options_description GetVisibleOptions() const override;
    boost::program_options::positional_options_description GetPositionalOptions() const override;
    std::shared_ptr<ApplicationConfiguration> BuildConfiguration() const override;

private:
    void Validate() const;
    std::string GetCommand() const;
    bool Has(const char* option) const;
    std::string GetText(const char* option) const;
};

}  // namespace integrity_check_tool
