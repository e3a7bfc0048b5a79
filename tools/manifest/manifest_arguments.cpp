#include "manifest_arguments.h"

#include <ostream>
#include <set>
#include <stdexcept>

#include <boost/filesystem/operations.hpp>

#include "arguments/option_values.h"
#include "arguments/options.h"
#include "common/message_format.h"
#include "generate/nt_version.h"
#include "generate/parallel_jobs.h"

namespace po = boost::program_options;

namespace integrity_check_tool {
namespace {

namespace name {
constexpr const char* Command = "command";
constexpr const char* Operand = "operand";
constexpr const char* Config = "config";
constexpr const char* Output = "output";
constexpr const char* Version = "version";
constexpr const char* Arch = "arch";
constexpr const char* Edition = "edition";
constexpr const char* Type = "type";
constexpr const char* Threads = "threads";
}  // namespace name

namespace command {
constexpr const char* Generate = "generate";
constexpr const char* Normalize = "normalize";
constexpr const char* Hash = "hash";
}  // namespace command

const char* Usage() {
    return "Makes and maintains manifests for integrity_checker.\n"
           "Usage:\n"
           "  %1% generate --config FILE --output MANIFEST [--version V] [--arch A] [--edition E]\n"
           "           [--threads N]\n"
           "      write the manifest that the generation configuration FILE describes\n"
           "  %1% normalize MANIFEST\n"
           "      rewrite MANIFEST in place in the current dialect\n"
           "  %1% hash --type Sha256|Gost2012|Value FILE\n"
           "      print the value of FILE in hexadecimal\n";
}
const char* ConfigDescription() {
    return "generation configuration (generate)";
}
const char* OutputDescription() {
    return "manifest to write (generate)";
}
const char* VersionDescription() {
    return "lowest Windows NT version the records apply to, e.g. 10.0 or 1000 (generate)";
}
const char* ArchDescription() {
    return "architecture the records apply to( %1% ) (generate)";
}
const char* EditionDescription() {
    return "edition the records apply to( %1% ) (generate)";
}
const char* ThreadsDescription() {
    return "threads that compute file values, 1 or more; the manifest is the same for any "
           "number (generate; default: one per core, here %1%)";
}
const char* TypeDescription() {
    return "value to print( Sha256 | Gost2012 | Value ) (hash)";
}

const char* CommandMissing() {
    return "A command is needed: generate, normalize or hash";
}
const char* UnknownCommand() {
    return "Unknown command %1%: use generate, normalize or hash";
}
const char* OptionNotForCommand() {
    return "Option --%1% does not apply to %2%";
}
const char* OptionMissing() {
    return "%1% needs the option --%2%";
}
const char* OperandMissing() {
    return "%1% needs a %2% to work on";
}
const char* OperandNotExpected() {
    return "%1% takes no operand, but %2% was given";
}
const char* NotAThreadCount() {
    return "Invalid thread count %1%: use a number from 1 to %2%";
}
const char* NotAHashType() {
    return "Invalid hash type %1%: use Sha256, Gost2012 or Value";
}

// What each command accepts, needs, and the name of its operand (empty: none).
struct CommandRules {
    std::set<std::string> allowed;
    std::vector<const char*> required;
    const char* operand;
};

const CommandRules* FindRules(const std::string& name) {
    static const CommandRules generate{
        {name::Config, name::Output, name::Version, name::Arch, name::Edition, name::Threads},
        {name::Config, name::Output},
        ""};
    static const CommandRules normalize{{}, {}, "MANIFEST"};
    static const CommandRules hash{{name::Type}, {name::Type}, "FILE"};
    if (name == command::Generate) {
        return &generate;
    }
    if (name == command::Normalize) {
        return &normalize;
    }
    if (name == command::Hash) {
        return &hash;
    }
    return nullptr;
}

CheckType ParseHashType(const std::string& text) {
    const CheckType type = ParseOptionValue<CheckType>(text);
    if (type != CheckType::Sha256 && type != CheckType::Gost2012 && type != CheckType::Value) {
        throw std::invalid_argument(MessageFormat(NotAHashType(), text));
    }
    return type;
}

// Far more threads than cores only costs memory; the bound keeps a typo
// from asking the system for millions.
constexpr unsigned kMaxThreads = 256;

unsigned ParseThreadCount(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= 3 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long count = digits ? std::stoul(text) : 0;
    if (count < 1 || count > kMaxThreads) {
        throw std::invalid_argument(MessageFormat(NotAThreadCount(), text, kMaxThreads));
    }
    return static_cast<unsigned>(count);
}

boost::filesystem::path Absolute(const std::string& text) {
    // Windows' absolute form of "/x" is "C:/x": shown with the system's own separators.
    return boost::filesystem::absolute(boost::filesystem::path(text))
        .lexically_normal()
        .make_preferred();
}

}  // namespace

std::string ManifestToolArguments::GetToolName() const {
    return "integrity_manifest";
}

void ManifestToolArguments::PrintHelp(std::ostream& stream) const {
    stream << MessageFormat(Usage(), GetToolName()) << GetVisibleOptions();
}

po::options_description ManifestToolArguments::GetVisibleOptions() const {
    po::options_description options(option::VisibleCaption());
    // clang-format off
    options.add_options()
        (option::Help, option::HelpDescription())
        (option::Trace, po::value<std::string>(), option::TraceDescription())
        (name::Config, po::value<std::string>(), ConfigDescription())
        (name::Output, po::value<std::string>(), OutputDescription())
        (name::Version, po::value<std::string>(), VersionDescription())
        (name::Arch, po::value<std::string>(),
         MessageFormat(ArchDescription(), JoinNames<Arch>()).c_str())
        (name::Edition, po::value<std::string>(),
         MessageFormat(EditionDescription(), JoinNames<OsEdition>()).c_str())
        (name::Threads, po::value<std::string>(),
         MessageFormat(ThreadsDescription(), generate::DefaultThreadCount()).c_str())
        (name::Type, po::value<std::string>(), TypeDescription());
    // clang-format on
    return options;
}

po::options_description ManifestToolArguments::GetHiddenOptions() const {
    po::options_description options(option::HiddenCaption());
    // clang-format off
    options.add_options()
        (option::Program, po::value<std::string>())
        (name::Command, po::value<std::string>())
        (name::Operand, po::value<std::string>());
    // clang-format on
    return options;
}

po::positional_options_description ManifestToolArguments::GetPositionalOptions() const {
    po::positional_options_description positional;
    positional.add(option::Program, 1).add(name::Command, 1).add(name::Operand, 1);
    return positional;
}

void ManifestToolArguments::Parse(const std::vector<std::string>& arguments) {
    Arguments::Parse(arguments);
    if (!IsHelpRequested()) {
        Validate();
    }
}

bool ManifestToolArguments::Has(const char* option) const {
    return GetOptions().count(option) != 0;
}

std::string ManifestToolArguments::GetText(const char* option) const {
    return Has(option) ? GetOptions()[option].as<std::string>() : std::string();
}

std::string ManifestToolArguments::GetCommand() const {
    return GetText(name::Command);
}

void ManifestToolArguments::Validate() const {
    const std::string command = GetCommand();
    const CommandRules* rules = FindRules(command);
    try {
        if (command.empty()) {
            throw std::invalid_argument(CommandMissing());
        }
        if (rules == nullptr) {
            throw std::invalid_argument(MessageFormat(UnknownCommand(), command));
        }
        for (const char* option : {name::Config, name::Output, name::Version, name::Arch,
                                   name::Edition, name::Threads, name::Type}) {
            if (Has(option) && rules->allowed.count(option) == 0) {
                throw std::invalid_argument(MessageFormat(OptionNotForCommand(), option, command));
            }
        }
        for (const char* option : rules->required) {
            if (!Has(option)) {
                throw std::invalid_argument(MessageFormat(OptionMissing(), command, option));
            }
        }
        const bool needsOperand = *rules->operand != '\0';
        if (needsOperand && !Has(name::Operand)) {
            throw std::invalid_argument(MessageFormat(OperandMissing(), command, rules->operand));
        }
        if (!needsOperand && Has(name::Operand)) {
            throw std::invalid_argument(
                MessageFormat(OperandNotExpected(), command, GetText(name::Operand)));
        }
        if (Has(name::Type)) {
            ParseHashType(GetText(name::Type));
        }
        if (Has(name::Threads)) {
            ParseThreadCount(GetText(name::Threads));
        }
    } catch (const std::invalid_argument& error) {
        RethrowWithHelp(error);
    }
    // A bad value names itself, like the checker's option values do.
    if (Has(name::Arch)) {
        ParseOptionValue<Arch>(GetText(name::Arch));
    }
    if (Has(name::Edition)) {
        ParseOptionValue<OsEdition>(GetText(name::Edition));
    }
    if (Has(name::Version)) {
        generate::ParseNtVersion(GetText(name::Version));
    }
}

std::shared_ptr<ApplicationConfiguration> ManifestToolArguments::BuildConfiguration() const {
    auto configuration = std::make_shared<ApplicationConfiguration>();
    if (Has(option::Trace)) {
        configuration->logFile = boost::filesystem::path(GetText(option::Trace));
        configuration->logLevel = 800;
    }
    const std::string command = GetCommand();
    if (command == command::Generate) {
        GenerateSettings settings;
        // Absolute, so that %ProductRoot% (the manifest's folder) is never empty.
        settings.configPath = Absolute(GetText(name::Config));
        settings.manifestPath = Absolute(GetText(name::Output));
        settings.version = GetText(name::Version);
        if (Has(name::Arch)) {
            settings.arch = ParseOptionValue<Arch>(GetText(name::Arch));
            settings.stampArch = true;
        }
        if (Has(name::Edition)) {
            settings.osEdition = ParseOptionValue<OsEdition>(GetText(name::Edition));
            settings.stampOsEdition = true;
        }
        settings.threads = Has(name::Threads) ? ParseThreadCount(GetText(name::Threads))
                                              : generate::DefaultThreadCount();
        configuration->generate = std::move(settings);
    } else if (command == command::Normalize) {
        configuration->normalize = NormalizeSettings{Absolute(GetText(name::Operand))};
    } else if (command == command::Hash) {
        SingleFileCheckSettings settings;
        settings.filePath = GetText(name::Operand);
        settings.checkType = ParseHashType(GetText(name::Type));
        configuration->singleFileCheck = std::move(settings);
    }
    return configuration;
}

}  // namespace integrity_check_tool
