// `integrity_signer dsvm`: GOST 2012 sign-in-object signatures.
#include <string>
#include <vector>

#include <boost/program_options.hpp>

#include "command.h"
#include "dsvm_signing.h"

namespace integrity_check_tool::signer {
namespace {

namespace po = boost::program_options;

const char* Usage() {
    return "Usage: integrity_signer dsvm --key KEY.pem [--replace] FILE...\n"
           "Appends a DSVM2 (GOST R 34.10-2012) signature to each FILE, in place.\n";
}
const char* NoKey() {
    return "integrity_signer dsvm: --key is required";
}
const char* NoFiles() {
    return "integrity_signer dsvm: no files to sign";
}
const char* BadOptions() {
    return "integrity_signer dsvm: ";
}

po::options_description VisibleOptions() {
    po::options_description options("Options");
    options.add_options()                                                            //
        ("help,h", "show this help")                                                 //
        ("key,k", po::value<std::string>(), "private key, PEM (GOST R 34.10-2012)")  //
        ("replace", "replace the signature of a file that is already signed");
    return options;
}

int Run(const std::vector<std::string>& arguments) {
    po::variables_map options;
    if (const auto exitCode = ParseSubcommand(
            arguments, {Usage(), BadOptions(), VisibleOptions(), {"key"}, NoKey(), NoFiles()},
            options)) {
        return *exitCode;
    }
    const DsvmSigner signer(options["key"].as<std::string>());
    const bool replace = options.count("replace") != 0;
    return SignEach(options["file"].as<std::vector<std::string>>(),
                    [&](const boost::filesystem::path&, const boost::filesystem::path& target) {
                        signer.Sign(target, replace);
                    });
}

}  // namespace

Command DsvmCommand() {
    return {"dsvm", "append a GOST 2012 (DSVM2) signature", &Run};
}

}  // namespace integrity_check_tool::signer
