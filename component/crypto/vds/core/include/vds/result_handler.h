#pragma once

#include <cstddef>
#include <cstdint>

#include "vds/vds_types.h"

// Events of the core while it builds verifiers and verifies objects, in the
// order they happen. The core never takes ownership of a handler; every
// pointer argument lives only for the call.
class IVdsVerificationResultHandler {
public:
    virtual ~IVdsVerificationResultHandler() = default;

    // Verifier creation.
    virtual void OnVerifierCreated(const void* revocationChecker, std::size_t trustedRootsCount,
                                   const VdsCertificateInfo* trustedRoots) = 0;
    virtual void OnRevocationCheckerCreated(const void* revocationChecker,
                                            std::size_t trustAnchorsCount) = 0;
    virtual void OnCertificateParsingFailed(std::size_t index, const VdsBlob& data) = 0;

    // Revocation databases.
    virtual void OnRevocationDbLoad(const char* hierarchyId, std::int64_t issuedDate) = 0;
    virtual void OnRdbLoadFailed(const char* rootSerialNumber, std::size_t databaseIndex,
                                 VdsResult result) = 0;

    // Verification of one object.
    virtual void OnFileFormat(VdsFileFormat fileFormat) = 0;
    virtual void OnSignedDataStarted(std::size_t certificatesCount,
                                     std::size_t signerInfosCount) = 0;
    virtual void OnSignerInfoStarted(const char* digestAlgorithm,
                                     const char* signatureAlgorithm) = 0;
    virtual void OnContentProcessed(std::uint64_t checkedContentSize,
                                    std::uint64_t signatureContainerSize,
                                    std::uint64_t entireContentSize, const VdsBlob& purpose,
                                    const VdsDigest* digests, std::size_t digestsCount) = 0;
    virtual void OnAdditionalContent(const VdsBlob& additionalContent, const VdsDigest* digests,
                                     std::size_t digestsCount) = 0;
    virtual void OnCertificateSignCheckFailure(const char* child, const char* parentCandidate) = 0;
    virtual void LogCertificateChain(const VdsCertificateInfo* chain, std::size_t count) = 0;
    virtual void OnValidatedContentChain(VdsVerificationFlags flags) = 0;
    virtual void OnValidatedTimestampChain(VdsVerificationFlags flags) = 0;
    virtual void OnSignerInfoChecked(std::int64_t signingTime, VdsVerificationFlags flags) = 0;
    // Asked when a signer info did not make the object trusted and another follows.
    virtual bool IsNextSignerInfoRequired() = 0;
    virtual void OnSignedDataChecked(VdsVerificationFlags flags) = 0;
    // Asked when a signature did not make the object trusted and the content
    // it covers ends with another (earlier) signature.
    virtual bool IsNextSignedDataRequired() = 0;
    virtual void OnEmbeddedSignatureChecked(VdsVerificationFlags flags) = 0;
    virtual void OnFinalResult(VdsResult result, VdsVerificationFlags flags) = 0;

    // Signature catalogs.
    virtual void OnHashContainer(const char* digestAlgorithm, std::size_t hashItemsSize) = 0;
    virtual void OnHashFound(const char* leafSerial, const char* rootSerial, const char* purposes,
                             VdsVerificationFlags contentFlags, VdsVerificationFlags timestampFlags,
                             VdsVerificationFlags hashFlags) = 0;
    // Asked when an object's digest was found in a catalog and the object
    // also carries its own signature.
    virtual bool IsSignedDataVerificationRequiredForcedly() = 0;
};
