#include "manifest/environment.h"

#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"

namespace integrity_check_tool {
namespace {

// The message of the Exception thrown by `action`, or "" when none is.
template <typename Action>
std::string FailureOf(Action action) {
    try {
        action();
    } catch (const Exception& error) {
        return error.GetMessage();
    }
    return "";
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
