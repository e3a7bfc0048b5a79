// `integrity_signer dsvm`: GOST 2012 sign-in-object signatures.
#include <iostream>
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
    po::options_description all = VisibleOptions();
    all.add_options()("file", po::value<std::vector<std::string>>(), "file to sign");
    po::positional_options_description positional;
    positional.add("file", -1);
    po::variables_map options;
    try {
        po::store(po::command_line_parser(arguments).options(all).positional(positional).run(),
                  options);
        po::notify(options);
    } catch (const po::error& error) {
        std::cerr << BadOptions() << error.what() << "\n" << Usage() << VisibleOptions();
        return 1;
    }
    if (options.count("help") != 0) {
        std::cout << Usage() << VisibleOptions();
        return 0;
    }
    if (options.count("key") == 0) {
        std::cerr << NoKey() << "\n" << Usage() << VisibleOptions();
        return 1;
    }
    if (options.count("file") == 0) {
        std::cerr << NoFiles() << "\n" << Usage() << VisibleOptions();
        return 1;
    }
    const DsvmSigner signer(options["key"].as<std::string>());
    const bool replace = options.count("replace") != 0;
    return SignEach(options["file"].as<std::vector<std::string>>(),
                    [&](const boost::filesystem::path& file) { signer.Sign(file, replace); });
}

}  // namespace

Command DsvmCommand() {
    return {"dsvm", "append a GOST 2012 (DSVM2) signature", &Run};
}

}  // namespace integrity_check_tool::signer
