#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>
#include <boost/program_options.hpp>

#include "common/configuration.h"
#include "common/enumerations.h"

namespace integrity_check_tool {

// How signatures are checked: the release key pair, the test key pair, or
// not at all (every file accepted unread).
enum class SignatureCheckingMode : std::uint32_t { Release = 0, Test = 1, Disabled = 2 };

// What any tool of this kind needs from its command line: help, verbose,
// revocation-list path, definitions and signature type, plus the settings
// that have no option of their own (checking mode, trusted roots).
class Arguments {
public:
    Arguments();

    virtual bool IsHelpRequested() const;
    virtual void PrintHelp(std::ostream& stream) const;
    virtual ~Arguments() = default;
    // Parses the whole argument vector (entry 0 included). Parser errors are
    // rethrown through RethrowWithHelp.
    virtual void Parse(const std::vector<std::string>& arguments);
    virtual void Reserved1() const {}
    virtual std::string GetToolName() const = 0;
    virtual void Reserved2() const {}
    virtual boost::program_options::options_description GetHiddenOptions() const;
    virtual boost::program_options::options_description GetVisibleOptions() const;
    virtual boost::program_options::positional_options_description GetPositionalOptions() const;
    virtual std::shared_ptr<ApplicationConfiguration> BuildConfiguration() const = 0;
    virtual SignatureType GetSignatureType() const;
    virtual bool IsVerbose() const;
    virtual boost::optional<boost::filesystem::path> GetCrlPath() const;
    virtual std::vector<std::string> GetDefinitions() const;

    SignatureCheckingMode GetSignatureCheckingMode() const { return checkingMode_; }
    void SetSignatureCheckingMode(SignatureCheckingMode mode) { checkingMode_ = mode; }
    const std::vector<TrustedRoot>& GetTrustedRoots() const { return trustedRoots_; }
    void SetTrustedRoots(std::vector<TrustedRoot> roots) { trustedRoots_ = std::move(roots); }
    // Overrides the parsed signature type (any value, for the factory's checks).
    void SetSignatureType(SignatureType type) { signatureType_ = type; }

protected:
    const boost::program_options::variables_map& GetOptions() const { return options_; }
    [[noreturn]] void RethrowWithHelp(const std::exception& error) const;

private:
    boost::program_options::variables_map options_;
    boost::optional<SignatureType> signatureType_;
    SignatureCheckingMode checkingMode_ = SignatureCheckingMode::Release;
    std::vector<TrustedRoot> trustedRoots_;  // all four by default
};

}  // namespace integrity_check_tool
