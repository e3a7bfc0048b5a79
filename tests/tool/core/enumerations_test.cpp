#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/enumerations.h"
#include "common/exception.h"
#include "support/thrown.h"

namespace {

using namespace integrity_check_tool;
using ict_test::ThrownText;

// Every name maps to the value of its position and back; a value past the
// table has no name, and any other text is refused as it was given.
template <typename Enum>
void ExpectTable(const std::vector<std::string>& names, const std::string& unknown) {
    const auto& table = NamedValuesOf<Enum>::Get();
    ASSERT_EQ(table.names.size(), names.size());
    for (std::size_t index = 0; index < names.size(); ++index) {
        const auto value = static_cast<Enum>(index);
        EXPECT_EQ(table.values[index], value);
        EXPECT_EQ(FromName<Enum>(names[index]), value) << names[index];
        EXPECT_EQ(ToName(value), names[index]);
    }
    EXPECT_THROW(ToName(static_cast<Enum>(names.size())), std::out_of_range);
    EXPECT_EQ(ThrownText<Exception>([&] { FromName<Enum>(unknown); }), "Invalid name: " + unknown);
}

TEST(EnumerationsTest, TablesHoldTheirNamesInValueOrderAndNothingElse) {
    ExpectTable<CheckType>({"Exists", "NotExists", "Gost2012", "Sha256", "Value"}, "exists");
    ExpectTable<Bitness>({"32", "64"}, "Exists ");
    ExpectTable<OsEdition>({"Server", "Desktop"}, "server");
    ExpectTable<Os>({"Linux", "Windows", "MacOS"}, "");
    ExpectTable<Arch>({"X86_64", "X86", "IA64", "ARM32", "ARM64", "E2K32", "E2K64"}, "x86_64");
    ExpectTable<SignatureType>({"dsvm2", "vds", "vds-with-filename"}, "DSVM2");
    ExpectTable<RegistryType>({"REG_BINARY", "REG_DWORD", "REG_DWORD_LITTLE_ENDIAN",
                               "REG_DWORD_BIG_ENDIAN", "REG_EXPAND_SZ", "REG_LINK", "REG_MULTI_SZ",
                               "REG_NONE", "REG_QWORD", "REG_QWORD_LITTLE_ENDIAN", "REG_SZ"},
                              "reg_sz");
    ExpectTable<TrustedRoot>({"3520p1", "3020d1", "4820d1", "4823d1"}, "3520P1");
}

}  // namespace
