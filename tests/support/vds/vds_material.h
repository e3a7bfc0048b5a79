#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

#include "vds/signing.h"

// The development VDS trust material and ways to sign with it.
namespace ict_test::vds {

using Bytes = std::vector<std::uint8_t>;

boost::filesystem::path PrivateVdsDir();  // trust/development/private/vds

Bytes ReadBytes(const boost::filesystem::path& path);

// The DER root "3520p1", "3020d1", "4820d1" or "4823d1".
Bytes RootCertificate(const std::string& name);
// The content bytes of the signing purpose OID.
Bytes Purpose();

// Signers by file stem under private/vds ("signer", "signer-ec", ...). The
// issuing CA comes along; `withRoot` adds the root of "unknown-signer".
::vds::signing::SignerMaterial Signer(const std::string& name, bool withRoot = false);

// Signs in place, optionally bound to the file's own name.
void Sign(const boost::filesystem::path& file, const std::string& signer,
          bool bindFileName = false);

// Signs with the `openssl cms -sign` command line (an independent producer)
// and appends the CMS with our trailer.
void SignWithOpenSslCommand(const boost::filesystem::path& file, const std::string& signer);

// A revocation container holding private/vds/crl/<name>.crl.pem for each name.
Bytes RevocationContainer(const std::vector<std::string>& crlNames);

}  // namespace ict_test::vds
