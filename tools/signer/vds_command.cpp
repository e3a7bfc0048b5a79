// `integrity_signer vds`: VDS signatures (CMS SignedData in a program's
// certificate table, or appended to any other file).
#include <string>
#include <vector>

#include <boost/optional.hpp>
#include <boost/program_options.hpp>

#include "command.h"
#include "common/signed_file_name.h"
#include "vds/signing.h"

namespace integrity_check_tool::signer {
namespace {

namespace po = boost::program_options;

const char* Usage() {
    return "Usage: integrity_signer vds --cert LEAF.pem --key KEY.pem [--chain CHAIN.pem]\n"
           "                            [--with-filename] [--replace] FILE...\n"
           "Signs each FILE in place with a VDS signature (CMS SignedData with the\n"
           "certificate chain): a Windows program (PE) in its certificate table,\n"
           "Authenticode style, with its checksum updated; any other file by appending\n"
           "the signature and a trailer.\n";
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
    po::variables_map options;
    if (const auto exitCode = ParseSubcommand(
            arguments,
            {Usage(), BadOptions(), VisibleOptions(), {"cert", "key"}, Missing(), NoFiles()},
            options)) {
        return *exitCode;
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
        options["file"].as<std::vector<std::string>>(),
        [&](const boost::filesystem::path& file, const boost::filesystem::path& target) {
            ::vds::signing::SignOptions sign;
            sign.replace = replace;
            if (withFileName) {
                // The checker's own rule on the name it is given (the link's), so
                // that both bind the same name.
                sign.additionalContent = SignedFileNameBytes(file);
            }
            ::vds::signing::SignFile(target, material, sign);
        });
}

}  // namespace

Command VdsCommand() {
    return {"vds", "sign with a VDS (CMS) signature", &Run};
}

}  // namespace integrity_check_tool::signer
