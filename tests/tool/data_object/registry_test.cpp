#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "data_object/registry.h"
#include "platform/registry.h"
#include "support/thrown.h"

namespace integrity_check_tool::data_object {
namespace {

using testing::HasSubstr;

template <typename Action>
std::string ErrorText(Action&& action) {
    return ict_test::ThrownText<Exception>(action);
}

// Each root by its short and its long name; the first matching prefix is cut.
TEST(RegistryPrefixTest, EachRootByBothNamesAndUnknownPrefixesNamed) {
    const struct {
        const char* shortName;
        const char* longName;
        PredefinedKey root;
    } roots[] = {
        {"HKLM", "HKEY_LOCAL_MACHINE", PredefinedKey::LocalMachine},
        {"HKU", "HKEY_USERS", PredefinedKey::Users},
        {"HKCR", "HKEY_CLASSES_ROOT", PredefinedKey::ClassesRoot},
        {"HKCC", "HKEY_CURRENT_CONFIG", PredefinedKey::CurrentConfig},
        {"HKCU", "HKEY_CURRENT_USER", PredefinedKey::CurrentUser},
        {"HKDD", "HKEY_DYN_DATA", PredefinedKey::DynData},
        {"HKPD", "HKEY_PERFORMANCE_DATA", PredefinedKey::PerformanceData},
        {"HKPT", "HKEY_PERFORMANCE_TEXT", PredefinedKey::PerformanceText},
        {"HKPN", "HKEY_PERFORMANCE_NLSTEXT", PredefinedKey::PerformanceNlsText},
    };
    for (const auto& root : roots) {
        for (const std::string name : {root.shortName, root.longName}) {
            for (const std::string& rest : {std::string("Software\\Demo"), std::string()}) {
                std::string path = name + "\\" + rest;
                EXPECT_EQ(Registry::ExtractPredefinedKey(path), root.root) << name;
                EXPECT_EQ(path, rest) << name;
            }
        }
    }
    std::string leading = "\\\\HKLM\\Software";
    EXPECT_EQ(Registry::ExtractPredefinedKey(leading), PredefinedKey::LocalMachine);
    EXPECT_EQ(leading, "Software");
    // Named without their leading backslashes.
    for (const std::string path :
         {"hklm\\Software", "HKLM", "\\\\HKLMX\\Software", "", "HKEY_LOCAL_MACHINE/Software"}) {
        std::string copy = path;
        const auto kept = path.find_first_not_of('\\');
        const std::string shown = kept == std::string::npos ? "" : path.substr(kept);
        EXPECT_EQ(ErrorText([&] { Registry::ExtractPredefinedKey(copy); }),
                  "Registry path '" + shown + "' has unknown prefix");
    }
}

TEST(RegistryTypeTest, FirstPairPerNativeCodeWins) {
    const struct {
        std::uint32_t native;
        RegistryType expected;
        const char* shown;  // the stored type named in the error; null: accepted
    } cases[] = {
        {4, RegistryType::Dword, nullptr},
        {11, RegistryType::Qword, nullptr},
        {1, RegistryType::Sz, nullptr},
        {0, RegistryType::None, nullptr},
        {3, RegistryType::Binary, nullptr},
        {5, RegistryType::DwordBigEndian, nullptr},
        {2, RegistryType::ExpandSz, nullptr},
        {6, RegistryType::Link, nullptr},
        {7, RegistryType::MultiSz, nullptr},
        {4, RegistryType::DwordLittleEndian, "REG_DWORD"},
        {11, RegistryType::QwordLittleEndian, "REG_QWORD"},
        {1, RegistryType::ExpandSz, "REG_SZ"},
        {8, RegistryType::Binary, "8"},
    };
    for (const auto& test : cases) {
        const std::string error = ErrorText(
            [&] { Registry::CheckNativeType(test.native, test.expected, "V", "HKLM\\K"); });
        EXPECT_EQ(error, test.shown == nullptr
                             ? "(nothing thrown)"
                             : "Registry value 'V' in 'HKLM\\K' has unexpected type '" +
                                   std::string(test.shown) + "' != expected '" +
                                   ToName(test.expected) + "'")
            << test.native;
    }
}

// A registry of one key with values of the given native types and bytes.
struct FakeRegistry {
    std::uint32_t operator()(PredefinedKey root, const std::string& subKey,
                             const std::string& valueName, std::uint32_t& nativeType,
                             std::vector<std::uint8_t>& data) const {
        lastRoot = root;
        lastSubKey = subKey;
        if (subKey != "Software\\Demo") {
            return platform::kRegistryNotFound;
        }
        if (valueName == "Count") {
            nativeType = 4;
            data = {7, 0, 0, 0};
            return 0;
        }
        if (valueName.empty()) {
            nativeType = 1;
            data = {'d', 'e', 'f', 0};
            return 0;
        }
        if (valueName == "Locked") {
            return 5;  // access denied
        }
        return platform::kRegistryNotFound;
    }
    mutable PredefinedKey lastRoot = PredefinedKey::ClassesRoot;
    mutable std::string lastSubKey;
};

std::vector<std::uint8_t> ReadAll(ruk::IIO& io) {
    std::vector<std::uint8_t> bytes(64);
    std::size_t count = 0;
    EXPECT_TRUE(ruk::Succeeded(ruk::ReadFully(io, bytes.data(), bytes.size(), &count)));
    bytes.resize(count);
    return bytes;
}

TEST(RegistryTest, ExistenceAndDataThroughTheReader) {
    const FakeRegistry reader;
    const auto value = [&](const std::string& key, const std::string& name, RegistryType type) {
        return Registry(key, name, type, std::cref(reader));
    };
    EXPECT_TRUE(value("HKLM\\Software\\Demo", "Count", RegistryType::Dword).IsExists());
    EXPECT_EQ(reader.lastRoot, PredefinedKey::LocalMachine);
    EXPECT_EQ(reader.lastSubKey, "Software\\Demo");
    EXPECT_EQ(ReadAll(*value("HKLM\\Software\\Demo", "Count", RegistryType::Dword).GetData()),
              (std::vector<std::uint8_t>{7, 0, 0, 0}));
    // The default value's string keeps its stored terminating zero.
    EXPECT_EQ(ReadAll(*value("HKLM\\Software\\Demo", "", RegistryType::Sz).GetData()),
              (std::vector<std::uint8_t>{'d', 'e', 'f', 0}));

    EXPECT_FALSE(value("HKLM\\Software\\Demo", "Missing", RegistryType::Sz).IsExists());
    EXPECT_FALSE(value("HKLM\\Software\\Other", "Count", RegistryType::Dword).IsExists());
    EXPECT_THAT(
        ErrorText([&] { value("HKLM\\Software\\Other", "Count", RegistryType::Dword).GetData(); }),
        HasSubstr("Can't read or access registry value 'Count' in "
                  "'HKLM\\Software\\Other'. Reason: "));

    // A type mismatch is an error even for the existence question.
    EXPECT_THAT(
        ErrorText([&] {
            value("HKLM\\Software\\Demo", "Count", RegistryType::DwordLittleEndian).IsExists();
        }),
        HasSubstr("has unexpected type 'REG_DWORD' != expected"));
    EXPECT_THAT(
        ErrorText([&] { value("HKLM\\Software\\Demo", "Locked", RegistryType::Sz).IsExists(); }),
        HasSubstr("Can't read or access registry value 'Locked' in "
                  "'HKLM\\Software\\Demo'. Reason: "));
    EXPECT_EQ(value("HKLM\\Software\\Demo", "Count", RegistryType::Dword).GetTypeName(),
              "Registry");
}

TEST(RegistryTest, SystemRegistryOfThisPlatform) {
    Registry value("HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ProductName",
                   RegistryType::Sz);
#ifdef _WIN32
    EXPECT_TRUE(value.IsExists());
#else
    // No registry here: every read fails with the system's "not supported".
    const std::string reason = std::strerror(ENOTSUP);
    EXPECT_EQ(ErrorText([&] { value.IsExists(); }),
              "Can't read or access registry value 'ProductName' in "
              "'HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion'. Reason: " +
                  reason);
    EXPECT_EQ(ErrorText([&] { value.GetData(); }),
              "Can't read or access registry value 'ProductName' in "
              "'HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion'. Reason: " +
                  reason);
#endif
}

}  // namespace
}  // namespace integrity_check_tool::data_object
