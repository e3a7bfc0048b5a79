#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <boost/filesystem/path.hpp>
#include <boost/optional.hpp>

// Making VDS signatures and revocation containers: what the signing
// tool and the tests need. The checker itself never signs.
namespace vds::signing {

// A failure with a message that names the file and the reason.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct SignerMaterial {
    std::shared_ptr<X509> certificate;
    std::shared_ptr<EVP_PKEY> key;
    std::vector<std::shared_ptr<X509>> chain;  // included in the signature, signer excluded
};

// Loads the signer's certificate, its private key and optionally more
// certificates (all PEM). Loads the GOST engine first.
SignerMaterial LoadSignerMaterial(const boost::filesystem::path& certificate,
                                  const boost::filesystem::path& key,
                                  const boost::optional<boost::filesystem::path>& chain);

struct SignOptions {
    // Bind the signature to this additional content (for a file name: the
    // checker's SignedFileNameBytes of the file's path).
    boost::optional<std::vector<std::uint8_t>> additionalContent;
    // Remove an existing outermost signature first.
    bool replace = false;
    // Sign an already signed file over its signature (a second, outer signature).
    bool nest = false;
};

// The detached DER CMS SignedData over everything `content` delivers.
std::vector<std::uint8_t> SignContent(BIO* content, const SignerMaterial& material,
                                      const SignOptions& options);

// Appends a signature and its trailer to `file`. A signed file is refused
// unless `replace` or `nest` is set. The file is replaced atomically.
void SignFile(const boost::filesystem::path& file, const SignerMaterial& material,
              const SignOptions& options);

// A revocation container: a degenerate PKCS#7 SignedData holding the CRLs
// (PEM or DER files), as `openssl crl2pkcs7` writes it.
std::vector<std::uint8_t> MakeRevocationContainer(
    const std::vector<boost::filesystem::path>& crlFiles);

}  // namespace vds::signing
