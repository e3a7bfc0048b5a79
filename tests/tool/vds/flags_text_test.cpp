#include <gtest/gtest.h>

#include "vds/verification_flags.h"

namespace integrity_check_tool::vds {
namespace {

TEST(VerificationFlagsTextTest, NamesFollowTheBitOrder) {
    EXPECT_EQ(VerificationFlagsToText(0), "None");
    EXPECT_EQ(VerificationFlagsToText(0x1 | 0x4 | 0x800), "Signed|Embedded|Revoked");
    EXPECT_EQ(VerificationFlagsToText(0x80000 | 0x20000 | 0x2),
              "Trusted|InvalidBasicContraints|InvalidCertificateSign");
    EXPECT_EQ(VerificationFlagsToText(0xFFFFFFFF),
              "Signed|Trusted|Embedded|Catalog|RevocationCheckSkipped|CounterSignatureUsed|"
              "SignatureValueNotMatched|MalformedContent|IncompleteChain|Revoked|Expired|"
              "InvalidExtension|UnconsumedCriticalExtension|InvalidUsage|InvalidIssuer|"
              "InvalidBasicContraints|InvalidPurpose|InvalidCertificateSign");
    // 0x40 and 0x80 (and the high bits) have no name here: nothing is shown for them.
    EXPECT_EQ(VerificationFlagsToText(0x40 | 0x80), "");
    EXPECT_EQ(VerificationFlagsToText(0x40 | 0x1000), "Expired");
    EXPECT_EQ(VerificationFlagsToText(0x100000), "");
}

}  // namespace
}  // namespace integrity_check_tool::vds
