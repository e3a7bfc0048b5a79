#pragma once

#include <set>

#include "arguments/arguments.h"

namespace integrity_check_tool {

// The checker's command line: its options, hidden "program" and "manifest"
// positionals, usage text and the configuration builder.
class CheckerArguments : public Arguments {
public:
    std::string GetToolName() const override;  // "integrity_checker"
    boost::program_options::options_description GetHiddenOptions() const override;
    boost::program_options::options_description GetVisibleOptions() const override;
    boost::program_options::positional_options_description GetPositionalOptions() const override;
    std::shared_ptr<ApplicationConfiguration> BuildConfiguration() const override;

    virtual bool IsVerifyRequested() const;
    virtual bool IsDisplayVersionRequested() const;
    virtual std::set<boost::filesystem::path> GetManifestPaths() const;
    virtual boost::optional<boost::filesystem::path> GetTracePath() const;
    virtual boost::optional<boost::filesystem::path> GetSingleFilePath() const;
    virtual bool IsSignatureOnly() const;
};

}  // namespace integrity_check_tool
