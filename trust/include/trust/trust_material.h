#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The trust material compiled into the programs: the selected set's DSVM
// public keys, VDS root certificates and signing-purpose identifier.
namespace integrity_check_tool::trust {

using Blob = std::vector<std::uint8_t>;

// Name of the set in use (the folder name under trust/), for version and trace output.
const char* GetTrustSetName();

// The DSVM key pairs: two DER SubjectPublicKeyInfo blobs each; the release
// pair or the test pair. A blob is empty when the set does not provide it.
std::vector<Blob> GetDsvmKeyPair(bool release);

// The DER root certificate of index 0..3 ("3520p1", "3020d1", "4820d1",
// "4823d1"); empty when the set does not provide it.
Blob GetRootCertificate(std::size_t index);

// Whether files under root index 0..3 are only accepted with a revocation
// list ("CrlMustExist"): the set's roots/crl-must-exist.txt names the root.
bool RootRequiresRevocationList(std::size_t index);

// The content bytes (no tag, no length) of the DER OID that a signer's
// certificate must carry in its extended key usage.
Blob GetPurposeOid();

}  // namespace integrity_check_tool::trust
