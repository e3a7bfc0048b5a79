// `integrity_signer vds`: VDS signatures (CMS SignedData appended to the file).
#include <iostream>
#include <string>
#include <vector>

#include <boost/optional.hpp>
#include <boost/program_options.hpp>

#include "command.h"
#include "vds/signing.h"

namespace integrity_check_tool::signer {
namespace {

namespace po = boost::program_options;

const char* Usage() {
    return "Usage: integrity_signer vds --cert LEAF.pem --key KEY.pem [--chain CHAIN.pem]\n"
           "                            [--with-filename] [--replace] FILE...\n"
           "Appends a VDS signature (CMS SignedData with the certificate chain, then a\n"
           "trailer) to each FILE, in place.\n";
}
const char* Missing() {
    return "integrity_signer vds: --cert and --key are required";
}
const char* NoFiles() {
    return "integrity_signer vds: no files to sign";
}
const char* BadOptions() {
    return "integrity_signer vds: ";
}

po::options_description VisibleOptions() {
    po::options_description options("Options");
    options.add_options()                                                                  //
        ("help,h", "show this help")                                                       //
        ("cert,c", po::value<std::string>(), "signer's certificate, PEM")                  //
        ("key,k", po::value<std::string>(), "signer's private key, PEM")                   //
        ("chain", po::value<std::string>(), "certificates to include (issuing CAs), PEM")  //
        ("with-filename", "bind the signature to the file's name")                         //
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
    if (options.count("cert") == 0 || options.count("key") == 0) {
        std::cerr << Missing() << "\n" << Usage() << VisibleOptions();
        return 1;
    }
    if (options.count("file") == 0) {
        std::cerr << NoFiles() << "\n" << Usage() << VisibleOptions();
        return 1;
    }
    boost::optional<boost::filesystem::path> chain;
    if (options.count("chain") != 0) {
        chain = boost::filesystem::path(options["chain"].as<std::string>());
    }
    const ::vds::signing::SignerMaterial material = ::vds::signing::LoadSignerMaterial(
        options["cert"].as<std::string>(), options["key"].as<std::string>(), chain);
    const bool withFileName = options.count("with-filename") != 0;
    const bool replace = options.count("replace") != 0;
    return SignEach(
        options["file"].as<std::vector<std::string>>(), [&](const boost::filesystem::path& file) {
            ::vds::signing::SignOptions sign;
            sign.replace = replace;
            if (withFileName) {
                sign.additionalContent = ::vds::signing::FileNameContent(file.filename().string());
            }
            ::vds::signing::SignFile(file, material, sign);
        });
}

}  // namespace

Command VdsCommand() {
    return {"vds", "append a VDS (CMS) signature", &Run};
}

}  // namespace integrity_check_tool::signer
