#include "support/vds/vds_material.h"
#include "common/signed_file_name.h"

#include <stdexcept>

#include <boost/process/search_path.hpp>

#include "support/file_helpers.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
#include "vds/signature_format.h"

namespace ict_test::vds {

namespace fs = boost::filesystem;

static fs::path TrustDir() {
    return SourceDir() / "trust" / "development";
}

fs::path PrivateVdsDir() {
    return TrustDir() / "private" / "vds";
}

Bytes ReadBytes(const fs::path& path) {
    const std::string text = ReadText(path);
    return Bytes(text.begin(), text.end());
}

Bytes RootCertificate(const std::string& name) {
    return ReadBytes(TrustDir() / "roots" / (name + ".der"));
}

Bytes Purpose() {
    const Bytes der = ReadBytes(TrustDir() / "purpose.der");
    return Bytes(der.begin() + 2, der.end());  // tag and one-byte length
}

namespace {

boost::optional<fs::path> ChainOf(const std::string& name, bool withRoot) {
    if (name == "signer-direct") {
        return boost::none;
    }
    if (name == "unknown-signer") {
        return withRoot ? boost::optional<fs::path>(PrivateVdsDir() / "unknown-root.pem")
                        : boost::none;
    }
    return PrivateVdsDir() / "signing-ca.pem";
}

}  // namespace

::vds::signing::SignerMaterial Signer(const std::string& name, bool withRoot) {
    return ::vds::signing::LoadSignerMaterial(PrivateVdsDir() / (name + ".pem"),
                                              PrivateVdsDir() / (name + ".key.pem"),
                                              ChainOf(name, withRoot));
}

void Sign(const fs::path& file, const std::string& signer, bool bindFileName) {
    ::vds::signing::SignOptions options;
    if (bindFileName) {
        options.additionalContent = integrity_check_tool::SignedFileNameBytes(file);
    }
    ::vds::signing::SignFile(file, Signer(signer), options);
}

void SignWithOpenSslCommand(const fs::path& file, const std::string& signer) {
    TempDir scratch;
    const fs::path signature = scratch / "signature.der";
    RunOptions options;
    options.arguments = {"cms",      "-sign",
                         "-engine",  "gost",
                         "-binary",  "-nosmimecap",
                         "-in",      file.string(),
                         "-signer",  (PrivateVdsDir() / (signer + ".pem")).string(),
                         "-inkey",   (PrivateVdsDir() / (signer + ".key.pem")).string(),
                         "-outform", "DER",
                         "-out",     signature.string()};
    if (const auto chain = ChainOf(signer, false)) {
        options.arguments.insert(options.arguments.end(), {"-certfile", chain->string()});
    }
    const RunResult run = RunProgram(boost::process::search_path("openssl"), options);
    if (run.exitCode != 0) {
        throw std::runtime_error("openssl cms -sign failed: " + run.Describe());
    }
    Bytes content = ReadBytes(file);
    const Bytes cms = ReadBytes(signature);
    const auto trailer = ::vds::format::MakeTrailer(static_cast<std::uint32_t>(cms.size()));
    content.insert(content.end(), cms.begin(), cms.end());
    content.insert(content.end(), trailer.begin(), trailer.end());
    WriteBytes(file, content);
}

Bytes RevocationContainer(const std::vector<std::string>& crlNames) {
    std::vector<fs::path> files;
    for (const auto& name : crlNames) {
        files.push_back(PrivateVdsDir() / "crl" / (name + ".crl.pem"));
    }
    return ::vds::signing::MakeRevocationContainer(files);
}

}  // namespace ict_test::vds
