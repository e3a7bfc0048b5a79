#include "manifest/manifest_operations.h"

#include <algorithm>
#include <sstream>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "common/exception.h"
#include "manifest/filter_evaluator.h"
#include "support/enum_printing.h"
#include "support/thrown.h"
#include "system_info.h"

namespace integrity_check_tool {
namespace {

using ::testing::ElementsAre;

std::unique_ptr<FileInfo> MakeFile(const std::string& path, std::vector<CheckType> types,
                                   std::uint8_t firstByte = 0) {
    auto file = std::make_unique<FileInfo>();
    file->path = path;
    for (const auto type : types) {
        file->checks.push_back({type, Bytes{firstByte++}});
    }
    return file;
}

std::unique_ptr<RegistryValueInfo> MakeValue(const std::string& name, CheckType type,
                                             std::uint8_t byte) {
    auto value = std::make_unique<RegistryValueInfo>();
    value->name = name;
    value->checks.push_back({type, Bytes{byte}});
    return value;
}

// A path written with "/" as this system writes it.
std::string Native(const std::string& path) {
    return boost::filesystem::path(path).make_preferred().string();
}

std::vector<std::string> PathsOf(const Manifest& manifest) {
    std::vector<std::string> paths;
    for (const auto& file : manifest.files) {
        EXPECT_EQ(file.first, file.second->path) << "key and record disagree";
        paths.push_back(file.first.string());
    }
    return paths;
}

std::vector<CheckType> TypesOf(const std::vector<CheckInfo>& checks) {
    std::vector<CheckType> types;
    for (const auto& check : checks) {
        types.push_back(check.type);
    }
    return types;
}

template <typename Action>
std::string FailureOf(Action action) {
    return ict_test::ThrownText<Exception>(action);
}

TEST(CheckMismatchesTest, ComparesTheSetsOfCheckTypesOnly) {
    // Order, duplicates and values do not matter.
    CheckMismatches(*MakeFile("a", {CheckType::Sha256, CheckType::Exists}, 1),
                    *MakeFile("a", {CheckType::Exists, CheckType::Sha256, CheckType::Sha256}, 7));
    EXPECT_EQ(FailureOf([] {
                  CheckMismatches(*MakeFile("/p/a.dll", {CheckType::Sha256}),
                                  *MakeFile("/p/a.dll", {CheckType::Exists}));
              }),
              "Mismatch check types found for /p/a.dll");
    EXPECT_EQ(FailureOf([] {
                  CheckMismatches(*MakeFile("/p/a.dll", {CheckType::Sha256}),
                                  *MakeFile("/p/a.dll", {CheckType::Sha256, CheckType::Exists}));
              }),
              "Mismatch check types found for /p/a.dll");

    CheckMismatches(*MakeValue("Version", CheckType::Value, 1),
                    *MakeValue("Version", CheckType::Value, 2), "HKLM\\K");
    // A value is named with its key.
    EXPECT_EQ(FailureOf([] {
                  CheckMismatches(*MakeValue("Version", CheckType::Value, 1),
                                  *MakeValue("Version", CheckType::Exists, 1), "HKLM\\K");
              }),
              "Mismatch check types found for 'Version' in 'HKLM\\K'");
}

TEST(PathOrderTest, OrdersLikeTheElementsOfThePaths) {
    std::vector<boost::filesystem::path> paths = {
        "/opt/a-b",   "/opt/a/b", "/opt/a", "/opt/a.b/c",    "/opt/A", "/opt/a b",
        "/opt/a/b/c", "relative", "/opt",   "/opt/\xC3\xA9", "/opt/z", "/opt/a0",
    };
    auto byElements = paths;
    std::sort(byElements.begin(), byElements.end());
    std::sort(paths.begin(), paths.end(), PathOrder());
    EXPECT_EQ(paths, byElements);

    FileTable files;
    AddFile(files, MakeFile("/opt/a/b", {CheckType::Exists}));
    EXPECT_EQ(files.count("/opt/a/b"), 1u);
    EXPECT_EQ(files.count("/opt/a"), 0u);
    EXPECT_EQ(files.count("/opt/a/b/"), 0u);
}

TEST(AddFileTest, AddKeepsRecordsApartInOrderAndMergeJoinsThem) {
    FileTable files;
    AddFile(files, MakeFile("/b", {CheckType::Sha256}, 1));
    AddFile(files, MakeFile("/a", {CheckType::Exists}));
    AddFile(files, MakeFile("/b", {CheckType::Exists}, 2));
    ASSERT_EQ(files.size(), 3u);
    EXPECT_THAT(TypesOf(files.begin()->second->checks), ElementsAre(CheckType::Exists));
    const auto [first, end] = files.equal_range("/b");
    ASSERT_EQ(std::distance(first, end), 2);
    EXPECT_EQ(first->second->checks[0].value, Bytes{1});
    EXPECT_EQ(std::next(first)->second->checks[0].value, Bytes{2});

    FileTable merged;
    MergeFile(merged, MakeFile("/b", {CheckType::Sha256}, 1));
    MergeFile(merged, MakeFile("/a", {CheckType::Exists}));
    MergeFile(merged, MakeFile("/b", {CheckType::Sha256}, 2));
    ASSERT_EQ(merged.size(), 2u);
    const auto& b = *merged.find("/b")->second;
    ASSERT_EQ(b.checks.size(), 2u);
    EXPECT_EQ(b.checks[0].value, Bytes{1});
    EXPECT_EQ(b.checks[1].value, Bytes{2});
    EXPECT_EQ(FailureOf([&] { MergeFile(merged, MakeFile("/b", {CheckType::Exists})); }),
              "Mismatch check types found for /b");
}

TEST(MergeManifestTest, MergesFilesRegistriesAndEnvironments) {
    Manifest target;
    target.productName = "First";
    AddFile(target.files, MakeFile("/common", {CheckType::Sha256}, 1));
    AddFile(target.files, MakeFile("/only-first", {CheckType::Exists}));
    target.environments.push_back({{}, nullptr, "A", "1"});
    auto key = std::make_unique<RegistryInfo>();
    key->path = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Demo";
    key->values.push_back(MakeValue("Version", CheckType::Value, 1));
    target.registries.push_back(std::move(key));

    Manifest source;
    source.productName = "Second";
    AddFile(source.files, MakeFile("/common", {CheckType::Sha256}, 2));
    AddFile(source.files, MakeFile("/only-second", {CheckType::NotExists}));
    source.environments.push_back({{}, nullptr, "B", "2"});
    auto sameKey = std::make_unique<RegistryInfo>();
    sameKey->path = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Demo";
    sameKey->values.push_back(MakeValue("Version", CheckType::Value, 2));
    sameKey->values.push_back(MakeValue("Path", CheckType::Exists, 0));
    source.registries.push_back(std::move(sameKey));
    auto otherKey = std::make_unique<RegistryInfo>();
    otherKey->path = "HKEY_CURRENT_USER\\Demo";
    source.registries.push_back(std::move(otherKey));

    MergeManifest(target, std::move(source));

    EXPECT_EQ(target.productName, "First");
    EXPECT_THAT(PathsOf(target), ElementsAre("/common", "/only-first", "/only-second"));
    const auto& common = target.files.find("/common")->second->checks;
    ASSERT_EQ(common.size(), 2u);
    EXPECT_EQ(common[1].value, Bytes{2});
    ASSERT_EQ(target.environments.size(), 2u);
    EXPECT_EQ(target.environments[1].key, "B");

    ASSERT_EQ(target.registries.size(), 2u);
    const auto& demo = *target.registries[0];
    ASSERT_EQ(demo.values.size(), 2u);
    EXPECT_EQ(demo.values[0]->name, "Version");
    EXPECT_EQ(demo.values[0]->checks.size(), 2u);
    EXPECT_EQ(demo.values[1]->name, "Path");
    EXPECT_EQ(target.registries[1]->path, "HKEY_CURRENT_USER\\Demo");
}

TEST(MergeManifestTest, RegistryValueMismatchFails) {
    Manifest target;
    Manifest source;
    for (auto* manifest : {&target, &source}) {
        manifest->registries.push_back(std::make_unique<RegistryInfo>());
        manifest->registries[0]->path = "HKCU\\K";
    }
    target.registries[0]->values.push_back(MakeValue("V", CheckType::Value, 1));
    source.registries[0]->values.push_back(MakeValue("V", CheckType::NotExists, 1));
    EXPECT_EQ(FailureOf([&] { MergeManifest(target, std::move(source)); }),
              "Mismatch check types found for 'V' in 'HKCU\\K'");
}

// Records for SelectApplicable, written as expansion leaves them: the facts are this machine's, so
// os="MacOS" never applies (the tests run on Linux and Windows) and defined="Here" does.
std::unique_ptr<FileInfo> Filtered(std::unique_ptr<FileInfo> file) {
    file->filter.os = Os::MacOS;
    return file;
}

TEST(SelectApplicableTest, FiltersEveryRecordBeforeAnythingMerges) {
    Manifest manifest;
    // Two records of one path with other check types: only one applies.
    AddFile(manifest.files, Filtered(MakeFile(Native("/p/a.so"), {CheckType::NotExists})));
    AddFile(manifest.files, MakeFile(Native("/p/a.so"), {CheckType::Exists}));
    // Two that apply merge; the filtered third never lends its checks.
    AddFile(manifest.files, MakeFile(Native("/p/b.so"), {CheckType::Sha256}, 1));
    AddFile(manifest.files, Filtered(MakeFile(Native("/p/b.so"), {CheckType::Sha256}, 9)));
    auto b = MakeFile(Native("/p/b.so"), {CheckType::Sha256}, 2);
    b->filter.defined = "Here";
    AddFile(manifest.files, std::move(b));
    // A filtered group filters its members; an applying group joins its path.
    auto windows = std::make_unique<DirectoryInfo>();
    windows->path = Native("/p");
    windows->filter.os = Os::MacOS;
    windows->files.push_back(MakeFile("a.so", {CheckType::Value}));
    manifest.directories.push_back(std::move(windows));
    auto group = std::make_unique<DirectoryInfo>();
    group->path = Native("/p/");
    group->files.push_back(MakeFile("/c.so", {CheckType::Exists}));
    group->files.push_back(Filtered(MakeFile("d.so", {CheckType::Exists})));
    manifest.directories.push_back(std::move(group));
    // Keys and values: a filtered key, a key listed twice, a value listed twice.
    auto filteredKey = std::make_unique<RegistryInfo>();
    filteredKey->path = "HKLM\\Windows";
    filteredKey->filter.os = Os::MacOS;
    filteredKey->values.push_back(MakeValue("W", CheckType::Exists, 0));
    manifest.registries.push_back(std::move(filteredKey));
    for (const CheckType type : {CheckType::Value, CheckType::NotExists}) {
        auto key = std::make_unique<RegistryInfo>();
        key->path = "HKLM\\Demo";
        key->values.push_back(MakeValue("V", CheckType::Value, 1));
        auto other = MakeValue("V", type, 2);
        if (type == CheckType::NotExists) {
            other->filter.os = Os::MacOS;
        }
        key->values.push_back(std::move(other));
        manifest.registries.push_back(std::move(key));
    }

    FilteredRecords filtered;
    SelectApplicable(manifest, FilterEvaluator(nullptr, SystemInfo({"Here"})), filtered);

    EXPECT_TRUE(manifest.directories.empty());
    EXPECT_THAT(PathsOf(manifest),
                ElementsAre(Native("/p/a.so"), Native("/p/b.so"), Native("/p/c.so")));
    EXPECT_THAT(TypesOf(manifest.files.find(Native("/p/a.so"))->second->checks),
                ElementsAre(CheckType::Exists));
    const auto& merged = manifest.files.find(Native("/p/b.so"))->second->checks;
    ASSERT_EQ(merged.size(), 2u);
    EXPECT_EQ(merged[0].value, Bytes{1});
    EXPECT_EQ(merged[1].value, Bytes{2});
    std::vector<std::string> skipped;
    for (const auto& file : filtered.files) {
        EXPECT_EQ(file.first, file.second->path);
        skipped.push_back(file.first.string());
    }
    EXPECT_THAT(skipped, ElementsAre(Native("/p/a.so"), Native("/p/a.so"), Native("/p/b.so"),
                                     Native("/p/d.so")));

    ASSERT_EQ(manifest.registries.size(), 1u);
    const auto& demo = *manifest.registries[0];
    EXPECT_EQ(demo.path, "HKLM\\Demo");
    ASSERT_EQ(demo.values.size(), 1u);
    EXPECT_THAT(TypesOf(demo.values[0]->checks),
                ElementsAre(CheckType::Value, CheckType::Value, CheckType::Value));
    EXPECT_THAT(filtered.registries, ElementsAre("HKLM\\Windows"));
    EXPECT_THAT(filtered.values, ElementsAre("V"));
}

TEST(SelectApplicableTest, RecordsThatBothApplyStillMustAgree) {
    Manifest manifest;
    AddFile(manifest.files, MakeFile(Native("/p/a.so"), {CheckType::Sha256}));
    auto group = std::make_unique<DirectoryInfo>();
    group->path = Native("/p");
    group->files.push_back(MakeFile("a.so", {CheckType::Exists}));
    manifest.directories.push_back(std::move(group));
    FilteredRecords filtered;
    EXPECT_EQ(FailureOf([&] {
                  SelectApplicable(manifest, FilterEvaluator(nullptr, SystemInfo({})), filtered);
              }),
              "Mismatch check types found for " + Native("/p/a.so"));

    Manifest registry;
    auto key = std::make_unique<RegistryInfo>();
    key->path = "HKLM\\Demo";
    key->values.push_back(MakeValue("V", CheckType::Value, 1));
    key->values.push_back(MakeValue("V", CheckType::Exists, 1));
    registry.registries.push_back(std::move(key));
    EXPECT_EQ(FailureOf([&] {
                  SelectApplicable(registry, FilterEvaluator(nullptr, SystemInfo({})), filtered);
              }),
              "Mismatch check types found for 'V' in 'HKLM\\Demo'");
}

TEST(JoinGroupPathTest, OneSeparatorWhateverEitherSideBrings) {
    const std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        {"/p/bin", "a.dll", "/p/bin/a.dll"},
        {"/p/bin/", "a.dll", "/p/bin/a.dll"},
        {"/p/bin//", "//a.dll", "/p/bin/a.dll"},
        {"/p/bin", "/a.dll", "/p/bin/a.dll"},
        {"/p/bin", "sub/a.dll", "/p/bin/sub/a.dll"},
        {"/", "a.dll", "/a.dll"},
        {"", "a.dll", "a.dll"},
        {"/p/bin", "", "/p/bin"},
    };
    for (const auto& [group, member, joined] : cases) {
        EXPECT_EQ(JoinGroupPath(group, member).string(), Native(joined))
            << group << " + " << member;
    }
}

class ExpandManifestTest : public ::testing::Test {
protected:
    ExpandManifestTest() {
        environment_->SetValue("Bin", "%ProductRoot%\\bin");
        environment_->SetValue("Other", "/opt/p/bin");
    }

    std::unique_ptr<FileInfo> File(const std::string& path, CheckType type, std::uint8_t byte) {
        auto file = MakeFile(path, {type}, byte);
        file->environment = environment_;
        return file;
    }

    EnvironmentPtr environment_ = std::make_shared<Environment>("/opt/p/m.xml", nullptr);
};

TEST_F(ExpandManifestTest, RekeysFilesAndKeepsThoseThatNowMeetApart) {
    Manifest manifest;
    AddFile(manifest.files, File("%Bin%\\a.so", CheckType::Sha256, 1));
    AddFile(manifest.files, File("%Other%/a.so", CheckType::Exists, 2));
    AddFile(manifest.files, File("%Unknown%\\z", CheckType::Exists, 0));
    AddFile(manifest.files, File("/0-first", CheckType::Exists, 0));
    auto group = std::make_unique<DirectoryInfo>();
    group->environment = environment_;
    group->path = "%Bin%\\";
    group->files.push_back(MakeFile("%Other%\\x", {CheckType::Exists}));
    manifest.directories.push_back(std::move(group));

    ExpandManifest(manifest);

    // Merging, and so any mismatch, waits until filtering has decided.
    EXPECT_THAT(PathsOf(manifest),
                ElementsAre(Native("%Unknown%/z"), Native("/0-first"), Native("/opt/p/bin/a.so"),
                            Native("/opt/p/bin/a.so")));
    // A member without its own environment expands through its group's.
    EXPECT_EQ(manifest.directories[0]->path, Native("/opt/p/bin/"));
    EXPECT_EQ(manifest.directories[0]->files[0]->path, Native("/opt/p/bin/x"));
}

TEST_F(ExpandManifestTest, ExpandsRegistryNamesButKeepsTheirBackslashesAndEntriesAsWritten) {
    environment_->SetValue("Loop", "%Loop%/x");
    Manifest manifest;
    manifest.environments.push_back({{}, environment_, "Bin", "%ProductRoot%\\bin"});
    // Nothing uses it, so it cannot fail the manifest.
    manifest.environments.push_back({{}, environment_, "Loop", "%Loop%/x"});
    auto key = std::make_unique<RegistryInfo>();
    key->environment = environment_;
    key->path = "HKEY_LOCAL_MACHINE\\SOFTWARE\\%Other%";
    key->values.push_back(MakeValue("%Bin%\\v", CheckType::Exists, 0));
    manifest.registries.push_back(std::move(key));

    ExpandManifest(manifest);

    EXPECT_EQ(manifest.environments[0].value, "%ProductRoot%\\bin");
    EXPECT_EQ(manifest.environments[1].value, "%Loop%/x");
    EXPECT_EQ(manifest.registries[0]->path, "HKEY_LOCAL_MACHINE\\SOFTWARE\\/opt/p/bin");
    EXPECT_EQ(manifest.registries[0]->values[0]->name, "/opt/p\\bin\\v");
}

TEST_F(ExpandManifestTest, RecursionAbandonsTheManifest) {
    environment_->SetValue("Loop", "%Loop%/x");
    Manifest manifest;
    AddFile(manifest.files, File("%Loop%", CheckType::Exists, 0));
    EXPECT_EQ(FailureOf([&] { ExpandManifest(manifest); }),
              "Environment variable Loop used recursively");
}

TEST(RegisterEnvironmentTest, SetsEntriesInOrderAndTiesEveryRecord) {
    Manifest manifest;
    manifest.environments.push_back({{}, nullptr, "Bin", "%ProductRoot%/bin"});
    manifest.environments.push_back({{}, nullptr, "%Bin%", "/later"});
    AddFile(manifest.files, MakeFile("a", {CheckType::Exists}));
    manifest.directories.push_back(std::make_unique<DirectoryInfo>());
    manifest.directories[0]->files.push_back(MakeFile("b", {CheckType::Exists}));
    manifest.registries.push_back(std::make_unique<RegistryInfo>());

    auto environment = std::make_shared<Environment>("/p/m.xml", nullptr);
    RegisterEnvironment(manifest, environment);

    EXPECT_EQ(environment->GetValue("Bin"), "/later");
    EXPECT_EQ(manifest.environments[0].environment, environment);
    EXPECT_EQ(manifest.files.begin()->second->environment, environment);
    EXPECT_EQ(manifest.directories[0]->environment, environment);
    EXPECT_EQ(manifest.directories[0]->files[0]->environment, environment);
    EXPECT_EQ(manifest.registries[0]->environment, environment);

    Manifest bad;
    bad.environments.push_back({{}, nullptr, "Empty", ""});
    EXPECT_EQ(FailureOf([&] { RegisterEnvironment(bad, environment); }),
              "Value of environment variable Empty is empty");
}

TEST(PrintManifestTest, WritesEveryRecordAsJson) {
    Manifest manifest;
    manifest.productName = "Demo";
    manifest.environments.push_back({{}, nullptr, "Bin", "/bin"});
    auto file = MakeFile("/a.dll", {CheckType::Sha256}, 0xAB);
    file->filter.bitness = Bitness::Bits64;
    file->filter.minVersionNt = 601;
    AddFile(manifest.files, std::move(file));
    auto key = std::make_unique<RegistryInfo>();
    key->path = "HKEY_CURRENT_USER\\Demo";
    key->values.push_back(MakeValue("Version", CheckType::Value, 1));
    key->values[0]->type = RegistryType::Sz;
    manifest.registries.push_back(std::move(key));

    std::istringstream text(PrintManifest(manifest));
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(text, tree);

    EXPECT_EQ(tree.get<std::string>("productName"), "Demo");
    EXPECT_EQ(tree.get<std::string>("generationDateTime"), "");
    EXPECT_EQ(tree.get_child("environments").front().second.get<std::string>("key"), "Bin");
    const auto& printedFile = tree.get_child("files").front().second;
    EXPECT_EQ(printedFile.get<std::string>("path"), "/a.dll");
    EXPECT_EQ(printedFile.get<std::string>("bitness"), "64");
    EXPECT_EQ(printedFile.get<std::string>("minVersionNt"), "601");
    EXPECT_FALSE(printedFile.get_optional<std::string>("arch"));
    const auto& check = printedFile.get_child("checks").front().second;
    EXPECT_EQ(check.get<std::string>("type"), "Sha256");
    EXPECT_EQ(check.get<std::string>("value"), "ab");
    const auto& value = tree.get_child("registries").front().second.get_child("values").front();
    EXPECT_EQ(value.second.get<std::string>("name"), "Version");
    EXPECT_EQ(value.second.get<std::string>("type"), "REG_SZ");
}

}  // namespace
}  // namespace integrity_check_tool
