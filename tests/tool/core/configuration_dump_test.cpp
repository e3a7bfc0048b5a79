#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/configuration_dump.h"

namespace {

using namespace integrity_check_tool;
using testing::HasSubstr;

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
