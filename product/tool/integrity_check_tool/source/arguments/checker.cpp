#include "arguments/checker.h"

#include <boost/filesystem/operations.hpp>

#include "arguments/option_values.h"
#include "arguments/options.h"
#include "common/exception.h"
#include "common/message_format.h"
#include "platform/file_replacement.h"
#include "platform/program.h"

namespace po = boost::program_options;

namespace integrity_check_tool {
namespace {

const char* ToolName() {
    return "integrity_checker";
}
const char* DefaultManifestName() {
    return "integrity_check.xml";
}

const char* ManifestNotResolved() {
    return "Manifest path %1% can't be resolved. Reason: %2%";
}
const char* ManifestNotRegularFile() {
    return "Manifest path %1% resolved to non-regular file";
}
const char* SingleFileNotResolved() {
    return "Path %1% can't be resolved. Reason: %2%";
}
const char* SingleFileNotRegularFile() {
    return "Path %1% resolved to non-regular file";
}

}  // namespace

std::string CheckerArguments::GetToolName() const {
    return ToolName();
}

po::options_description CheckerArguments::GetHiddenOptions() const {
    po::options_description options = Arguments::GetHiddenOptions();
    // clang-format off
    options.add_options()
        (option::Program, po::value<std::string>())
        (option::Manifest, po::value<std::vector<std::string>>());
    // clang-format on
    return options;
}

po::options_description CheckerArguments::GetVisibleOptions() const {
    po::options_description options(option::VisibleCaption(), option::HelpLineLength);
    // clang-format off
    options.add_options()
        (option::Help, option::HelpDescription())
        (option::Version, option::VersionDescription())
        (option::Verbose, option::VerboseDescription())
        (option::Trace, po::value<std::string>(), option::TraceDescription())
        (option::SignatureType,
         po::value<std::string>()->default_value(ToName(SignatureType::Dsvm2)),
         MessageFormat(option::SignatureTypeDescription(), JoinNames<SignatureType>()).c_str())
        (option::SignatureOnly, option::SignatureOnlyDescription())
        (option::Crl, po::value<std::string>(), option::CrlDescription())
        (option::SingleFile, po::value<std::string>(), option::SingleFileDescription())
        (option::Define, po::value<std::vector<std::string>>(), option::DefineDescription());
    // clang-format on
    return options;
}

// The whole argument vector is parsed, so the first positional is always the
// program's own path and every further one is a manifest.
po::positional_options_description CheckerArguments::GetPositionalOptions() const {
    po::positional_options_description positional;
    positional.add(option::Program, 1);
    positional.add(option::Manifest, -1);
    return positional;
}

std::shared_ptr<ApplicationConfiguration> CheckerArguments::BuildConfiguration() const {
    auto configuration = std::make_shared<ApplicationConfiguration>();
    if (IsVerifyRequested()) {
        VerifySettings verify;
        verify.isVerbose = IsVerbose();
        verify.signatureType = GetSignatureType();
        verify.signatureOnly = IsSignatureOnly();
        verify.manifestPaths = GetManifestPaths();
        verify.crlPath = GetCrlPath();
        verify.singleFilePath = GetSingleFilePath();
        verify.definitions = GetDefinitions();
        configuration->verify = std::move(verify);
    }
    configuration->displayVersion = IsDisplayVersionRequested();
    configuration->logFile = GetTracePath();
    configuration->logLevel = configuration->logFile ? 800u : 600u;
    return configuration;
}

bool CheckerArguments::IsVerifyRequested() const {
    return !IsDisplayVersionRequested();
}

bool CheckerArguments::IsDisplayVersionRequested() const {
    return GetOptions().count(option::Version) != 0;
}

std::set<boost::filesystem::path> CheckerArguments::GetManifestPaths() const {
    std::vector<boost::filesystem::path> given;
    if (GetOptions().count(option::Manifest) != 0) {
        for (const auto& text : GetOptions()[option::Manifest].as<std::vector<std::string>>()) {
            given.emplace_back(text);
        }
    } else {
        // Beside the program, not in the current directory.
        given.push_back(platform::GetProgramLocation().parent_path() / DefaultManifestName());
    }
    // Canonical forms make a relative and an absolute name of one file collapse.
    std::set<boost::filesystem::path> manifests;
    for (const auto& path : given) {
        boost::system::error_code error;
        const boost::filesystem::path resolved = boost::filesystem::canonical(path, error);
        if (error) {
            ICT_THROW(Exception(MessageFormat(ManifestNotResolved(), path, error.message())));
        }
        if (!platform::IsRegularFile(resolved)) {
            ICT_THROW(Exception(MessageFormat(ManifestNotRegularFile(), path)));
        }
        // Windows' canonical form comes back as "Z:/dir\name"; every line that
        // names the manifest shows it with the system's own separators.
        manifests.insert(boost::filesystem::path(resolved).make_preferred());
    }
    return manifests;
}

boost::optional<boost::filesystem::path> CheckerArguments::GetTracePath() const {
    if (GetOptions().count(option::Trace) == 0) {
        return boost::none;
    }
    return boost::filesystem::path(GetOptions()[option::Trace].as<std::string>());
}

boost::optional<boost::filesystem::path> CheckerArguments::GetSingleFilePath() const {
    if (GetOptions().count(option::SingleFile) == 0) {
        return boost::none;
    }
    const boost::filesystem::path given(GetOptions()[option::SingleFile].as<std::string>());
    boost::system::error_code error;
    // Full path, but neither links nor ".." are resolved as text: "link/.."
    // is the link target's parent, which only the file system knows. The
    // manifest lookup resolves the path through the file system itself.
    boost::filesystem::path full =
        boost::filesystem::absolute(given, boost::filesystem::current_path(error));
    if (error) {
        ICT_THROW(Exception(MessageFormat(SingleFileNotResolved(), given, error.message())));
    }
    full.make_preferred();
    if (!platform::IsRegularFile(full)) {
        ICT_THROW(Exception(MessageFormat(SingleFileNotRegularFile(), given)));
    }
    return full;
}

bool CheckerArguments::IsSignatureOnly() const {
    return GetOptions().count(option::SignatureOnly) != 0;
}

}  // namespace integrity_check_tool
