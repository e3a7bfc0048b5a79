#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/exception.h"
#include "common/signed_file_name.h"
#include "common/utf16.h"
#include "support/thrown.h"

namespace integrity_check_tool {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The path a program holds for UTF-8 text: the bytes themselves on POSIX,
// their UTF-16 form on Windows (a narrow path there is in the code page).
boost::filesystem::path PathOf(const std::string& text) {
#ifdef _WIN32
    std::u16string units;
    EXPECT_TRUE(Utf8ToUtf16(text, &units)) << text;
    return boost::filesystem::path(std::wstring(units.begin(), units.end()));
#else
    return boost::filesystem::path(text);
#endif
}

TEST(SignedFileNameTest, TheNameIsTakenAsItStandsInThePath) {
    const struct {
        const char* path;
        std::u16string name;
    } cases[] = {
        {"Setup.exe", u"Setup.exe"},
        {"C:\\Program Files\\Product\\Setup.EXE", u"Setup.EXE"},
        {"/opt/product/bin/tool.dll", u"tool.dll"},
        {"dir\\sub/mixed.sys", u"mixed.sys"},
        // A drive letter and colon with no separator: the name follows the
        // colon, on POSIX too (where it is a legal file name of its own).
        {"C:a.dll", u"a.dll"},
        {"z:x", u"x"},
        {"C:\\a.dll", u"a.dll"},
        {"/dir/C:a.dll", u"C:a.dll"},  // the drive rule only applies to the whole path
        // Not a drive prefix: kept.
        {"1:x", u"1:x"},
        {"ab:x", u"ab:x"},
        {"a.dll:stream", u"a.dll:stream"},
        // A path that ends in a separator binds the empty name.
        {"dir/", u""},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.path);
        EXPECT_EQ(SignedFileName(PathOf(entry.path)), entry.name);
    }
    // Little-endian units, a surrogate pair for a character outside the BMP, one zero unit.
    EXPECT_EQ(SignedFileNameBytes(PathOf("/p/\xF0\x9F\x98\x80")),
              (Bytes{0x3D, 0xD8, 0x00, 0xDE, 0, 0}));
}

// On POSIX a name is UTF-8, converted here: every malformed form is refused
// naming the path.
TEST(SignedFileNameTest, Utf8NamesAreConvertedAndEveryMalformedFormRefused) {
    // Only the name part is converted: a bad byte in a folder name does not matter.
    EXPECT_EQ(SignedFileName("/d\xFF/a.dll"), u"a.dll");
#ifdef _WIN32
    GTEST_SKIP() << "a Windows path is UTF-16: it cannot hold a name that is not valid UTF-8";
#endif
    const struct {
        const char* text;
        std::u16string units;
    } valid[] = {
        {"", u""},
        {"\x7F", u"\x7F"},
        {"\xC2\x80", u"\u0080"},              // smallest two-byte form
        {"\xDF\xBF", u"\u07FF"},              // largest two-byte form
        {"\xE0\xA0\x80", u"\u0800"},          // smallest three-byte form
        {"\xED\x9F\xBF", u"\uD7FF"},          // just below the surrogates
        {"\xEE\x80\x80", u"\uE000"},          // just above them
        {"\xEF\xBF\xBF", u"\uFFFF"},          // largest three-byte form
        {"\xF0\x90\x80\x80", u"\U00010000"},  // smallest four-byte form
        {"\xF0\x9F\x94\x91", u"\U0001F511"},  // a surrogate pair
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},  // the last code point
        {"a\xD0\x96z", u"a\u0416z"},
        {"\xEF\xBF\xBD", u"\uFFFD"},  // a real U+FFFD is a valid name
    };
    for (const auto& entry : valid) {
        SCOPED_TRACE(entry.text);
        EXPECT_EQ(SignedFileName(std::string("/p/") + entry.text), entry.units);
    }
    const char* const invalid[] = {
        "\x80",                  // a continuation byte alone
        "a\xBFz",                // in the middle
        "\xC2",                  // a lead byte at the end
        "\xE0\xA0",              // a three-byte form cut short
        "\xF0\x9F\x94",          // a four-byte form cut short
        "\xC2z",                 // a lead byte followed by no continuation
        "\xE0\x41\x80",          // a broken continuation in the middle
        "\xC0\x80",              // overlong NUL
        "\xC1\xBF",              // overlong two-byte
        "\xE0\x9F\xBF",          // overlong three-byte
        "\xF0\x8F\xBF\xBF",      // overlong four-byte
        "\xED\xA0\x80",          // an encoded high surrogate
        "\xED\xBF\xBF",          // an encoded low surrogate
        "\xF4\x90\x80\x80",      // above U+10FFFF
        "\xF8\x88\x80\x80\x80",  // five-byte lead
        "\xFE",
        "\xFF",
    };
    for (const char* text : invalid) {
        const std::string path = std::string("/p/") + text;
        EXPECT_EQ(ict_test::ThrownText<Exception>([&] { SignedFileName(path); }),
                  "File name " + path + " is not valid UTF-8")
            << testing::PrintToString(path);
    }
}

}  // namespace
}  // namespace integrity_check_tool
