#include "arguments/arguments.h"

#include <ostream>
#include <sstream>

#include <boost/filesystem/operations.hpp>

#include "arguments/option_values.h"
#include "arguments/options.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "platform/file_replacement.h"

namespace po = boost::program_options;

namespace integrity_check_tool {
namespace {

const char* UsageBesideManifest() {
    return "Use to check if the manifest file is in the same folder: %1% [options]";
}
const char* UsageWithManifests() {
    return "Otherwise: %1% [options] manifest...";
}
const char* CrlNotFileOrDirectory() {
    return "CRL path %1% is not a directory or regular file";
}

}  // namespace

Arguments::Arguments()
    : trustedRoots_{TrustedRoot::Root3520p1, TrustedRoot::Root3020d1, TrustedRoot::Root4820d1,
                    TrustedRoot::Root4823d1} {}

bool Arguments::IsHelpRequested() const {
    return options_.count(option::Help) != 0;
}

void Arguments::PrintHelp(std::ostream& stream) const {
    stream << MessageFormat(UsageBesideManifest(), GetToolName()) << '\n';
    stream << MessageFormat(UsageWithManifests(), GetToolName()) << '\n';
    stream << GetVisibleOptions();
}

void Arguments::Parse(const std::vector<std::string>& arguments) {
    po::variables_map options;
    try {
        po::options_description all;
        all.add(GetVisibleOptions()).add(GetHiddenOptions());
        po::store(po::command_line_parser(arguments)
                      .options(all)
                      .positional(GetPositionalOptions())
                      .run(),
                  options);
        po::notify(options);
    } catch (const po::error& error) {
        RethrowWithHelp(error);
    }
    options_ = std::move(options);
    signatureType_.reset();
    if (options_.count(option::SignatureType) != 0) {
        signatureType_ =
            ParseOptionValue<SignatureType>(options_[option::SignatureType].as<std::string>());
    }
}

po::options_description Arguments::GetHiddenOptions() const {
    return po::options_description(option::HiddenCaption());
}

// The options any tool of this kind has; a tool adds its own around them.
po::options_description Arguments::GetVisibleOptions() const {
    po::options_description options(option::VisibleCaption(), option::HelpLineLength);
    // clang-format off
    options.add_options()
        (option::Help, option::HelpDescription())
        (option::Verbose, option::VerboseDescription())
        (option::SignatureType,
         po::value<std::string>()->default_value(ToName(SignatureType::Dsvm2)),
         MessageFormat(option::SignatureTypeDescription(), JoinNames<SignatureType>()).c_str())
        (option::Crl, po::value<std::string>(), option::CrlDescription())
        (option::Define, po::value<std::vector<std::string>>(), option::DefineDescription());
    // clang-format on
    return options;
}

po::positional_options_description Arguments::GetPositionalOptions() const {
    return po::positional_options_description();
}

SignatureType Arguments::GetSignatureType() const {
    return signatureType_.value();
}

bool Arguments::IsVerbose() const {
    return options_.count(option::Verbose) != 0;
}

boost::optional<boost::filesystem::path> Arguments::GetCrlPath() const {
    if (options_.count(option::Crl) == 0) {
        return boost::none;
    }
    const boost::filesystem::path path(options_[option::Crl].as<std::string>());
    boost::optional<platform::FileKind> kind;
    // A missing path is reported later by whoever opens the revocation list.
    if (ruk::Succeeded(platform::GetFileKind(path, &kind)) && kind == platform::FileKind::Other) {
        ICT_THROW(Exception(MessageFormat(CrlNotFileOrDirectory(), path)));
    }
    return path;
}

std::vector<std::string> Arguments::GetDefinitions() const {
    if (options_.count(option::Define) == 0) {
        return {};
    }
    return options_[option::Define].as<std::vector<std::string>>();
}

void Arguments::RethrowWithHelp(const std::exception& error) const {
    std::ostringstream text;
    text << error.what() << "\n\n";
    PrintHelp(text);
    ICT_THROW(Exception(text.str()));
}

}  // namespace integrity_check_tool
