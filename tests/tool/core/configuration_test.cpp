#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/configuration_dump.h"
#include "common/enumerations.h"
#include "common/exception.h"
#include "support/thrown.h"

namespace {

using namespace integrity_check_tool;
using ict_test::ThrownText;
using testing::HasSubstr;

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

// The dump is a debug aid: what matters is that sections come and go with
// the configuration and that enumerations are written by name.
TEST(ConfigurationDumpTest, PresentSectionsWithNamesAndAbsentOnesLeftOut) {
    EXPECT_EQ(DumpConfiguration(ApplicationConfiguration()),
              "{\n    \"displayVersion\": \"false\",\n    \"logLevel\": \"600\"\n}\n");

    ApplicationConfiguration configuration;
    configuration.singleFileCheck = SingleFileCheckSettings{"a.dll", CheckType::Gost2012};
    GenerateSettings generate;
    generate.arch = Arch::E2K64;
    generate.osEdition = OsEdition::Server;
    configuration.generate = generate;
    VerifySettings verify;
    verify.manifestPaths = {"b.xml", "a.xml"};
    verify.signatureType = SignatureType::VdsWithFilename;
    configuration.verify = verify;
    configuration.logFile = boost::filesystem::path("run.log");
    const std::string dump = DumpConfiguration(configuration);
    for (const char* text :
         {"\"checkType\": \"Gost2012\"", "\"arch\": \"E2K64\"", "\"osEdition\": \"Server\"",
          "\"signatureType\": \"vds-with-filename\"", "\"a.xml\",\n            \"b.xml\"",
          "\"logFile\": \"run.log\""}) {
        EXPECT_THAT(dump, HasSubstr(text));
    }
    EXPECT_LT(dump.find("\"verify\""), dump.find("\"singleFileCheck\""));
    EXPECT_EQ(dump.find("\"normalize\""), std::string::npos);
}

}  // namespace
