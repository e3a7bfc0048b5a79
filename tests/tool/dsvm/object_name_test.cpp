#include <gtest/gtest.h>

#include "dsvm/object_name.h"

namespace integrity_check_tool::dsvm {
namespace {

std::u16string Name(const std::string& path) {
    const std::vector<char16_t> name = GetObjectName(boost::filesystem::path(path));
    EXPECT_FALSE(name.empty());
    EXPECT_EQ(name.back(), u'\0') << path;
    return std::u16string(name.begin(), name.end() - 1);
}

TEST(ObjectNameTest, IsTheLastComponentAfterEitherSeparatorOrADrive) {
    EXPECT_EQ(Name("C:\\Program Files\\Product\\a.exe"), u"a.exe");
    EXPECT_EQ(Name("/opt/product/bin/b.dll"), u"b.dll");
    EXPECT_EQ(Name("mixed/dir\\c.sys"), u"c.sys");
    EXPECT_EQ(Name("D:d.dll"), u"d.dll");
    EXPECT_EQ(Name("plain.txt"), u"plain.txt");
    EXPECT_EQ(Name("dir/"), u"");
    // Only a letter and a colon at the start make a drive.
    EXPECT_EQ(Name("1:e.dll"), u"1:e.dll");
}

TEST(ObjectNameTest, NarrowPathsAreDecodedAsUtf8) {
    EXPECT_EQ(Name("/tmp/\xD1\x84\xD0\xB0\xD0\xB9\xD0\xBB.dll"), u"\u0444\u0430\u0439\u043B.dll");
    EXPECT_EQ(Utf8ToUtf16("\xF0\x9F\x94\x91"), u"\U0001F511");  // a surrogate pair
    // Truncated, overlong and stray bytes become U+FFFD, one per bad byte.
    EXPECT_EQ(Utf8ToUtf16("a\xD1"), u"a\uFFFD");
    EXPECT_EQ(Utf8ToUtf16("\xC0\xAF"), u"\uFFFD\uFFFD");
    EXPECT_EQ(Utf8ToUtf16("\x80z"), u"\uFFFDz");
    EXPECT_EQ(Utf8ToUtf16("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");  // an encoded surrogate
}

}  // namespace
}  // namespace integrity_check_tool::dsvm
