#pragma once

#include <cstddef>
#include <cstdint>

// Plain types shared by the VDS core calls and the result-handler interface.

typedef std::int32_t VdsResult;

// Negative codes are failures; zero and the positive codes are not.
enum : VdsResult {
    vdsOk = 0,
    vdsSignatureNotFound = 1,
    vdsIncompleteSignature = 2,
    vdsErrNotInitialized = -1,
    vdsErrInvalidState = -2,
    vdsErrInvalidArgument = -3,
    vdsErrInvalidFormat = -4,
    vdsErrNotImplemented = -5,
    vdsErrInvalidValue = -6,
    vdsErrBadAlloc = -7,
    vdsErrUnknown = -8,
    vdsErrNotEnough = -9,
    vdsErrAlreadyExists = -10,
    vdsErrNotFound = -11,
    vdsErrCryptoLib = -12,
    vdsErrInvalidSignature = -13,
    vdsErrInvalidSize = -14,
    vdsErrSigningFailed = -15,
    vdsErrCallbackRead = -16,
    vdsErrUntrusted = -17,
    vdsErrNotMatched = -18,
    vdsErrRdbAbsent = -19,
    vdsErrRdbAlreadyExists = -20,
};

inline bool VdsFailed(VdsResult result) {
    return result < 0;
}

typedef std::uint32_t VdsFileFormat;
enum : VdsFileFormat {
    vdsFileFormatUnspecified = 0,
    vdsFileFormatPortableExecutable32 = 1,
    vdsFileFormatPortableExecutable64 = 2,
};

typedef std::uint32_t VdsHashAlgorithm;
enum : VdsHashAlgorithm {
    vdsHashAlgorithmInvalid = 0,
    vdsGost3411_2012_256 = 1,
    vdsGost3411_2012_512 = 2,
};

// Verification-result flags: why a result is what it is. The result code
// alone decides trust.
typedef std::uint32_t VdsVerificationFlags;
enum : VdsVerificationFlags {
    vdsFlagSigned = 0x1,
    vdsFlagTrusted = 0x2,
    vdsFlagEmbedded = 0x4,
    vdsFlagCatalog = 0x8,
    vdsFlagRevocationCheckSkipped = 0x10,
    vdsFlagCounterSignatureUsed = 0x20,
    vdsFlagUnsigned = 0x40,
    vdsFlagUntrustedRoot = 0x80,
    vdsFlagSignatureValueNotMatched = 0x100,
    vdsFlagMalformedContent = 0x200,
    vdsFlagIncompleteChain = 0x400,
    vdsFlagRevoked = 0x800,
    vdsFlagExpired = 0x1000,
    vdsFlagInvalidExtension = 0x2000,
    vdsFlagUnconsumedCriticalExtension = 0x4000,
    vdsFlagInvalidUsage = 0x8000,
    vdsFlagInvalidIssuer = 0x10000,
    vdsFlagInvalidBasicConstraints = 0x20000,
    vdsFlagInvalidPurpose = 0x40000,
    vdsFlagInvalidCertificateSign = 0x80000,
};

// Any of these keeps a signature from being trusted.
constexpr VdsVerificationFlags vdsFlagsFailure =
    vdsFlagUnsigned | vdsFlagUntrustedRoot | vdsFlagSignatureValueNotMatched |
    vdsFlagMalformedContent | vdsFlagIncompleteChain | vdsFlagRevoked | vdsFlagExpired |
    vdsFlagInvalidExtension | vdsFlagUnconsumedCriticalExtension | vdsFlagInvalidUsage |
    vdsFlagInvalidIssuer | vdsFlagInvalidBasicConstraints | vdsFlagInvalidPurpose |
    vdsFlagInvalidCertificateSign;

// A byte range owned by the caller (arguments) or by the object it came
// from (results).
struct VdsBlob {
    const std::uint8_t* data;
    std::size_t size;
};

// Random access to the object being verified. `read` fills up to `size`
// bytes at `offset` and reports the count; fewer only at the end of the
// object. It returns false when the read failed.
struct VdsReadCallback {
    void* context;
    bool (*read)(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                 std::size_t* bytesRead);
    std::uint64_t objectSize;
};

// What a verification found.
struct VdsVerificationResultData {
    VdsVerificationFlags flags;
    std::uint64_t checkedContentSize;      // bytes covered by the signature, from offset 0
    std::uint64_t signatureContainerSize;  // the embedded signature with its trailer
    VdsFileFormat fileFormat;
};

// One computed digest, for the result handler.
struct VdsDigest {
    const char* algorithm;  // OpenSSL's short name, e.g. "md_gost12_256"
    const std::uint8_t* value;
    std::size_t size;
};

// A certificate as the result handler logs it; texts live for the call.
struct VdsCertificateInfo {
    const char* serial;     // upper-case hex
    const char* notBefore;  // "YYYY-MM-DD hh:mm:ss UTC"
    const char* notAfter;
    const char* subject;
    const char* issuer;
    const char* purposes;  // extended key usage OIDs, ", "-separated
};

struct VdsRevocationDbInfo {
    std::int64_t issueDate;  // thisUpdate, seconds since 1970-01-01 UTC
    std::uint64_t size;      // DER size of the database
};
