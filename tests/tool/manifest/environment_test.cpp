#include "manifest/environment.h"

#include <cstdlib>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "support/thrown.h"

namespace integrity_check_tool {
namespace {

template <typename Action>
std::string FailureOf(Action action) {
    return ict_test::ThrownText<Exception>(action);
}

// Sets a process variable for the life of the object.
class ScopedProcessVariable {
public:
    ScopedProcessVariable(const char* name, const char* value) : name_(name) {
#ifdef _WIN32
        _putenv_s(name, value);
#else
        setenv(name, value, 1);
#endif
    }
    ~ScopedProcessVariable() {
#ifdef _WIN32
        _putenv_s(name_, "");
#else
        unsetenv(name_);
#endif
    }

private:
    const char* name_;
};

class EnvironmentTest : public ::testing::Test {
protected:
    // The expansion, or the failure's text after "error: ".
    std::string Expanded(const std::string& text) const {
        try {
            return environment_.Expand(text);
        } catch (const Exception& error) {
            return std::string("error: ") + error.what();
        }
    }

    Environment environment_{"/opt/product/manifest.xml", nullptr};
};

TEST_F(EnvironmentTest, KeysAreNormalisedAndBadEntriesAreNamed) {
    EXPECT_EQ(environment_.GetValue("ManifestPath"), "/opt/product/manifest.xml");
    EXPECT_EQ(environment_.GetValue("%ProductRoot%"), "/opt/product");
    EXPECT_EQ(Environment("manifest.xml", nullptr).GetValue("ProductRoot"), ".");
    EXPECT_EQ(Environment::Placeholder2Key("my key"), "my key");
    for (const char* text : {"a%b", "%", "%%", "", "%A%%B%", "%A"}) {
        EXPECT_EQ(FailureOf([&] { Environment::Placeholder2Key(text); }),
                  std::string("Wrong format of environment variable ") + text);
    }
    environment_.SetValue("%Bin%", "first");
    environment_.SetValue("Bin", "second");
    EXPECT_EQ(environment_.GetValue("%Bin%"), "second");
    // A manifest entry may replace a built-in key.
    environment_.SetValue("ProductRoot", "/elsewhere");
    EXPECT_EQ(environment_.Expand("%ProductRoot%/x"), "/elsewhere/x");

    EXPECT_EQ(FailureOf([&] { environment_.SetValue("a%b", "x"); }),
              "Wrong format of environment variable a%b");
    EXPECT_EQ(FailureOf([&] { environment_.SetValue("Empty", ""); }),
              "Value of environment variable Empty is empty");
    EXPECT_EQ(FailureOf([&] { environment_.GetValue("Empty"); }),
              "Unknown environment variable Empty");
}

TEST_F(EnvironmentTest, ExpandReplacesKnownPlaceholdersPassAfterPass) {
    const std::map<std::string, std::string> values = {{"A", "1"},
                                                       {"B", "2"},
                                                       {"Bin", "%ProductRoot%/bin"},
                                                       {"Plugins", "%Bin%/plugins"},
                                                       {"Open", "%Bi"},
                                                       {"R", "%R%\\x"},
                                                       {"P", "%Q%"},
                                                       {"Q", "%P%"}};
    for (const auto& [key, value] : values) {
        environment_.SetValue(key, value);
    }
    // Matches run left to right ("% of %" is the first, an unknown key); one
    // key twice in one text is not a recursion; a placeholder formed only by a
    // substitution is expanded in the next pass.
    const std::pair<const char*, const char*> cases[] = {
        {"%ProductRoot%\\bin\\a.dll", "/opt/product\\bin\\a.dll"},
        {"%A%%B%", "12"},
        {"%%", "%%"},
        {"50% of %A%", "50% of %A%"},
        {"x%", "x%"},
        {"%%A%", "%1"},
        {"%Unknown%\\%A%", "%Unknown%\\1"},
        {"%A%/%A%", "1/1"},
        {"%Plugins%/p.so", "/opt/product/bin/plugins/p.so"},
        {"%Open%n%", "/opt/product/bin"},
        {"%R%", "error: Environment variable R used recursively"},
        {"%P%", "error: Environment variable P used recursively"}};
    for (const auto& [text, expanded] : cases) {
        EXPECT_EQ(Expanded(text), expanded) << text;
    }
}

// Values that double at each level would need gigabytes a few levels on;
// the expansion stops at the longest Windows path, counted in characters.
TEST_F(EnvironmentTest, ExpansionStopsAtTheLongestPath) {
    for (int level = 0; level < 30; ++level) {
        const std::string next = "%K" + std::to_string(level + 1) + "%";
        environment_.SetValue("K" + std::to_string(level), next + next);
    }
    environment_.SetValue("K30", "x");
    // K15 holds 32,768 characters: one too many. The bound holds for every
    // pass: K17 gives 8,192 characters, but on the way 8,192 copies of
    // "%K30%" are more than the bound; K18 stays below it all the way.
    // Without a bound K0 would need gigabytes: it comes only after K15.
    ASSERT_EQ(Expanded("%K15%"), "error: Expanded text of %K15% is too long");
    EXPECT_EQ(Expanded("%K0%"), "error: Expanded text of %K0% is too long");
    EXPECT_EQ(Expanded("%K17%"), "error: Expanded text of %K17% is too long");
    EXPECT_EQ(Expanded("%K18%"), std::string(4096, 'x'));
    environment_.SetValue("Long", std::string(Environment::kMaxExpandedLength, 'b'));
    EXPECT_EQ(Expanded("%Long%").size(), Environment::kMaxExpandedLength);
    EXPECT_EQ(Expanded("y%Long%"), "error: Expanded text of y%Long% is too long");

    const std::string longest(Environment::kMaxExpandedLength, 'a');
    EXPECT_EQ(Expanded(longest), longest);
    EXPECT_EQ(Expanded("%K30%" + longest.substr(1)), "x" + longest.substr(1));
    // The start of a long text names it, cut after 64 characters.
    EXPECT_EQ(Expanded(longest + "a"),
              "error: Expanded text of " + std::string(64, 'a') + "... is too long");
    EXPECT_EQ(Expanded("%K30%" + longest),
              "error: Expanded text of %K30%" + std::string(59, 'a') + "... is too long");
    // Characters, not bytes: 32,767 two-byte characters are a path Windows takes.
    std::string wide;
    for (std::size_t index = 1; index < Environment::kMaxExpandedLength; ++index) {
        wide += "\xC3\xA9";
    }
    EXPECT_EQ(Expanded("%K30%" + wide), "x" + wide);
    EXPECT_EQ(Expanded("%K30%%K30%" + wide),
              "error: Expanded text of %K30%%K30%" + std::string(wide, 0, 54) + "... is too long");
}

TEST_F(EnvironmentTest, ProcessEnvironmentTakesPrecedence) {
    ScopedProcessVariable variable("ICT_TEST_ROOT", "/from/process");
    environment_.SetValue("ICT_TEST_ROOT", "/from/manifest");
    EXPECT_EQ(environment_.GetValue("ICT_TEST_ROOT"), "/from/process");
    EXPECT_EQ(environment_.Expand("%ICT_TEST_ROOT%/a"), "/from/process/a");

    ScopedProcessVariable builtIn("ProductRoot", "/process/root");
    EXPECT_EQ(environment_.Expand("%ProductRoot%"), "/process/root");
}

}  // namespace
}  // namespace integrity_check_tool
