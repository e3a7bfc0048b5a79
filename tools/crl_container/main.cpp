// integrity_crl_container: packs CRLs into the revocation container the checker
// reads with --crl: a degenerate PKCS#7 SignedData (as `openssl crl2pkcs7`
// writes it), either as a plain file or as the "vdscrl.rdb" container of a
// storage directory, raw or compressed.
#include <iostream>
#include <string>
#include <vector>

#include <boost/filesystem/operations.hpp>
#include <boost/program_options.hpp>

#include "ruk/result.h"
#include "storage/container_writer.h"
#include "vds/signing.h"

namespace {

namespace po = boost::program_options;
namespace fs = boost::filesystem;

const char* Usage() {
    return "Usage: integrity_crl_container (--out DIR [--compress] | --file FILE) CRL...\n"
           "Packs the CRLs (PEM or DER) into a revocation container: the storage\n"
           "container DIR/vdscrl.rdb (created with DIR), or a plain FILE.\n";
}

po::options_description VisibleOptions() {
    po::options_description options("Options");
    options.add_options()                                                        //
        ("help,h", "show this help")                                             //
        ("out,o", po::value<std::string>(), "storage directory for vdscrl.rdb")  //
        ("compress", "store the container zlib-compressed (with --out)")         //
        ("file,f", po::value<std::string>(), "write the container to this file instead");
    return options;
}

int Fail(const std::string& message) {
    std::cerr << "integrity_crl_container: " << message << std::endl;
    return 1;
}

}  // namespace

int main(int argc, char* argv[]) {
    po::options_description all = VisibleOptions();
    all.add_options()("crl", po::value<std::vector<std::string>>(), "CRL file");
    po::positional_options_description positional;
    positional.add("crl", -1);
    po::variables_map options;
    try {
        po::store(po::command_line_parser(argc, argv).options(all).positional(positional).run(),
                  options);
        po::notify(options);
    } catch (const po::error& error) {
        std::cerr << "integrity_crl_container: " << error.what() << "\n"
                  << Usage() << VisibleOptions();
        return 1;
    }
    if (options.count("help") != 0) {
        std::cout << Usage() << VisibleOptions();
        return 0;
    }
    if (options.count("out") + options.count("file") != 1 || options.count("crl") == 0 ||
        (options.count("compress") != 0 && options.count("out") == 0)) {
        std::cerr << Usage() << VisibleOptions();
        return 1;
    }
    std::vector<fs::path> crls;
    for (const auto& crl : options["crl"].as<std::vector<std::string>>()) {
        crls.emplace_back(crl);
    }
    try {
        const std::vector<std::uint8_t> container = vds::signing::MakeRevocationContainer(crls);
        if (options.count("file") != 0) {
            const fs::path file = options["file"].as<std::string>();
            const fs::path directory = fs::absolute(file).parent_path();
            const ruk::result_t code = storage::WriteContainer(
                directory, file.filename().string(), container, storage::ContainerEncoding::Raw);
            if (ruk::Failed(code)) {
                return Fail("Can't write " + file.string() + ": " + ruk::GetResultText(code));
            }
            return 0;
        }
        const fs::path directory = options["out"].as<std::string>();
        boost::system::error_code error;
        fs::create_directories(directory, error);
        if (error) {
            return Fail("Can't create " + directory.string() + ": " + error.message());
        }
        const auto encoding = options.count("compress") != 0
                                  ? storage::ContainerEncoding::Compressed
                                  : storage::ContainerEncoding::Raw;
        const ruk::result_t code =
            storage::WriteContainer(directory, "vdscrl.rdb", container, encoding);
        if (ruk::Failed(code)) {
            return Fail("Can't write " + (directory / "vdscrl.rdb").string() + ": " +
                        ruk::GetResultText(code));
        }
        return 0;
    } catch (const std::exception& error) {
        return Fail(error.what());
    }
}
