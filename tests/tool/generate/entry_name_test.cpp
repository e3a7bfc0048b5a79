#include <gtest/gtest.h>

#include "generate/entry_name.h"

namespace integrity_check_tool::generate {
namespace {

#ifndef _WIN32
// File names are bytes here; Windows gives UTF-16 units instead.
TEST(EntryNameTest, OnlyNamesAManifestCanCarryPassAndOthersAreShownEscaped) {
    struct Case {
        std::string name;
        std::string shown;
        const char* problem;  // a word of the reason, or null
    };
    const std::vector<Case> cases = {
        {"bin/a.dll", "bin/a.dll", nullptr},
        {"a&b<c>\"d'.txt", "a&b<c>\"d'.txt", nullptr},
        {"new\nline\ttab\rret", "new\\x0Aline\\x09tab\\x0Dret", nullptr},
        {"\xD0\xB6\xE2\x82\xAC\xF0\x9F\x98\x80", "\xD0\xB6\xE2\x82\xAC\xF0\x9F\x98\x80", nullptr},
        {"del\x7F", "del\\x7F", nullptr},
        {"end\xD6", "end\\xD6", "UTF-8"},
        {"over\xC0\xAF", "over\\xC0\\xAF", "UTF-8"},                  // overlong '/'
        {"half\xE2\x82", "half\\xE2\\x82", "UTF-8"},                  // cut short
        {"sur\xED\xA0\x80", "sur\\xED\\xA0\\x80", "UTF-8"},           // a surrogate
        {"big\xF4\x90\x80\x80", "big\\xF4\\x90\\x80\\x80", "UTF-8"},  // above U+10FFFF
        {"bell\x07", "bell\\x07", "control character"},
        {"odd\\name.dll", "odd\\\\name.dll", "backslash"},
        {"not\xEF\xBF\xBF", "not\xEF\xBF\xBF", "control character"},  // U+FFFF
    };
    for (const auto& test : cases) {
        const EntryName name = DescribeEntryName(test.name);
        EXPECT_EQ(name.shown, test.shown) << test.name;
        if (test.problem == nullptr) {
            EXPECT_EQ(name.problem, nullptr) << test.name << ": " << name.problem;
            EXPECT_EQ(name.text, test.name);
        } else {
            ASSERT_NE(name.problem, nullptr) << test.name;
            EXPECT_NE(std::string(name.problem).find(test.problem), std::string::npos)
                << test.name << ": " << name.problem;
        }
    }
    EXPECT_EQ(ShowName("a\nb\\c"), "a\\x0Ab\\\\c");
}
#endif

TEST(EntryNameTest, PercentSignsThatWouldFormAPlaceholderAreFound) {
    struct Case {
        const char* folder;
        const char* name;
        bool placeholder;
    };
    const std::vector<Case> cases = {
        {"%ProductRoot%", "%HOME%.txt", true},
        {"%ProductRoot%", "sub\\%HOME%\\a.txt", true},
        {"%ProductRoot%", "a%\\b%.txt", true},  // pairs across folders
        {"C:\\100%", "x%y.txt", true},          // pairs with the folder's own '%'
        {"%ProductRoot%", "100%.txt", false},
        {"%ProductRoot%", "a%%b", false},  // "%%" holds no key
        {"%ProductRoot%\\50%", "plain.txt", false},
        {"%Bin%", "a.dll", false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(NameMakesPlaceholder(test.folder, test.name), test.placeholder)
            << test.folder << " + " << test.name;
    }
}

}  // namespace
}  // namespace integrity_check_tool::generate
