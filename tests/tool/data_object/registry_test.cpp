#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "data_object/registry.h"
#include "platform/registry.h"

namespace integrity_check_tool::data_object {
namespace {

using testing::HasSubstr;

template <typename Action>
std::string ErrorText(Action&& action) {
    try {
        action();
    } catch (const Exception& error) {
        return error.what();
    }
    return "(no Exception)";
}

TEST(RegistryPrefixTest, FirstMatchingPrefixIsCutAndNamesTheRoot) {
    struct Case {
        std::string path;
        PredefinedKey root;
        std::string rest;
    };
    const Case cases[] = {
        {"HKLM\\Software\\Demo", PredefinedKey::LocalMachine, "Software\\Demo"},
        {"\\\\HKLM\\Software", PredefinedKey::LocalMachine, "Software"},
        {"HKEY_LOCAL_MACHINE\\SOFTWARE", PredefinedKey::LocalMachine, "SOFTWARE"},
        {"HKU\\S-1-5-18", PredefinedKey::Users, "S-1-5-18"},
        {"HKEY_USERS\\.DEFAULT", PredefinedKey::Users, ".DEFAULT"},
        {"HKCR\\.txt", PredefinedKey::ClassesRoot, ".txt"},
        {"HKEY_CLASSES_ROOT\\CLSID", PredefinedKey::ClassesRoot, "CLSID"},
        {"HKCC\\System", PredefinedKey::CurrentConfig, "System"},
        {"HKEY_CURRENT_CONFIG\\System", PredefinedKey::CurrentConfig, "System"},
        {"HKCU\\Software", PredefinedKey::CurrentUser, "Software"},
        {"HKEY_CURRENT_USER\\Software", PredefinedKey::CurrentUser, "Software"},
        {"HKDD\\x", PredefinedKey::DynData, "x"},
        {"HKEY_DYN_DATA\\x", PredefinedKey::DynData, "x"},
        {"HKPD\\x", PredefinedKey::PerformanceData, "x"},
        {"HKEY_PERFORMANCE_DATA\\x", PredefinedKey::PerformanceData, "x"},
        {"HKPT\\x", PredefinedKey::PerformanceText, "x"},
        {"HKEY_PERFORMANCE_TEXT\\x", PredefinedKey::PerformanceText, "x"},
        {"HKPN\\x", PredefinedKey::PerformanceNlsText, "x"},
        {"HKEY_PERFORMANCE_NLSTEXT\\x", PredefinedKey::PerformanceNlsText, "x"},
        {"HKLM\\", PredefinedKey::LocalMachine, ""},
    };
    for (const auto& entry : cases) {
        std::string path = entry.path;
        EXPECT_EQ(Registry::ExtractPredefinedKey(path), entry.root) << entry.path;
        EXPECT_EQ(path, entry.rest) << entry.path;
    }
}

TEST(RegistryPrefixTest, UnknownPrefixesNameThePathWithoutLeadingBackslashes) {
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
    const auto check = [](std::uint32_t native, RegistryType expected) {
        return ErrorText([&] { Registry::CheckNativeType(native, expected, "V", "HKLM\\K"); });
    };
    const std::string noError = "(no Exception)";
    EXPECT_EQ(check(4, RegistryType::Dword), noError);
    EXPECT_EQ(check(11, RegistryType::Qword), noError);
    EXPECT_EQ(check(1, RegistryType::Sz), noError);
    EXPECT_EQ(check(0, RegistryType::None), noError);
    EXPECT_EQ(check(3, RegistryType::Binary), noError);
    EXPECT_EQ(check(5, RegistryType::DwordBigEndian), noError);
    EXPECT_EQ(check(2, RegistryType::ExpandSz), noError);
    EXPECT_EQ(check(6, RegistryType::Link), noError);
    EXPECT_EQ(check(7, RegistryType::MultiSz), noError);

    EXPECT_EQ(check(4, RegistryType::DwordLittleEndian),
              "Registry value 'V' in 'HKLM\\K' has unexpected type 'REG_DWORD' != expected "
              "'REG_DWORD_LITTLE_ENDIAN'");
    EXPECT_EQ(check(11, RegistryType::QwordLittleEndian),
              "Registry value 'V' in 'HKLM\\K' has unexpected type 'REG_QWORD' != expected "
              "'REG_QWORD_LITTLE_ENDIAN'");
    EXPECT_EQ(check(1, RegistryType::ExpandSz),
              "Registry value 'V' in 'HKLM\\K' has unexpected type 'REG_SZ' != expected "
              "'REG_EXPAND_SZ'");
    EXPECT_EQ(check(8, RegistryType::Binary),
              "Registry value 'V' in 'HKLM\\K' has unexpected type '8' != expected 'REG_BINARY'");
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
