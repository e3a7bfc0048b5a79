#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "data_object/file.h"
#include "data_object/registry.h"
#include "platform/registry.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "utils/file_utils.h"

namespace integrity_check_tool::data_object {
namespace {

using testing::HasSubstr;

template <typename Action>
std::string ErrorText(Action&& action) {
    return ict_test::ThrownText<Exception>(action);
}

std::string ReadAll(const File& file) {
    std::string text;
    EXPECT_EQ(ruk::ReadWhole(*file.GetData(), 1024, &text), ruk::result::Success);
    return text;
}

// A FIFO has no writer: opening it would hang these tests.
TEST(FileTest, OnlyRegularFilesExistAndOnlyTheyAreRead) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "a.dll", "payload of a");
    boost::filesystem::create_directory(dir / "bin");
    const auto special = ict_test::MakeSpecialFile(dir / "pipe");
    EXPECT_TRUE(File(dir / "a.dll").IsExists());
    EXPECT_EQ(ReadAll(File(dir / "a.dll")), "payload of a");
    // Whole-file reading is the framework's; the tool names the path and the reason.
    ict_test::WriteBytes(dir / "crl.bin", ict_test::PatternBytes(70000));
    EXPECT_EQ(ReadWholeFile(dir / "crl.bin"), ict_test::PatternBytes(70000));
    for (const auto& test : std::vector<std::pair<boost::filesystem::path, std::string>>{
             {dir / "bin", "not a regular file"},
             {special, "not a regular file"},
             {dir / "missing", "not found"}}) {
        const boost::filesystem::path& path = test.first;
        EXPECT_FALSE(File(path).IsExists()) << path;
        EXPECT_EQ(ErrorText([&] { File(path).GetData(); }), "Can't read or access file " +
                                                                path.string() + ". Reason: File " +
                                                                path.string() + " not found");
        EXPECT_EQ(ErrorText([&] { ReadWholeFile(path); }),
                  "Can't read file " + path.string() + ". Reason: " + test.second);
    }
    EXPECT_FALSE(File(dir / "a.dll" / "below-a-file").IsExists());
    EXPECT_FALSE(File(dir / "a<b?.dll").IsExists());  // a name Windows cannot hold

    if (!ict_test::SymbolicLinksWork(dir.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    boost::filesystem::create_symlink(dir / "a.dll", dir / "link");
    boost::filesystem::create_symlink(dir / "gone", dir / "dangling");
    EXPECT_TRUE(File(dir / "link").IsExists());  // the link's target is a regular file
    EXPECT_FALSE(File(dir / "dangling").IsExists());
    EXPECT_EQ(ReadAll(File(dir / "link")), "payload of a");
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

TEST(RegistryTest, ExistenceAndDataThroughTheReader) {
    // One key, Software\Demo, holding a DWORD "Count", a string default value
    // and a value the reader may not read.
    PredefinedKey askedRoot = PredefinedKey::ClassesRoot;
    const Registry::ValueReader reader = [&](PredefinedKey root, const std::string& subKey,
                                             const std::string& name, std::uint32_t& nativeType,
                                             std::vector<std::uint8_t>& data) -> std::uint32_t {
        askedRoot = root;
        if (subKey != "Software\\Demo" || (name != "Count" && !name.empty())) {
            return name == "Locked" ? 5 : platform::kRegistryNotFound;  // 5: access denied
        }
        nativeType = name.empty() ? 1 : 4;
        data = name.empty() ? std::vector<std::uint8_t>{'d', 'e', 'f', 0}
                            : std::vector<std::uint8_t>{7, 0, 0, 0};
        return 0;
    };
    const std::string demo = "HKLM\\Software\\Demo";
    const struct {
        std::string key;
        std::string name;
        RegistryType type;
        std::vector<std::uint8_t> data;  // empty: not found
        const char* error;               // what the existence question throws
    } cases[] = {
        {demo, "Count", RegistryType::Dword, {7, 0, 0, 0}, nullptr},
        // The default value's string keeps its stored terminating zero.
        {demo, "", RegistryType::Sz, {'d', 'e', 'f', 0}, nullptr},
        {demo, "Missing", RegistryType::Sz, {}, nullptr},
        {"HKLM\\Software\\Other", "Count", RegistryType::Dword, {}, nullptr},
        // A type mismatch is an error even for the existence question.
        {demo,
         "Count",
         RegistryType::DwordLittleEndian,
         {},
         "has unexpected type 'REG_DWORD' != expected"},
        {demo,
         "Locked",
         RegistryType::Sz,
         {},
         "Can't read or access registry value 'Locked' in 'HKLM\\Software\\Demo'. Reason: "},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.key + " " + test.name);
        const Registry value(test.key, test.name, test.type, reader);
        if (test.error != nullptr) {
            EXPECT_THAT(ErrorText([&] { value.IsExists(); }), HasSubstr(test.error));
            continue;
        }
        EXPECT_EQ(value.IsExists(), !test.data.empty());
        EXPECT_EQ(askedRoot, PredefinedKey::LocalMachine);
        if (test.data.empty()) {
            EXPECT_THAT(ErrorText([&] { value.GetData(); }),
                        HasSubstr("Can't read or access registry value '" + test.name + "' in '" +
                                  test.key + "'. Reason: "));
        } else {
            std::vector<std::uint8_t> bytes(64);
            std::size_t count = 0;
            ASSERT_EQ(ruk::ReadFully(*value.GetData(), bytes.data(), bytes.size(), &count),
                      ruk::result::Success);
            bytes.resize(count);
            EXPECT_EQ(bytes, test.data);
        }
    }
}

TEST(RegistryTest, SystemRegistryOfThisPlatform) {
    Registry value("HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", "ProductName",
                   RegistryType::Sz);
#ifdef _WIN32
    EXPECT_TRUE(value.IsExists());
#else
    // No registry here: every read fails with the system's "not supported".
    const std::string failure =
        "Can't read or access registry value 'ProductName' in "
        "'HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion'. Reason: " +
        std::string(std::strerror(ENOTSUP));
    EXPECT_EQ(ErrorText([&] { value.IsExists(); }), failure);
    EXPECT_EQ(ErrorText([&] { value.GetData(); }), failure);
#endif
}

}  // namespace
}  // namespace integrity_check_tool::data_object
