#include "common_objects/verification_result_handler_impl.h"

#include <sstream>
#include <string>

#include "service/log.h"
#include "service/utils.h"

namespace crypto::vds::common_objects {
namespace {

using service::ByteRange;
using service::VerificationFlagsToString;

// One line "<event>: <text>"; composed only when a sink listens, and never
// throwing back into the core.
template <typename Compose>
void LogEvent(const char* event, Compose&& compose) noexcept {
    try {
        if (service::IsLogEnabled()) {
            std::ostringstream line;
            line << event << ": ";
            compose(line);
            service::WriteLogLine(line.str());
        }
    } catch (...) {
        // A line that cannot be made is dropped; verification goes on.
    }
}

void WriteDigests(std::ostream& line, const VdsDigest* digests, std::size_t count) {
    line << ", digests:";
    for (std::size_t index = 0; index < count; ++index) {
        line << (index == 0 ? " " : ", ") << digests[index].algorithm << '='
             << service::HexText(digests[index].value, digests[index].size);
    }
}

void WriteCertificate(std::ostream& line, const VdsCertificateInfo& certificate) {
    line << "Serial=" << certificate.serial << ", NotBefore=" << certificate.notBefore
         << ", NotAfter=" << certificate.notAfter << ", Subj='" << certificate.subject
         << "', Issuer='" << certificate.issuer << "', Purposes='"
         << service::PurposesText(certificate.purposes) << "'";
}

const char* YesNo(bool yes, const char* yesText, const char* noText) {
    return yes ? yesText : noText;
}

}  // namespace

void VerificationResultHandlerImpl::OnVerifierCreated(const void* revocationChecker,
                                                      std::size_t trustedRootsCount,
                                                      const VdsCertificateInfo* trustedRoots) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Created New Verifier, RevocationCheckerObject="
             << service::PointerText(revocationChecker)
             << ", TrustedRootsCount=" << trustedRootsCount;
        for (std::size_t index = 0; index < trustedRootsCount; ++index) {
            line << "; Trusted Root #" << index << ": ";
            WriteCertificate(line, trustedRoots[index]);
        }
    });
}

void VerificationResultHandlerImpl::OnRevocationCheckerCreated(const void* revocationChecker,
                                                               std::size_t trustAnchorsCount) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Created New Revocation Checker, trustAnchorsCount=";
        if (revocationChecker == nullptr) {
            line << "<nullptr>";
        } else {
            line << trustAnchorsCount;
        }
    });
}

void VerificationResultHandlerImpl::OnCertificateParsingFailed(std::size_t index,
                                                               const VdsBlob& data) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Failed to parse certificate #" << index << ", size=" << data.size
             << ", Data=" << service::HexText(data.data, data.data == nullptr ? 0 : data.size);
    });
}

void VerificationResultHandlerImpl::OnRevocationDbLoad(const char* hierarchyId,
                                                       std::int64_t issuedDate) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Loaded revocation database for hierarchy=" << hierarchyId
             << ", issuedDate=" << service::TimeText(issuedDate);
    });
}

void VerificationResultHandlerImpl::OnRdbLoadFailed(const char* rootSerialNumber,
                                                    std::size_t databaseIndex, VdsResult result) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Root Serial Number=" << rootSerialNumber << ", Database Index=" << databaseIndex
             << ", Operation Result=" << service::VdsResultText(result);
    });
}

void VerificationResultHandlerImpl::OnFileFormat(VdsFileFormat fileFormat) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "fileFormat=";
        switch (fileFormat) {
            case vdsFileFormatUnspecified:
            case vdsFileFormatPortableExecutable32:
            case vdsFileFormatPortableExecutable64:
                line << service::GetFileFormatName(fileFormat);
                break;
            default:
                line << "Unexpected:" << fileFormat;
        }
    });
}

void VerificationResultHandlerImpl::OnSignedDataStarted(std::size_t certificatesCount,
                                                        std::size_t signerInfosCount) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "certificatesCount=" << certificatesCount
             << ", signerInfosCount=" << signerInfosCount;
    });
}

void VerificationResultHandlerImpl::OnSignerInfoStarted(const char* digestAlgorithm,
                                                        const char* signatureAlgorithm) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "digestAlgorithm=" << digestAlgorithm
             << ", signatureAlgorithm=" << signatureAlgorithm;
    });
}

void VerificationResultHandlerImpl::OnContentProcessed(std::uint64_t checkedContentSize,
                                                       std::uint64_t signatureContainerSize,
                                                       std::uint64_t entireContentSize,
                                                       const VdsBlob& purpose,
                                                       const VdsDigest* digests,
                                                       std::size_t digestsCount) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "checkedContentSize=" << checkedContentSize
             << ", signatureContainerSize=" << signatureContainerSize
             << ", entireContentSize=" << entireContentSize << ", purpose='"
             << service::PurposeText(ByteRange{purpose.data, purpose.size}) << "'";
        WriteDigests(line, digests, digestsCount);
    });
}

void VerificationResultHandlerImpl::OnAdditionalContent(const VdsBlob& additionalContent,
                                                        const VdsDigest* digests,
                                                        std::size_t digestsCount) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "AdditionalContent='"
             << service::Utf16Text(ByteRange{additionalContent.data, additionalContent.size})
             << "'";
        WriteDigests(line, digests, digestsCount);
    });
}

void VerificationResultHandlerImpl::OnCertificateSignCheckFailure(const char* child,
                                                                  const char* parentCandidate) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "child=" << child << ", parentCandidate=" << parentCandidate;
    });
}

void VerificationResultHandlerImpl::LogCertificateChain(const VdsCertificateInfo* chain,
                                                        std::size_t count) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "chain has " << count << " certificates:";
        for (std::size_t index = 0; index < count; ++index) {
            line << (index == 0 ? " " : "; ") << '#' << index << ' ';
            WriteCertificate(line, chain[index]);
        }
    });
}

void VerificationResultHandlerImpl::OnValidatedContentChain(VdsVerificationFlags flags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Content chain validated with flags=" << VerificationFlagsToString(flags);
    });
}

void VerificationResultHandlerImpl::OnValidatedTimestampChain(VdsVerificationFlags flags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Timestamp chain validated with flags=" << VerificationFlagsToString(flags);
    });
}

void VerificationResultHandlerImpl::OnSignerInfoChecked(std::int64_t signingTime,
                                                        VdsVerificationFlags flags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "signingTime=" << service::TimeText(signingTime)
             << ", signerInfoFlags=" << VerificationFlagsToString(flags);
    });
}

bool VerificationResultHandlerImpl::IsNextSignerInfoRequired() {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Is next signer info required: No (stopping SignedData verification)";
    });
    return false;
}

void VerificationResultHandlerImpl::OnSignedDataChecked(VdsVerificationFlags flags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "signedDataFlags=" << VerificationFlagsToString(flags);
    });
}

bool VerificationResultHandlerImpl::IsNextSignedDataRequired() {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Is next signed data required: No (stopping payload verification)";
    });
    return false;
}

void VerificationResultHandlerImpl::OnEmbeddedSignatureChecked(VdsVerificationFlags flags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "embeddedSignatureFlags=" << VerificationFlagsToString(flags);
    });
}

void VerificationResultHandlerImpl::OnFinalResult(VdsResult result, VdsVerificationFlags flags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "finalResult=" << service::VdsResultText(result) << ", "
             << YesNo(result == vdsOk, "trusted", "untrusted")
             << ", flags=" << VerificationFlagsToString(flags);
    });
}

void VerificationResultHandlerImpl::OnHashContainer(const char* digestAlgorithm,
                                                    std::size_t hashItemsSize) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "digestAlgorithm=" << digestAlgorithm << ", hashItemsSize=" << hashItemsSize;
    });
}

void VerificationResultHandlerImpl::OnHashFound(const char* leafSerial, const char* rootSerial,
                                                const char* purposes,
                                                VdsVerificationFlags contentFlags,
                                                VdsVerificationFlags timestampFlags,
                                                VdsVerificationFlags hashFlags) {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "leafSerial=" << leafSerial << ", rootSerial=" << rootSerial
             << ", purposes=" << service::PurposesText(purposes)
             << ", contentFlags=" << VerificationFlagsToString(contentFlags)
             << ", timestampFlags=" << VerificationFlagsToString(timestampFlags)
             << ", hashFlags=" << VerificationFlagsToString(hashFlags);
    });
}

bool VerificationResultHandlerImpl::IsSignedDataVerificationRequiredForcedly() {
    LogEvent(__func__, [&](std::ostream& line) {
        line << "Is SignedData verification required forcedly: "
             << YesNo(forceSignedDataVerification_, "Yes (verify singed data)",
                      "No (default workflow)");
    });
    return forceSignedDataVerification_;
}

}  // namespace crypto::vds::common_objects
