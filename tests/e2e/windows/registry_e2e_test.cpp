#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wine_support.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

// One seeded registry value: its .reg line and the bytes the narrow query
// returns for it (string data with their terminating zeros).
struct SeededValue {
    std::string name;  // empty: the key's default value
    std::string type;
    std::string regLine;
    std::string bytes;
};

std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (int value : values) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

const std::vector<SeededValue>& EveryType() {
    static const std::vector<SeededValue> values = {
        {"", "REG_SZ", "@=\"default text\"", std::string("default text", 13)},
        {"Sz", "REG_SZ", "\"Sz\"=\"text\"", std::string("text", 5)},
        {"Expand", "REG_EXPAND_SZ", "\"Expand\"=hex(2):25,53,79,73,74,65,6d,52,6f,6f,74,25,00",
         std::string("%SystemRoot%", 13)},
        {"Multi", "REG_MULTI_SZ", "\"Multi\"=hex(7):61,00,62,63,00,00", std::string("a\0bc\0", 6)},
        {"Dword", "REG_DWORD", "\"Dword\"=dword:01020304", Bytes({4, 3, 2, 1})},
        {"Qword", "REG_QWORD", "\"Qword\"=hex(b):08,07,06,05,04,03,02,01",
         Bytes({8, 7, 6, 5, 4, 3, 2, 1})},
        {"Binary", "REG_BINARY", "\"Binary\"=hex:de,ad,be,ef", Bytes({0xde, 0xad, 0xbe, 0xef})},
        {"None", "REG_NONE", "\"None\"=hex(0):01,02", Bytes({1, 2})},
    };
    return values;
}

class RegistryUnderWine : public testing::Test {
protected:
    void SetUp() override {
        ICT_REQUIRE_WINDOWS_BUILD();
        key_ = wine_e2e::TestKeyPath();
        // The same key as the manifests name it (short root prefix).
        manifestKey_ = "HKLM\\" + key_.substr(std::string("HKEY_LOCAL_MACHINE\\").size());
    }

    void SeedEveryType() {
        std::string reg = "REGEDIT4\n\n[" + key_ + "]\n";
        for (const auto& value : EveryType()) {
            reg += value.regLine + "\n";
        }
        wine_e2e::ImportRegistry(reg);
    }

    // A manifest with one "Registry" record per key and one "Value" per
    // entry, each with the given checks.
    fs::path WriteManifest(const std::string& registries) {
        const fs::path path = dir_ / "registry.xml";
        ict_test::WriteText(path, ict_test::e2e::ManifestText(registries));
        return path;
    }

    static std::string ValueRecord(const std::string& name, const std::string& type,
                                   const std::string& checks) {
        return "    <Value name=\"" + name + "\" type=\"" + type + "\">" + checks + "</Value>\n";
    }

    static std::string Registry(const std::string& path, const std::string& values) {
        return "  <Registry path=\"" + path + "\">\n" + values + "  </Registry>\n";
    }

    static std::string Check(const std::string& type, const std::string& value = "") {
        return ict_test::e2e::Check(type, value);
    }

    std::string key_;
    std::string manifestKey_;
    ict_test::TempDir dir_;
};

// Every value type, every check kind: right data passes, wrong data fails
// with the check's own text.
TEST_F(RegistryUnderWine, EveryTypePassesOnItsBytesAndFailsOnOthers) {
    SeedEveryType();
    struct Kind {
        const char* check;
        std::string (*expected)(const std::string&);
        const char* mismatch;  // the failure text after "Registry key <name> in <key> "
    };
    const std::vector<Kind> kinds = {
        {"Value", &ict_test::e2e::Base64, "has unexpected value"},
        {"Sha256", &ict_test::e2e::Sha256Base64, "has unexpected hash "},
        {"Gost2012", &wine_e2e::Gost2012Base64, "has unexpected hash "},
    };
    for (const auto& kind : kinds) {
        SCOPED_TRACE(kind.check);
        std::string right;
        std::string wrong;
        for (const auto& value : EveryType()) {
            right +=
                ValueRecord(value.name, value.type, Check(kind.check, kind.expected(value.bytes)));
            wrong += ValueRecord(value.name, value.type,
                                 Check(kind.check, kind.expected(value.bytes + "x")));
        }
        auto run = wine_e2e::RunChecker({WriteManifest(Registry(manifestKey_, right)).string()});
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("\tRegistries: 0 / 0 / 1\n\tRegistry values: 0 / 0 / 8\n"))
            << run.Describe();

        run = wine_e2e::RunChecker({WriteManifest(Registry(manifestKey_, wrong)).string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("\tRegistries: 1 / 0 / 0\n\tRegistry values: 8 / 0 / 0\n"))
            << run.Describe();
        for (const auto& value : EveryType()) {
            EXPECT_THAT(run.err,
                        HasSubstr("Verification mismatch with '" + std::string(kind.check) +
                                  "' checker. Reason: Registry key " + value.name + " in " +
                                  manifestKey_ + " " + kind.mismatch))
                << value.type;
        }
    }
}

TEST_F(RegistryUnderWine, ExistenceOfPresentAndMissingValuesAndKeys) {
    SeedEveryType();
    const std::string missingKey = manifestKey_ + "\\Missing";
    struct Case {
        const char* check;
        bool presentPasses;
    };
    for (const Case& c : {Case{"Exists", true}, Case{"NotExists", false}}) {
        SCOPED_TRACE(c.check);
        std::string present;
        for (const auto& value : EveryType()) {
            present += ValueRecord(value.name, value.type, Check(c.check));
        }
        const std::string absent =
            Registry(manifestKey_, ValueRecord("Gone", "REG_SZ", Check(c.check))) +
            Registry(missingKey, ValueRecord("Sz", "REG_SZ", Check(c.check)));
        const auto run = wine_e2e::RunChecker(
            {WriteManifest(Registry(manifestKey_, present) + absent).string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        if (c.presentPasses) {
            // 8 present values pass, the missing value and the missing key fail.
            EXPECT_THAT(run.out, HasSubstr("\tRegistry values: 2 / 0 / 8\n")) << run.Describe();
            EXPECT_THAT(run.err, HasSubstr("Registry key Gone not exists in " + manifestKey_));
            EXPECT_THAT(run.err, HasSubstr("Registry key Sz not exists in " + missingKey));
        } else {
            EXPECT_THAT(run.out, HasSubstr("\tRegistry values: 8 / 0 / 2\n")) << run.Describe();
            EXPECT_THAT(run.err, HasSubstr("Registry key Dword exists in " + manifestKey_));
        }
    }
}

TEST_F(RegistryUnderWine, ReadFailuresAndTypeMismatchUseTheExactTexts) {
    SeedEveryType();
    const auto run = wine_e2e::RunChecker(
        {WriteManifest(
             Registry(manifestKey_,
                      ValueRecord("Gone", "REG_SZ", Check("Value", "AA==")) +
                          ValueRecord("Dword", "REG_DWORD_LITTLE_ENDIAN",
                                      Check("Value", ict_test::e2e::Base64(Bytes({4, 3, 2, 1})))) +
                          ValueRecord("Qword", "REG_QWORD_LITTLE_ENDIAN", Check("Exists")) +
                          ValueRecord("Sz", "REG_BINARY", Check("Exists"))))
             .string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    // The system's own text for "file not found", not the POSIX "not supported".
    const std::string readFailure =
        "Can't read or access registry value 'Gone' in '" + manifestKey_ + "'. Reason: ";
    ASSERT_THAT(run.err, HasSubstr(readFailure)) << run.Describe();
    const auto at = run.err.find(readFailure) + readFailure.size();
    const std::string reason = run.err.substr(at, run.err.find('\n', at) - at);
    EXPECT_FALSE(reason.empty());
    EXPECT_THAT(reason, Not(HasSubstr("not supported")));
    EXPECT_THAT(run.err, HasSubstr("Registry value 'Dword' in '" + manifestKey_ +
                                   "' has unexpected type 'REG_DWORD' != expected "
                                   "'REG_DWORD_LITTLE_ENDIAN'"));
    EXPECT_THAT(run.err, HasSubstr("Registry value 'Qword' in '" + manifestKey_ +
                                   "' has unexpected type 'REG_QWORD' != expected "
                                   "'REG_QWORD_LITTLE_ENDIAN'"));
    EXPECT_THAT(run.err, HasSubstr("Registry value 'Sz' in '" + manifestKey_ +
                                   "' has unexpected type 'REG_SZ' != expected 'REG_BINARY'"));
    EXPECT_THAT(run.out, HasSubstr("\tRegistry values: 4 / 0 / 0\n"));
}

TEST_F(RegistryUnderWine, EveryRootPrefixFormResolvesAndOthersAreUnknown) {
    const std::string tail = key_.substr(std::string("HKEY_LOCAL_MACHINE\\").size());
    wine_e2e::ImportRegistry("REGEDIT4\n\n[" + key_ +
                             "]\n\"Sz\"=\"text\"\n\n"
                             "[HKEY_CURRENT_USER\\" +
                             tail +
                             "]\n\"Sz\"=\"text\"\n\n"
                             "[HKEY_USERS\\S-1-5-18\\" +
                             tail + "]\n\"Sz\"=\"text\"\n");
    const std::string good = ict_test::e2e::Base64(std::string("text", 5));
    const std::vector<std::string> resolving = {
        "HKLM\\" + tail,          "HKEY_LOCAL_MACHINE\\" + tail,
        "\\HKLM\\" + tail,        "\\\\HKLM\\" + tail,
        "HKCU\\" + tail,          "HKEY_CURRENT_USER\\" + tail,
        "HKU\\S-1-5-18\\" + tail, "HKEY_USERS\\S-1-5-18\\" + tail,
    };
    for (const auto& path : resolving) {
        SCOPED_TRACE(path);
        const auto run = wine_e2e::RunChecker(
            {WriteManifest(Registry(path, ValueRecord("Sz", "REG_SZ", Check("Value", good))))
                 .string()});
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
    }
    for (const std::string& path : {"hklm\\" + tail, std::string("HKLM")}) {
        SCOPED_TRACE(path);
        const auto run = wine_e2e::RunChecker(
            {WriteManifest(Registry(path, ValueRecord("Sz", "REG_SZ", Check("Exists")))).string()});
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_THAT(run.err, HasSubstr("Registry path '" + path + "' has unknown prefix"));
    }
}

TEST_F(RegistryUnderWine, AKeyWhoseFirstValueFailsIsFailedOnceWithAllValuesChecked) {
    SeedEveryType();
    const auto run = wine_e2e::RunChecker(
        {WriteManifest(
             Registry(manifestKey_, ValueRecord("Sz", "REG_SZ", Check("Value", "AA==")) +
                                        ValueRecord("Dword", "REG_DWORD", Check("Exists")) +
                                        ValueRecord("Binary", "REG_BINARY", Check("Exists"))))
             .string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tRegistries: 1 / 0 / 0\n\tRegistry values: 1 / 0 / 2\n"));
    // One failure line for the key (its reason names the key once more).
    const std::string keyFailed = "\nregistry path " + manifestKey_ + " failed.";
    const auto first = ("\n" + run.err).find(keyFailed);
    ASSERT_NE(first, std::string::npos) << run.Describe();
    EXPECT_EQ(("\n" + run.err).find(keyFailed, first + 1), std::string::npos) << run.Describe();
}

}  // namespace
