#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vds/file_name_binding.h"
#include "vds/verification_flags.h"

namespace integrity_check_tool::vds {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Utf16(const std::u16string& text) {
    Bytes bytes;
    for (const char16_t unit : text) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

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

TEST(FileNameBindingTest, TheNameIsTakenAsItStandsInThePath) {
    EXPECT_EQ(FileNameBindingContent("Setup.exe"), Utf16(u"Setup.exe"));
    EXPECT_EQ(FileNameBindingContent("C:\\Program Files\\Product\\Setup.EXE"), Utf16(u"Setup.EXE"));
    EXPECT_EQ(FileNameBindingContent("/opt/product/bin/tool.dll"), Utf16(u"tool.dll"));
    EXPECT_EQ(FileNameBindingContent("dir\\sub/mixed.sys"), Utf16(u"mixed.sys"));
    // A drive letter and colon with no separator: the name follows the colon.
    EXPECT_EQ(FileNameBindingContent("D:Driver.sys"), Utf16(u"Driver.sys"));
    EXPECT_EQ(FileNameBindingContent("z:x"), Utf16(u"x"));
    // Not a drive prefix: kept.
    EXPECT_EQ(FileNameBindingContent("1:x"), Utf16(u"1:x"));
    EXPECT_EQ(FileNameBindingContent("ab:x"), Utf16(u"ab:x"));
    // A path that ends in a separator binds the empty name.
    EXPECT_EQ(FileNameBindingContent("dir/"), Utf16(u""));
}

TEST(FileNameBindingTest, NonAsciiNamesBecomeUtf16) {
    // "Файл.dll" and a name outside the BMP (U+1F600) in UTF-8.
    EXPECT_EQ(FileNameBindingContent("/p/\xD0\xA4\xD0\xB0\xD0\xB9\xD0\xBB.dll"),
              Utf16(u"\u0424\u0430\u0439\u043B.dll"));
    EXPECT_EQ(FileNameBindingContent("\xF0\x9F\x98\x80"), Utf16(u"\U0001F600"));
    // Bytes that are not UTF-8 stand for U+FFFD each.
    EXPECT_EQ(FileNameBindingContent("a\xFF\xC0\x80"), Utf16(u"a\uFFFD\uFFFD\uFFFD"));
}

}  // namespace
}  // namespace integrity_check_tool::vds
