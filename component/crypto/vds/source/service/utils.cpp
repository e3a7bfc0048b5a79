#include "service/utils.h"

#include <cstdio>
#include <sstream>
#include <vector>

#include "ruk/hex.h"

namespace crypto::vds::service {
namespace {

struct NamedFlag {
    VdsVerificationFlags bit;
    const char* name;
};

// In bit order; the service also knows the two bits the checker leaves unnamed.
const NamedFlag kFlagNames[] = {
    {vdsFlagSigned, "Signed"},
    {vdsFlagTrusted, "Trusted"},
    {vdsFlagEmbedded, "Embedded"},
    {vdsFlagCatalog, "Catalog"},
    {vdsFlagRevocationCheckSkipped, "RevocationCheckSkipped"},
    {vdsFlagCounterSignatureUsed, "CounterSignatureUsed"},
    {vdsFlagUnsigned, "Unsigned"},
    {vdsFlagUntrustedRoot, "UntrustedRoot"},
    {vdsFlagSignatureValueNotMatched, "SignatureValueNotMatched"},
    {vdsFlagMalformedContent, "MalformedContent"},
    {vdsFlagIncompleteChain, "IncompleteChain"},
    {vdsFlagRevoked, "Revoked"},
    {vdsFlagExpired, "Expired"},
    {vdsFlagInvalidExtension, "InvalidExtension"},
    {vdsFlagUnconsumedCriticalExtension, "UnconsumedCriticalExtension"},
    {vdsFlagInvalidUsage, "InvalidUsage"},
    {vdsFlagInvalidIssuer, "InvalidIssuer"},
    {vdsFlagInvalidBasicConstraints, "InvalidBasicContraints"},
    {vdsFlagInvalidPurpose, "InvalidPurpose"},
    {vdsFlagInvalidCertificateSign, "InvalidCertificateSign"},
};

// Our purposes: 1.3.6.1.4.1.59999.10.2.1.1.<n>.
const char kPurposeArc[] = "1.3.6.1.4.1.59999.10.2.1.1.";
const char* const kPurposeNames[] = {
    "PurposeCodeSign",
    "PurposeVlPublic",
    "PurposeUpdateableBasesSign",
    "PurposeLicenseSign",
    "PurposeIpmSign",
    "PurposeProductUpdateIndexSign",
    "PurposeVskFeatureFlagsSign",
    "PurposeVlInternal",
    "PurposePisSign",
    "PurposeTestCertHolderSign",
};

std::string HexNumber(std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%X", static_cast<unsigned>(value));
    return text;
}

// Dotted form of OID content bytes; false when they are not an OID.
bool DottedOid(ByteRange oid, std::string* text) {
    if (oid.data == nullptr || oid.size == 0 || (oid.data[oid.size - 1] & 0x80) != 0) {
        return false;
    }
    std::vector<std::uint64_t> arcs;
    std::uint64_t value = 0;
    for (std::size_t index = 0; index < oid.size; ++index) {
        if (value > (UINT64_MAX >> 7)) {
            return false;
        }
        value = (value << 7) | (oid.data[index] & 0x7F);
        if ((oid.data[index] & 0x80) == 0) {
            arcs.push_back(value);
            value = 0;
        }
    }
    std::ostringstream dotted;
    const std::uint64_t first = arcs.front() < 80 ? arcs.front() / 40 : 2;
    dotted << first << '.' << arcs.front() - first * 40;
    for (std::size_t index = 1; index < arcs.size(); ++index) {
        dotted << '.' << arcs[index];
    }
    *text = dotted.str();
    return true;
}

std::string NameOfDotted(const std::string& dotted) {
    const std::string arc = kPurposeArc;
    if (dotted.compare(0, arc.size(), arc) == 0) {
        const std::string rest = dotted.substr(arc.size());
        for (std::size_t index = 0; index < sizeof(kPurposeNames) / sizeof(kPurposeNames[0]);
             ++index) {
            if (rest == std::to_string(index + 1)) {
                return kPurposeNames[index];
            }
        }
    }
    return dotted;
}

}  // namespace

const char* GetVdsResultName(VdsResult result) {
    switch (result) {
        case vdsOk:
            return "vdsOk";
        case vdsSignatureNotFound:
            return "vdsSignatureNotFound";
        case vdsIncompleteSignature:
            return "vdsIncompleteSignature";
        case vdsErrNotInitialized:
            return "vdsErrNotInitialized";
        case vdsErrInvalidState:
            return "vdsErrInvalidState";
        case vdsErrInvalidArgument:
            return "vdsErrInvalidArgument";
        case vdsErrInvalidFormat:
            return "vdsErrInvalidFormat";
        case vdsErrNotImplemented:
            return "vdsErrNotImplemented";
        case vdsErrInvalidValue:
            return "vdsErrInvalidValue";
        case vdsErrBadAlloc:
            return "vdsErrBadAlloc";
        case vdsErrUnknown:
            return "vdsErrUnknown";
        case vdsErrNotEnough:
            return "vdsErrNotEnough";
        case vdsErrAlreadyExists:
            return "vdsErrAlreadyExists";
        case vdsErrNotFound:
            return "vdsErrNotFound";
        case vdsErrCryptoLib:
            return "vdsErrCryptoLib";
        case vdsErrInvalidSignature:
            return "vdsErrInvalidSignature";
        case vdsErrInvalidSize:
            return "vdsErrInvalidSize";
        case vdsErrSigningFailed:
            return "vdsErrSigningFailed";
        case vdsErrCallbackRead:
            return "vdsErrCallbackRead";
        case vdsErrUntrusted:
            return "vdsErrUntrusted";
        case vdsErrNotMatched:
            return "vdsErrNotMatched";
        case vdsErrRdbAbsent:
            return "vdsErrRdbAbsent";
        case vdsErrRdbAlreadyExists:
            return "vdsErrRdbAlreadyExists";
        default:
            return "Unknown VDS error code";
    }
}

std::string VdsResultText(VdsResult result) {
    return std::to_string(result) + " (" + GetVdsResultName(result) + ")";
}

const char* GetFileFormatName(VdsFileFormat format) {
    switch (format) {
        case vdsFileFormatUnspecified:
            return "Unspecified";
        case vdsFileFormatPortableExecutable32:
            return "PortableExecutable32";
        case vdsFileFormatPortableExecutable64:
            return "PortableExecutable64";
        default:
            return "Unknown VDS file format id";
    }
}

const char* GetHashAlgorithmName(VdsHashAlgorithm algorithm) {
    switch (algorithm) {
        case vdsHashAlgorithmInvalid:
            return "vdsHashAlgorithmInvalid";
        case vdsGost3411_2012_256:
            return "vdsGost3411_2012_256";
        case vdsGost3411_2012_512:
            return "vdsGost3411_2012_512";
        default:
            return "Unknown VDS hash algorithm id";
    }
}

std::string VerificationFlagsToString(VdsVerificationFlags flags) {
    if (flags == 0) {
        return "None";
    }
    std::string text;
    VdsVerificationFlags rest = flags;
    for (const auto& flag : kFlagNames) {
        if ((flags & flag.bit) != 0) {
            text += text.empty() ? "" : "|";
            text += flag.name;
            rest &= ~flag.bit;
        }
    }
    if (rest != 0) {
        text += text.empty() ? "" : "|";
        text += "UNKNOWN=" + HexNumber(rest);
    }
    return text;
}

std::string PolicyFlagsToString(TestRootHandlingPolicyFlags flags) {
    std::string text = "TestRootHandlingPolicyFlags:";
    if (flags == testRootPolicyNone) {
        return text + " None";
    }
    std::string names;
    if ((flags & testRootPolicyCrlMustExist) != 0) {
        names = "CrlMustExist";
    }
    const TestRootHandlingPolicyFlags rest = flags & ~testRootPolicyCrlMustExist;
    if (rest != 0) {
        names += names.empty() ? "" : "|";
        names += "UNKNOWN=" + HexNumber(rest);
    }
    return text + " " + names;
}

ruk::result_t ToFrameworkResult(VdsResult result) {
    switch (result) {
        case vdsOk:
        case vdsSignatureNotFound:
        case vdsIncompleteSignature:
            return ruk::result::Success;
        case vdsErrInvalidArgument:
            return ruk::result::InvalidArgument;
        case vdsErrInvalidFormat:
        case vdsErrInvalidValue:
        case vdsErrInvalidSize:
            return ruk::result::InvalidFormat;
        case vdsErrNotImplemented:
            return ruk::result::NotImplemented;
        case vdsErrBadAlloc:
            return ruk::result::OutOfMemory;
        case vdsErrNotEnough:
            return ruk::result::BufferTooSmall;
        case vdsErrAlreadyExists:
        case vdsErrRdbAlreadyExists:
            return ruk::result::AlreadyExists;
        case vdsErrNotFound:
        case vdsErrRdbAbsent:
            return ruk::result::NotFound;
        case vdsErrCallbackRead:
            return ruk::result::IoError;
        case vdsErrUntrusted:
        case vdsErrInvalidSignature:
        case vdsErrNotMatched:
            return ruk::result::ObjectUntrusted;
        default:
            return ruk::result::Fail;
    }
}

std::string HexText(const std::uint8_t* bytes, std::size_t size) {
    return ruk::HexText(bytes, size, ruk::HexCase::Upper);
}

std::string PurposeText(ByteRange oid) {
    std::string dotted;
    if (!DottedOid(oid, &dotted)) {
        return oid.size == 0 ? std::string() : HexText(oid.data, oid.size);
    }
    return NameOfDotted(dotted);
}

std::string PurposesText(const std::string& dottedList) {
    std::string text;
    std::size_t start = 0;
    while (start < dottedList.size()) {
        std::size_t end = dottedList.find(", ", start);
        if (end == std::string::npos) {
            end = dottedList.size();
        }
        text += text.empty() ? "" : ", ";
        text += NameOfDotted(dottedList.substr(start, end - start));
        start = end + 2;
    }
    return text;
}

std::string TimeText(std::int64_t seconds) {
    // Days to civil date (proleptic Gregorian), valid for any 64-bit day count.
    std::int64_t days = seconds / 86400;
    std::int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        days -= 1;
    }
    days += 719468;
    const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const std::int64_t dayOfEra = days - era * 146097;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    const std::int64_t day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    const std::int64_t month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    const std::int64_t year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
    char text[64];
    std::snprintf(text, sizeof(text), "%04lld-%02lld-%02lld %02lld:%02lld:%02lld UTC",
                  static_cast<long long>(year), static_cast<long long>(month),
                  static_cast<long long>(day), static_cast<long long>(rest / 3600),
                  static_cast<long long>(rest / 60 % 60), static_cast<long long>(rest % 60));
    return text;
}

std::string PointerText(const void* pointer) {
    if (pointer == nullptr) {
        return "<nullptr>";
    }
    char text[32];
    std::snprintf(text, sizeof(text), "0x%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(pointer)));
    return text;
}

std::string Utf16Text(ByteRange units) {
    std::string text;
    const std::size_t count = units.data == nullptr ? 0 : units.size / 2;
    for (std::size_t index = 0; index < count; ++index) {
        std::uint32_t point = units.data[2 * index] | (units.data[2 * index + 1] << 8);
        if (point == 0 && index + 1 == count) {
            break;
        }
        if (point >= 0xD800 && point < 0xDC00 && index + 1 < count) {
            const std::uint32_t low = units.data[2 * index + 2] | (units.data[2 * index + 3] << 8);
            if (low >= 0xDC00 && low < 0xE000) {
                point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
                ++index;
            }
        }
        if (point >= 0xD800 && point < 0xE000) {
            point = 0xFFFD;  // a lone surrogate
        }
        if (point < 0x80) {
            text += static_cast<char>(point);
        } else if (point < 0x800) {
            text += static_cast<char>(0xC0 | (point >> 6));
            text += static_cast<char>(0x80 | (point & 0x3F));
        } else if (point < 0x10000) {
            text += static_cast<char>(0xE0 | (point >> 12));
            text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (point & 0x3F));
        } else {
            text += static_cast<char>(0xF0 | (point >> 18));
            text += static_cast<char>(0x80 | ((point >> 12) & 0x3F));
            text += static_cast<char>(0x80 | ((point >> 6) & 0x3F));
            text += static_cast<char>(0x80 | (point & 0x3F));
        }
    }
    return text;
}

}  // namespace crypto::vds::service
