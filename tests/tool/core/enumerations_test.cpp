#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/enumerations.h"
#include "common/exception.h"

namespace {

using namespace integrity_check_tool;

// Every name maps to the value of its position and back, and nothing else
// is accepted.
template <typename Enum>
void ExpectTable(const std::vector<std::string>& names) {
    const auto& table = NamedValuesOf<Enum>::Get();
    ASSERT_EQ(table.names.size(), names.size());
    for (std::size_t index = 0; index < names.size(); ++index) {
        const auto value = static_cast<Enum>(index);
        EXPECT_EQ(table.values[index], value);
        EXPECT_EQ(FromName<Enum>(names[index]), value) << names[index];
        EXPECT_EQ(ToName(value), names[index]);
    }
    try {
        ToName(static_cast<Enum>(names.size()));
        ADD_FAILURE() << "no exception for value " << names.size();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "invalid array<T, N> subscript");
    }
}

TEST(EnumerationsTest, TablesHoldTheirNamesInValueOrder) {
    ExpectTable<CheckType>({"Exists", "NotExists", "Gost2012", "Sha256", "Value"});
    ExpectTable<Bitness>({"32", "64"});
    ExpectTable<OsEdition>({"Server", "Desktop"});
    ExpectTable<Os>({"Linux", "Windows", "MacOS"});
    ExpectTable<Arch>({"X86_64", "X86", "IA64", "ARM32", "ARM64", "E2K32", "E2K64"});
    ExpectTable<SignatureType>({"dsvm2", "vds", "vds-with-filename"});
    ExpectTable<RegistryType>({"REG_BINARY", "REG_DWORD", "REG_DWORD_LITTLE_ENDIAN",
                               "REG_DWORD_BIG_ENDIAN", "REG_EXPAND_SZ", "REG_LINK", "REG_MULTI_SZ",
                               "REG_NONE", "REG_QWORD", "REG_QWORD_LITTLE_ENDIAN", "REG_SZ"});
    ExpectTable<TrustedRoot>({"3520p1", "3020d1", "4820d1", "4823d1"});
}

TEST(EnumerationsTest, UnknownNamesAreRejectedExactlyAsGiven) {
    const struct {
        std::string name;
        void (*parse)(const std::string&);
    } cases[] = {
        {"exists", [](const std::string& name) { FromName<CheckType>(name); }},
        {"Exists ", [](const std::string& name) { FromName<CheckType>(name); }},
        {"", [](const std::string& name) { FromName<Os>(name); }},
        {"x86_64", [](const std::string& name) { FromName<Arch>(name); }},
        {"DSVM2", [](const std::string& name) { FromName<SignatureType>(name); }},
        {"reg_sz", [](const std::string& name) { FromName<RegistryType>(name); }},
    };
    for (const auto& testCase : cases) {
        try {
            testCase.parse(testCase.name);
            ADD_FAILURE() << "accepted '" << testCase.name << "'";
        } catch (const Exception& error) {
            EXPECT_EQ(error.GetMessage(), "Invalid name: " + testCase.name);
        }
    }
}

}  // namespace
