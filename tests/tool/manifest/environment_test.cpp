#include "manifest/environment.h"

#include <cstdlib>

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
    Environment environment_{"/opt/product/manifest.xml", nullptr};
};

TEST_F(EnvironmentTest, BuiltInKeysComeFromTheManifestPath) {
    EXPECT_EQ(environment_.GetValue("ManifestPath"), "/opt/product/manifest.xml");
    EXPECT_EQ(environment_.GetValue("%ProductRoot%"), "/opt/product");
    EXPECT_EQ(environment_.Expand("%ProductRoot%\\bin\\a.dll"), "/opt/product\\bin\\a.dll");

    Environment bare("manifest.xml", nullptr);
    EXPECT_EQ(bare.GetValue("ProductRoot"), ".");
}

TEST_F(EnvironmentTest, Placeholder2KeyAcceptsWrappedAndBareKeysOnly) {
    EXPECT_EQ(Environment::Placeholder2Key("%Bin%"), "Bin");
    EXPECT_EQ(Environment::Placeholder2Key("Bin"), "Bin");
    EXPECT_EQ(Environment::Placeholder2Key("my key"), "my key");
    for (const char* text : {"a%b", "%", "%%", "", "%A%%B%", "%A"}) {
        EXPECT_EQ(FailureOf([&] { Environment::Placeholder2Key(text); }),
                  std::string("Wrong format of environment variable ") + text);
    }
}

TEST_F(EnvironmentTest, SetValueNormalisesKeysAndRejectsBadEntries) {
    environment_.SetValue("%Bin%", "first");
    environment_.SetValue("Bin", "second");
    EXPECT_EQ(environment_.GetValue("Bin"), "second");
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

TEST_F(EnvironmentTest, ExpandReplacesKnownPlaceholdersAndKeepsTheRest) {
    environment_.SetValue("A", "1");
    environment_.SetValue("B", "2");
    EXPECT_EQ(environment_.Expand("%A%%B%"), "12");
    EXPECT_EQ(environment_.Expand("%%"), "%%");
    // Matches run left to right: "% of %" is the first, an unknown key.
    EXPECT_EQ(environment_.Expand("50% of %A%"), "50% of %A%");
    EXPECT_EQ(environment_.Expand("x%"), "x%");
    EXPECT_EQ(environment_.Expand("%%A%"), "%1");
    EXPECT_EQ(environment_.Expand("%Unknown%\\%A%"), "%Unknown%\\1");
    EXPECT_EQ(environment_.Expand("no placeholders"), "no placeholders");
    // One key twice in one text is not a recursion.
    EXPECT_EQ(environment_.Expand("%A%/%A%"), "1/1");
}

TEST_F(EnvironmentTest, ExpandFollowsValuesThatHoldPlaceholders) {
    environment_.SetValue("Bin", "%ProductRoot%/bin");
    environment_.SetValue("Plugins", "%Bin%/plugins");
    EXPECT_EQ(environment_.Expand("%Plugins%/p.so"), "/opt/product/bin/plugins/p.so");
    // A placeholder formed only by a substitution is expanded in the next pass.
    environment_.SetValue("Open", "%Bi");
    EXPECT_EQ(environment_.Expand("%Open%n%"), "/opt/product/bin");
}

TEST_F(EnvironmentTest, RecursionEndsWithAnErrorNamingTheKey) {
    environment_.SetValue("A", "%A%\\x");
    EXPECT_EQ(FailureOf([&] { environment_.Expand("%A%"); }),
              "Environment variable A used recursively");

    environment_.SetValue("P", "%Q%");
    environment_.SetValue("Q", "%P%");
    EXPECT_EQ(FailureOf([&] { environment_.Expand("%P%"); }),
              "Environment variable P used recursively");
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
    ASSERT_EQ(FailureOf([&] { environment_.Expand("%K15%"); }),
              "Expanded text of %K15% is too long");
    EXPECT_EQ(FailureOf([&] { environment_.Expand("%K0%"); }), "Expanded text of %K0% is too long");
    EXPECT_EQ(FailureOf([&] { environment_.Expand("%K17%"); }),
              "Expanded text of %K17% is too long");
    EXPECT_EQ(environment_.Expand("%K18%"), std::string(4096, 'x'));
    environment_.SetValue("Long", std::string(Environment::kMaxExpandedLength, 'b'));
    EXPECT_EQ(environment_.Expand("%Long%").size(), Environment::kMaxExpandedLength);
    EXPECT_EQ(FailureOf([&] { environment_.Expand("y%Long%"); }),
              "Expanded text of y%Long% is too long");

    const std::string longest(Environment::kMaxExpandedLength, 'a');
    EXPECT_EQ(environment_.Expand(longest).size(), longest.size());
    EXPECT_EQ(environment_.Expand("%K30%" + longest.substr(1)).size(), longest.size());
    // The start of a long text names it, cut after 64 characters.
    EXPECT_EQ(FailureOf([&] { environment_.Expand(longest + "a"); }),
              "Expanded text of " + std::string(64, 'a') + "... is too long");
    EXPECT_EQ(FailureOf([&] { environment_.Expand("%K30%" + longest); }),
              "Expanded text of %K30%" + std::string(59, 'a') + "... is too long");
    // Characters, not bytes: 32,767 two-byte characters are a path Windows takes.
    std::string wide;
    for (std::size_t index = 1; index < Environment::kMaxExpandedLength; ++index) {
        wide += "\xC3\xA9";
    }
    EXPECT_EQ(environment_.Expand("%K30%" + wide).size(), 1 + wide.size());
    EXPECT_EQ(FailureOf([&] { environment_.Expand("%K30%%K30%" + wide); }),
              "Expanded text of %K30%%K30%" + std::string(wide, 0, 54) + "... is too long");
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
