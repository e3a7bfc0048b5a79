#include "command.h"

#include <iostream>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool::signer {
namespace {

const char* Signed() {
    return "Signed %1%";
}
const char* Failed() {
    return "integrity_signer: %1%";
}
const char* CantFollowLink() {
    return "Can't follow the symbolic link %1%: %2%";
}

boost::filesystem::path FileToWrite(const boost::filesystem::path& file) {
    boost::system::error_code error;
    if (!boost::filesystem::is_symlink(boost::filesystem::symlink_status(file, error))) {
        return file;
    }
    const auto target = boost::filesystem::canonical(file, error);
    if (error) {
        ICT_THROW(Exception(MessageFormat(CantFollowLink(), file.string(), error.message())));
    }
    return target;
}

}  // namespace

std::vector<Command> GetCommands() {
    return {
#define ICT_SIGNER_COMMAND(Name) Name##Command(),
#include "command_list.h"
#undef ICT_SIGNER_COMMAND
    };
}

boost::optional<int> ParseSubcommand(const std::vector<std::string>& arguments,
                                     const SubcommandSyntax& syntax,
                                     boost::program_options::variables_map& options) {
    namespace po = boost::program_options;
    po::options_description all;
    all.add(syntax.visible);
    all.add_options()("file", po::value<std::vector<std::string>>(), "file to sign");
    po::positional_options_description positional;
    positional.add("file", -1);
    try {
        po::store(po::command_line_parser(arguments).options(all).positional(positional).run(),
                  options);
        po::notify(options);
    } catch (const po::error& error) {
        std::cerr << syntax.errorPrefix << error.what() << "\n" << syntax.usage << syntax.visible;
        return 1;
    }
    if (options.count("help") != 0) {
        std::cout << syntax.usage << syntax.visible;
        return 0;
    }
    for (const char* name : syntax.required) {
        if (options.count(name) == 0) {
            std::cerr << syntax.missingRequired << "\n" << syntax.usage << syntax.visible;
            return 1;
        }
    }
    if (options.count("file") == 0) {
        std::cerr << syntax.noFiles << "\n" << syntax.usage << syntax.visible;
        return 1;
    }
    return boost::none;
}

int SignEach(const std::vector<std::string>& files,
             const std::function<void(const boost::filesystem::path& named,
                                      const boost::filesystem::path& target)>& sign) {
    int exitCode = 0;
    for (const auto& file : files) {
        try {
            const boost::filesystem::path named(file);
            sign(named, FileToWrite(named));
            std::cout << MessageFormat(Signed(), file) << std::endl;
        } catch (...) {
            std::cerr << MessageFormat(Failed(), CurrentExceptionText()) << std::endl;
            exitCode = 1;
        }
    }
    return exitCode;
}

}  // namespace integrity_check_tool::signer
