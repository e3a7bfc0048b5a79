// Registry checks against Wine's registry: every value type gives the bytes
// the checks compare, every root prefix resolves, and each failure is told
// with its own text, never the POSIX "not supported".
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wine_support.h"

namespace {

namespace e2e = ict_test::e2e;
using testing::HasSubstr;

// One seeded value: its .reg line and the bytes the narrow query returns
// (string data with their terminating zeros).
struct SeededValue {
    std::string name;  // empty: the key's default value
    std::string type;
    std::string regLine;
    std::string bytes;
};

const std::vector<SeededValue> kEveryType = {
    {"", "REG_SZ", "@=\"default text\"", std::string("default text", 13)},
    {"Sz", "REG_SZ", "\"Sz\"=\"text\"", std::string("text", 5)},
    {"Expand", "REG_EXPAND_SZ", "\"Expand\"=hex(2):25,53,79,73,74,65,6d,52,6f,6f,74,25,00",
     std::string("%SystemRoot%", 13)},
    {"Multi", "REG_MULTI_SZ", "\"Multi\"=hex(7):61,00,62,63,00,00", std::string("a\0bc\0", 6)},
    {"Dword", "REG_DWORD", "\"Dword\"=dword:01020304", std::string("\x04\x03\x02\x01", 4)},
    {"Qword", "REG_QWORD", "\"Qword\"=hex(b):08,07,06,05,04,03,02,01",
     std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8)},
    {"Binary", "REG_BINARY", "\"Binary\"=hex:de,ad,be,ef", std::string("\xde\xad\xbe\xef", 4)},
    {"None", "REG_NONE", "\"None\"=hex(0):01,02", std::string("\x01\x02", 2)},
};

std::string Value(const std::string& name, const std::string& type, const std::string& check,
                  const std::string& value = "") {
    return "    <Value name=\"" + name + "\" type=\"" + type + "\">" + e2e::Check(check, value) +
           "</Value>\n";
}

std::string Registry(const std::string& path, const std::string& values) {
    return "  <Registry path=\"" + path + "\">\n" + values + "  </Registry>\n";
}

TEST(RegistryUnderWine, EveryTypeEveryRootPrefixAndEachFailureReadTheRealRegistry) {
    ICT_REQUIRE_WINDOWS_BUILD();
    const std::string tail = "Software\\IctTest\\Registry";
    const std::string key = "HKEY_LOCAL_MACHINE\\" + tail;
    const std::string hklm = "HKLM\\" + tail;
    std::string seed = "REGEDIT4\n\n[" + key + "]\n";
    std::string right;
    for (const auto& value : kEveryType) {
        seed += value.regLine + "\n";
        right += Value(value.name, value.type, "Value", e2e::Base64(value.bytes));
    }
    wine_e2e::ImportRegistry(seed + "\n[HKEY_CURRENT_USER\\" + tail + "]\n\"Sz\"=\"text\"\n\n" +
                             "[HKEY_USERS\\S-1-5-18\\" + tail + "]\n\"Sz\"=\"text\"\n");
    std::string prefixes;
    for (const char* root : {"HKLM\\", "HKEY_LOCAL_MACHINE\\", "\\HKLM\\", "\\\\HKLM\\", "HKCU\\",
                             "HKEY_CURRENT_USER\\", "HKU\\S-1-5-18\\", "HKEY_USERS\\S-1-5-18\\"}) {
        prefixes += Registry(std::string(root) + tail,
                             Value("Sz", "REG_SZ", "Value", e2e::Base64(std::string("text", 5))));
    }
    const std::string in = "' in '" + hklm + "'";
    struct Case {
        const char* name;
        std::string registries;
        int exitCode;
        std::string counts;  // "Registries" and "Registry values"; empty: not checked
        std::vector<std::string> errors;
    };
    const std::vector<Case> cases = {
        {"every type's bytes",
         Registry(hklm, right),
         0,
         "0 / 0 / 1\n\tRegistry values: 0 / 0 / 8",
         {}},
        {"every root prefix", prefixes, 0, "", {}},
        {"existence of values and keys",
         Registry(hklm, Value("Sz", "REG_SZ", "Exists") + Value("Absent", "REG_SZ", "NotExists") +
                            Value("Gone", "REG_SZ", "Exists") +
                            Value("Dword", "REG_DWORD", "NotExists")) +
             Registry(hklm + "\\Missing", Value("Sz", "REG_SZ", "Exists")),
         1,
         "2 / 0 / 0\n\tRegistry values: 3 / 0 / 2",
         {"Registry key Gone not exists in " + hklm, "Registry key Dword exists in " + hklm,
          "Registry key Sz not exists in " + hklm + "\\Missing"}},
        {"read failure and types",
         Registry(hklm,
                  Value("Gone", "REG_SZ", "Value", "AA==") + Value("Sz", "REG_BINARY", "Exists")),
         1,
         "1 / 0 / 0\n\tRegistry values: 2 / 0 / 0",
         {"Can't read or access registry value 'Gone" + in + ". Reason: ",
          "Registry value 'Sz" + in + " has unexpected type 'REG_SZ' != expected 'REG_BINARY'"}},
        {"unknown prefixes",
         Registry("hklm\\" + tail, Value("Sz", "REG_SZ", "Exists")) +
             Registry("HKLM", Value("Sz", "REG_SZ", "Exists")),
         1,
         "",
         {"Registry path 'hklm\\" + tail + "' has unknown prefix",
          "Registry path 'HKLM' has unknown prefix"}},
    };
    ict_test::TempDir dir;
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ict_test::WriteText(dir / "registry.xml", e2e::ManifestText(test.registries));
        const auto run = wine_e2e::RunChecker({(dir / "registry.xml").string()});
        EXPECT_EQ(run.exitCode, test.exitCode) << run.Describe();
        if (!test.counts.empty()) {
            EXPECT_THAT(run.out, HasSubstr("\tRegistries: " + test.counts + "\n"));
        }
        for (const auto& error : test.errors) {
            EXPECT_THAT(run.err, HasSubstr(error)) << run.Describe();
        }
        EXPECT_THAT(run.err, testing::Not(HasSubstr("not supported")));
    }
}

}  // namespace
