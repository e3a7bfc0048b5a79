#pragma once

#include <cstddef>
#include <cstdint>

#include "vds/result_handler.h"
#include "vds/vds_types.h"

// The VDS signature core: a plain function interface over OpenSSL. The
// signature format, the revocation container and the catalogs are described
// in component/crypto/vds/README.md.
//
// Handles are opaque; each has its release call. Objects created from one
// another share what they need internally, so handles may be released in
// any order. Every call checks its arguments and returns vdsErrInvalidArgument
// for a null pointer it needs.

struct VdsVerifier;
struct VdsRevocationContainer;
struct VdsRevocationDatabase;
struct VdsLoadedRevocationDb;
struct VdsRevocationChecker;
struct AsndCertificate;

// Loads OpenSSL's "gost" engine once per process (thread-safe); every other
// call that needs cryptography returns vdsErrNotInitialized before it.
VdsResult VdsInitializeLibrary();

// --- Certificates -----------------------------------------------------------

// Parses one DER certificate that must fill `size` exactly; a self-issued
// certificate must also carry a valid signature by its own key.
VdsResult AsndParseAndValidateCertificate(const std::uint8_t* der, std::size_t size,
                                          AsndCertificate** certificate);
// The serial number: unsigned big-endian bytes, owned by the certificate.
VdsResult AsndGetCertificateSerialNumber(const AsndCertificate* certificate, VdsBlob* serial);
void AsndReleaseCertificate(AsndCertificate* certificate);

// --- Verifiers ----------------------------------------------------------------

// A verifier that trusts the given DER root certificates. `revocationChecker`
// (may be null: revocation is then not checked) and `handler` (may be null)
// are referenced, not copied; the handler must outlive the verifier and its
// clones. A root that does not parse is reported to the handler and makes the
// call fail with vdsErrInvalidFormat; no roots at all is vdsErrInvalidArgument.
VdsResult VdsCreateVerifier_Ex(const VdsBlob* trustedRoots, std::size_t trustedRootsCount,
                               const VdsRevocationChecker* revocationChecker,
                               IVdsVerificationResultHandler* handler, VdsVerifier** verifier);
// An independent verifier with the same roots, revocation checker, handler
// and catalogs.
VdsResult VdsCloneVerifier(const VdsVerifier* verifier, VdsVerifier** copy);
void VdsReleaseVerifier(VdsVerifier* verifier);

// Verifies the object behind `reader` for the purpose (DER OID content
// bytes; empty means no purpose is required). Returns vdsOk when the object
// is trusted and vdsErrUntrusted when the verification ran to its end without
// trust; `result` is filled in both cases. Other failures (a failed read,
// vdsErrCallbackRead; exhausted memory) leave `result` zeroed.
VdsResult VdsVerifyObjectByCallback_Ex(const VdsVerifier* verifier, const VdsReadCallback* reader,
                                       const VdsBlob* purpose, VdsVerificationResultData* result);
// The same, with the additional content that the signature must be bound to
// (the file name as UTF-16LE code units with the terminating zero).
VdsResult VdsVerifyObjectByCallbackWithAdditionalContent_Ex(const VdsVerifier* verifier,
                                                            const VdsReadCallback* reader,
                                                            const VdsBlob* additionalContent,
                                                            const VdsBlob* purpose,
                                                            VdsVerificationResultData* result);

// Loads a signed catalog of object digests into the verifier. The catalog
// must itself carry a trusted signature (its purposes are those of its
// signer); vdsErrUntrusted otherwise, vdsErrInvalidFormat when its content
// is not a catalog.
VdsResult VdsLoadSignaturesCatalogByCallback(VdsVerifier* verifier, const VdsReadCallback* reader);

// --- Revocation ---------------------------------------------------------------

// Parses a revocation container (a degenerate PKCS#7 SignedData of X.509 v2
// CRLs); the container bytes are copied.
VdsResult VdsRevocationLoadContainer(const VdsBlob* container, VdsRevocationContainer** handle);
void VdsRevocationReleaseContainer(VdsRevocationContainer* handle);
VdsResult VdsRevocationGetDatabaseCount(const VdsRevocationContainer* handle, std::size_t* count);
// The database at `index`, owned by the container.
VdsResult VdsRevocationGetDatabase(const VdsRevocationContainer* handle, std::size_t index,
                                   const VdsRevocationDatabase** database);
// The serial number of the root the database belongs to (the
// authorityCertSerialNumber of the CRL's authority key identifier): unsigned
// big-endian bytes, owned by the container, comparable with
// AsndGetCertificateSerialNumber. vdsErrInvalidFormat when the CRL does not
// name it.
VdsResult VdsRevocationGetHierarchyId(const VdsRevocationDatabase* database, VdsBlob* id);
VdsResult VdsRevocationGetDbInfo(const VdsRevocationDatabase* database, VdsRevocationDbInfo* info);
// Prepares the database for revocation checks (v2 CRL, sorted revoked
// serials). Reports OnRevocationDbLoad or OnRdbLoadFailed to `handler`
// (may be null) with `index` as the database index.
VdsResult VdsRevocationLoadDb(const VdsRevocationDatabase* database, std::size_t index,
                              IVdsVerificationResultHandler* handler,
                              VdsLoadedRevocationDb** loaded);
void VdsRevocationReleaseDb(VdsLoadedRevocationDb* loaded);
// vdsOk when the database was issued by `root` (issuer name and key
// identifier), vdsErrNotMatched otherwise.
VdsResult VdsRevocationMatchRoot(const VdsLoadedRevocationDb* loaded, const AsndCertificate* root);
// vdsOk when the database's signature verifies with the root's key,
// vdsErrInvalidSignature otherwise.
VdsResult VdsRevocationValidateDb(const VdsLoadedRevocationDb* loaded, const AsndCertificate* root);

// A revocation checker over validated databases, at most one per hierarchy
// (vdsErrRdbAlreadyExists otherwise).
VdsResult VdsCreateRevocationChecker(const VdsLoadedRevocationDb* const* databases,
                                     std::size_t count, VdsRevocationChecker** checker);
std::size_t VdsRevocationCheckerGetDatabaseCount(const VdsRevocationChecker* checker);
void VdsReleaseRevocationChecker(VdsRevocationChecker* checker);
