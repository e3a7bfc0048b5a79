#include <cctype>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>
#include <boost/process/search_path.hpp>

#include "wine_support.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;

// The terminal's text without its control sequences (ESC [ ... letter).
std::string WithoutControlSequences(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\x1b' && i + 1 < text.size() && text[i + 1] == '[') {
            i += 2;
            while (i < text.size() && !std::isalpha(static_cast<unsigned char>(text[i]))) {
                ++i;
            }
            continue;
        }
        plain.push_back(text[i]);
    }
    return plain;
}

// A Russian Windows: Wine takes its code pages (ANSI 1251, OEM 866) from the
// host locale, compiled here into a folder of the test's own.
TEST(ConsoleTextUnderWine, NamesAreBytesOfTheUsersCodePageRedirectedAndCharactersOnAConsole) {
    ICT_REQUIRE_WINDOWS_BUILD();
    ict_test::TempDir dir;
    ict_test::RunOptions locale;
    locale.arguments = {"-i", "ru_RU", "-f", "UTF-8", (dir / "locales" / "ru_RU.UTF-8").string()};
    fs::create_directories(dir / "locales");
    const auto compiled = ict_test::RunProgram(boost::process::search_path("localedef"), locale);
    if (!fs::exists(dir / "locales" / "ru_RU.UTF-8")) {
        GTEST_SKIP() << "localedef can't build ru_RU.UTF-8 (Debian package locales): "
                     << compiled.Describe();
    }
    const fs::path script = boost::process::search_path("script");
    ASSERT_FALSE(script.empty()) << "script (util-linux) gives the program a console";

    const std::string utf8Name = "\xd1\x84\xd0\xb0\xd0\xb9\xd0\xbb.dll";  // "файл.dll"
    const std::string cp1251Name = "\xf4\xe0\xe9\xeb.dll";
    const fs::path manifest = dir / "m.xml";
    ict_test::WriteText(manifest, ict_test::e2e::ManifestText(
                                      ict_test::e2e::FileRecord("%ProductRoot%\\" + utf8Name)));
    std::map<std::string, std::string> russian = {
        {"LOCPATH", (dir / "locales").string()}, {"LC_ALL", "ru_RU.UTF-8"}, {"WINEDEBUG", "-all"}};

    // Redirected, the reader gets the bytes of the user's code page.
    ict_test::RunOptions redirected;
    redirected.arguments = {manifest.string()};
    redirected.environment = russian;
    const auto piped = wine_e2e::RunUnderWine(wine_e2e::WindowsCheckerPath(), redirected);
    EXPECT_EQ(piped.exitCode, 1) << piped.Describe();
    EXPECT_THAT(piped.err, HasSubstr(cp1251Name)) << piped.Describe();

    // On a console, whose own code page (866) differs, the name shows as the
    // characters it is: Wine's console hands them to the terminal as UTF-8.
    ict_test::RunOptions console;
    console.arguments = {"-qec",
                         "'" + wine_e2e::Wine().string() + "' '" +
                             wine_e2e::ToWinePath(wine_e2e::WindowsCheckerPath()) + "' '" +
                             wine_e2e::ToWinePath(manifest) + "'",
                         "/dev/null"};
    console.environment = russian;
    const auto shown = ict_test::RunProgram(script, console);
    const std::string text = WithoutControlSequences(shown.out);
    EXPECT_EQ(shown.exitCode, 1) << shown.Describe();
    EXPECT_THAT(text, HasSubstr(utf8Name)) << shown.Describe();
    EXPECT_THAT(text, HasSubstr("FAILED")) << shown.Describe();
}

}  // namespace
