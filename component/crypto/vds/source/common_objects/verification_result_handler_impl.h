#pragma once

#include "ruk/intrusive_ptr.h"
#include "vds/result_handler.h"

namespace crypto::vds::common_objects {

// Logs every event of the core on one line, prefixed by the event's name,
// and answers the core's questions: only the first trusted signature counts,
// and a catalog hit is enough unless signed-data verification is forced.
class VerificationResultHandlerImpl : public IVdsVerificationResultHandler, public ruk::RefCounted {
public:
    explicit VerificationResultHandlerImpl(bool forceSignedDataVerification = false)
        : forceSignedDataVerification_(forceSignedDataVerification) {}

    void OnVerifierCreated(const void* revocationChecker, std::size_t trustedRootsCount,
                           const VdsCertificateInfo* trustedRoots) override;
    void OnRevocationCheckerCreated(const void* revocationChecker,
                                    std::size_t trustAnchorsCount) override;
    void OnCertificateParsingFailed(std::size_t index, const VdsBlob& data) override;
    void OnRevocationDbLoad(const char* hierarchyId, std::int64_t issuedDate) override;
    void OnRdbLoadFailed(const char* rootSerialNumber, std::size_t databaseIndex,
                         VdsResult result) override;
    void OnFileFormat(VdsFileFormat fileFormat) override;
    void OnSignedDataStarted(std::size_t certificatesCount, std::size_t signerInfosCount) override;
    void OnSignerInfoStarted(const char* digestAlgorithm, const char* signatureAlgorithm) override;
    void OnContentProcessed(std::uint64_t checkedContentSize, std::uint64_t signatureContainerSize,
                            std::uint64_t entireContentSize, const VdsBlob& purpose,
                            const VdsDigest* digests, std::size_t digestsCount) override;
    void OnAdditionalContent(const VdsBlob& additionalContent, const VdsDigest* digests,
                             std::size_t digestsCount) override;
    void OnCertificateSignCheckFailure(const char* child, const char* parentCandidate) override;
    void LogCertificateChain(const VdsCertificateInfo* chain, std::size_t count) override;
    void OnValidatedContentChain(VdsVerificationFlags flags) override;
    void OnValidatedTimestampChain(VdsVerificationFlags flags) override;
    void OnSignerInfoChecked(std::int64_t signingTime, VdsVerificationFlags flags) override;
    bool IsNextSignerInfoRequired() override;
    void OnSignedDataChecked(VdsVerificationFlags flags) override;
    bool IsNextSignedDataRequired() override;
    void OnEmbeddedSignatureChecked(VdsVerificationFlags flags) override;
    void OnFinalResult(VdsResult result, VdsVerificationFlags flags) override;
    void OnHashContainer(const char* digestAlgorithm, std::size_t hashItemsSize) override;
    void OnHashFound(const char* leafSerial, const char* rootSerial, const char* purposes,
                     VdsVerificationFlags contentFlags, VdsVerificationFlags timestampFlags,
                     VdsVerificationFlags hashFlags) override;
    bool IsSignedDataVerificationRequiredForcedly() override;

private:
    bool forceSignedDataVerification_;
};

using VerificationResultHandlerImplPtr = ruk::intrusive_ptr<VerificationResultHandlerImpl>;

}  // namespace crypto::vds::common_objects
