#include <string>

#include <gtest/gtest.h>

#include "common/configuration_dump.h"

namespace {

using namespace integrity_check_tool;

TEST(ConfigurationDumpTest, EverySectionInItsOrderWithNamesAndTexts) {
    ApplicationConfiguration configuration;
    SingleFileCheckSettings single;
    single.filePath = "C:/single.dll";
    single.checkType = CheckType::Gost2012;
    configuration.singleFileCheck = single;
    GenerateSettings generate;
    generate.configPath = "config.xml";
    generate.manifestPath = "out.xml";
    generate.version = "2.5";
    generate.arch = Arch::E2K64;
    generate.osEdition = OsEdition::Server;
    configuration.generate = generate;
    NormalizeSettings normalize;
    normalize.manifestPath = "norm.xml";
    configuration.normalize = normalize;
    VerifySettings verify;
    verify.isVerbose = true;
    verify.manifestPaths = {"b.xml", "a.xml"};
    verify.crlPath = boost::filesystem::path("crl");
    verify.signatureType = SignatureType::VdsWithFilename;
    verify.definitions = {"not", "dumped"};
    configuration.verify = verify;
    configuration.displayVersion = true;
    configuration.logFile = boost::filesystem::path("run.log");
    configuration.logLevel = 800;

    // The property-tree writer makes every leaf a string and escapes '/'.
    EXPECT_EQ(DumpConfiguration(configuration),
              "{\n"
              "    \"normalize\": {\n"
              "        \"manifestPath\": \"norm.xml\"\n"
              "    },\n"
              "    \"verify\": {\n"
              "        \"isVerbose\": \"true\",\n"
              "        \"manifestPaths\": [\n"
              "            \"a.xml\",\n"
              "            \"b.xml\"\n"
              "        ],\n"
              "        \"crlPath\": \"crl\",\n"
              "        \"signatureType\": \"vds-with-filename\",\n"
              "        \"singleFilePath\": \"\"\n"
              "    },\n"
              "    \"displayVersion\": \"true\",\n"
              "    \"logFile\": \"run.log\",\n"
              "    \"logLevel\": \"800\",\n"
              "    \"singleFileCheck\": {\n"
              "        \"filePath\": \"C:\\/single.dll\",\n"
              "        \"checkType\": \"Gost2012\"\n"
              "    },\n"
              "    \"generate\": {\n"
              "        \"configPath\": \"config.xml\",\n"
              "        \"manifestPath\": \"out.xml\",\n"
              "        \"version\": \"2.5\",\n"
              "        \"arch\": \"E2K64\",\n"
              "        \"osEdition\": \"Server\"\n"
              "    }\n"
              "}\n");
}

TEST(ConfigurationDumpTest, AbsentSectionsAndLogFileAreLeftOut) {
    ApplicationConfiguration configuration;
    EXPECT_EQ(DumpConfiguration(configuration),
              "{\n"
              "    \"displayVersion\": \"false\",\n"
              "    \"logLevel\": \"600\"\n"
              "}\n");
}

}  // namespace
