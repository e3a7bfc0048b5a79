#include "vds/verification_flags.h"

namespace integrity_check_tool::vds {
namespace {

struct FlagName {
    std::uint32_t bit;
    const char* name;
};

const FlagName kFlagNames[] = {
    {0x1, "Signed"},
    {0x2, "Trusted"},
    {0x4, "Embedded"},
    {0x8, "Catalog"},
    {0x10, "RevocationCheckSkipped"},
    {0x20, "CounterSignatureUsed"},
    {0x100, "SignatureValueNotMatched"},
    {0x200, "MalformedContent"},
    {0x400, "IncompleteChain"},
    {0x800, "Revoked"},
    {0x1000, "Expired"},
    {0x2000, "InvalidExtension"},
    {0x4000, "UnconsumedCriticalExtension"},
    {0x8000, "InvalidUsage"},
    {0x10000, "InvalidIssuer"},
    {0x20000, "InvalidBasicContraints"},  // spelled as the vocabulary has it
    {0x40000, "InvalidPurpose"},
    {0x80000, "InvalidCertificateSign"},
};

}  // namespace

std::string VerificationFlagsToText(std::uint32_t flags) {
    if (flags == 0) {
        return "None";
    }
    std::string text;
    for (const auto& flag : kFlagNames) {
        if ((flags & flag.bit) != 0) {
            if (!text.empty()) {
                text += '|';
            }
            text += flag.name;
        }
    }
    return text;
}

}  // namespace integrity_check_tool::vds
