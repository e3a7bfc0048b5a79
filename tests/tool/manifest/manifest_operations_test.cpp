#include "manifest/manifest_operations.h"

#include <algorithm>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

template <typename... Values>
std::unique_ptr<RegistryInfo> MakeKey(const std::string& path, Values... values) {
    auto key = std::make_unique<RegistryInfo>();
    key->path = path;
    (key->values.push_back(std::move(values)), ...);
    return key;
}

template <typename... Files>
std::unique_ptr<DirectoryInfo> MakeGroup(const std::string& path, Files... files) {
    auto group = std::make_unique<DirectoryInfo>();
    group->path = path;
    (group->files.push_back(std::move(files)), ...);
    return group;
}

// A path written with "/" as this system writes it.
std::string Native(const std::string& path) {
    return boost::filesystem::path(path).make_preferred().string();
}

std::vector<std::string> PathsOf(const FileTable& files) {
    std::vector<std::string> paths;
    for (const auto& file : files) {
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
    using T = CheckType;
    // Order, duplicates and values do not matter.
    const std::tuple<std::vector<T>, std::vector<T>, bool> cases[] = {
        {{T::Sha256, T::Exists}, {T::Exists, T::Sha256, T::Sha256}, true},
        {{T::Sha256}, {T::Exists}, false},
        {{T::Sha256}, {T::Sha256, T::Exists}, false},
    };
    for (const auto& [first, second, agree] : cases) {
        const auto a = MakeFile("/p/a.dll", first, 1);
        const auto b = MakeFile("/p/a.dll", second, 7);
        EXPECT_EQ(FailureOf([&] { CheckMismatches(*a, *b); }),
                  agree ? "(nothing thrown)" : "Mismatch check types found for /p/a.dll");
    }
    CheckMismatches(*MakeValue("Version", T::Value, 1), *MakeValue("Version", T::Value, 2), "K");
    // A value is named with its key.
    EXPECT_EQ(FailureOf([] {
                  CheckMismatches(*MakeValue("Version", T::Value, 1),
                                  *MakeValue("Version", T::Exists, 1), "HKLM\\K");
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

TEST(MergeManifestTest, MergesFilesRegistriesAndEnvironments) {
    Manifest target;
    target.productName = "First";
    AddFile(target.files, MakeFile("/common", {CheckType::Sha256}, 1));
    AddFile(target.files, MakeFile("/only-first", {CheckType::Exists}));
    target.environments.push_back({{}, nullptr, "A", "1"});
    target.registries.push_back(MakeKey("HKLM\\Demo", MakeValue("Version", CheckType::Value, 1)));

    Manifest source;
    source.productName = "Second";
    AddFile(source.files, MakeFile("/common", {CheckType::Sha256}, 2));
    AddFile(source.files, MakeFile("/only-second", {CheckType::NotExists}));
    source.environments.push_back({{}, nullptr, "B", "2"});
    source.registries.push_back(MakeKey("HKLM\\Demo", MakeValue("Version", CheckType::Value, 2),
                                        MakeValue("Path", CheckType::Exists, 0)));
    source.registries.push_back(MakeKey("HKCU\\Demo"));

    MergeManifest(target, std::move(source));

    EXPECT_EQ(target.productName, "First");
    EXPECT_THAT(PathsOf(target.files), ElementsAre("/common", "/only-first", "/only-second"));
    const auto& common = target.files.find("/common")->second->checks;
    ASSERT_EQ(common.size(), 2u);
    EXPECT_EQ(common[1].value, Bytes{2});
    ASSERT_EQ(target.environments.size(), 2u);
    EXPECT_EQ(target.environments[1].key, "B");
    ASSERT_EQ(target.registries.size(), 2u);
    const auto& demo = *target.registries[0];
    ASSERT_EQ(demo.values.size(), 2u);
    EXPECT_EQ(demo.values[0]->checks.size(), 2u);
    EXPECT_EQ(demo.values[1]->name, "Path");
    EXPECT_EQ(target.registries[1]->path, "HKCU\\Demo");

    Manifest mismatch;
    mismatch.registries.push_back(MakeKey("HKLM\\Demo", MakeValue("Path", CheckType::Value, 1)));
    EXPECT_EQ(FailureOf([&] { MergeManifest(target, std::move(mismatch)); }),
              "Mismatch check types found for 'Path' in 'HKLM\\Demo'");
}

// Records for SelectApplicable, written as expansion leaves them: the facts are this machine's, so
// os="MacOS" never applies (the tests run on Linux and Windows) and defined="Here" does.
template <typename Record>
std::unique_ptr<Record> Filtered(std::unique_ptr<Record> record) {
    record->filter.os = Os::MacOS;
    return record;
}

TEST(SelectApplicableTest, FiltersEveryRecordBeforeAnythingMerges) {
    Manifest manifest;
    // Two records of one path with other check types: only one applies.
    AddFile(manifest.files, Filtered(MakeFile(Native("/p/a.so"), {CheckType::NotExists})));
    AddFile(manifest.files, MakeFile(Native("/p/a.so"), {CheckType::Exists}));
    // Two that apply merge in order; the filtered one between never lends its checks.
    AddFile(manifest.files, MakeFile(Native("/p/b.so"), {CheckType::Sha256}, 1));
    AddFile(manifest.files, Filtered(MakeFile(Native("/p/b.so"), {CheckType::Sha256}, 9)));
    auto b = MakeFile(Native("/p/b.so"), {CheckType::Sha256}, 2);
    b->filter.defined = "Here";
    AddFile(manifest.files, std::move(b));
    // A filtered group filters its members; an applying group joins its path.
    manifest.directories.push_back(
        Filtered(MakeGroup(Native("/p"), MakeFile("a.so", {CheckType::Value}))));
    manifest.directories.push_back(MakeGroup(Native("/p/"), MakeFile("/c.so", {CheckType::Exists}),
                                             Filtered(MakeFile("d.so", {CheckType::Exists}))));
    // Keys and values: a filtered key, a key listed twice, a value listed twice.
    manifest.registries.push_back(
        Filtered(MakeKey("HKLM\\Windows", MakeValue("W", CheckType::Exists, 0))));
    manifest.registries.push_back(MakeKey("HKLM\\Demo", MakeValue("V", CheckType::Value, 1),
                                          MakeValue("V", CheckType::Value, 2)));
    manifest.registries.push_back(MakeKey("HKLM\\Demo", MakeValue("V", CheckType::Value, 3),
                                          Filtered(MakeValue("V", CheckType::NotExists, 4))));

    FilteredRecords filtered;
    SelectApplicable(manifest, FilterEvaluator(nullptr, SystemInfo({"Here"})), filtered);

    EXPECT_TRUE(manifest.directories.empty());
    EXPECT_THAT(PathsOf(manifest.files),
                ElementsAre(Native("/p/a.so"), Native("/p/b.so"), Native("/p/c.so")));
    EXPECT_THAT(TypesOf(manifest.files.find(Native("/p/a.so"))->second->checks),
                ElementsAre(CheckType::Exists));
    const auto& merged = manifest.files.find(Native("/p/b.so"))->second->checks;
    ASSERT_EQ(merged.size(), 2u);
    EXPECT_EQ(merged[0].value, Bytes{1});
    EXPECT_EQ(merged[1].value, Bytes{2});
    EXPECT_THAT(PathsOf(filtered.files), ElementsAre(Native("/p/a.so"), Native("/p/a.so"),
                                                     Native("/p/b.so"), Native("/p/d.so")));

    ASSERT_EQ(manifest.registries.size(), 1u);
    const auto& demo = *manifest.registries[0];
    EXPECT_EQ(demo.path, "HKLM\\Demo");
    ASSERT_EQ(demo.values.size(), 1u);
    EXPECT_THAT(TypesOf(demo.values[0]->checks),
                ElementsAre(CheckType::Value, CheckType::Value, CheckType::Value));
    EXPECT_THAT(filtered.registries, ElementsAre("HKLM\\Windows"));
    EXPECT_THAT(filtered.values, ElementsAre("V"));
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
        {"/p/bin", "", "/p/bin"}};
    for (const auto& [group, member, joined] : cases) {
        EXPECT_EQ(JoinGroupPath(group, member).string(), Native(joined))
            << group << " + " << member;
    }
}

// Files are rekeyed by their expanded paths and kept apart; registry names
// keep their backslashes; environment entries stay as written.
TEST(ExpandManifestTest, ExpandsEveryPathAndNameThroughItsOwnEnvironment) {
    auto environment = std::make_shared<Environment>("/opt/p/m.xml", nullptr);
    environment->SetValue("Bin", "%ProductRoot%\\bin");
    environment->SetValue("Other", "/opt/p/bin");
    environment->SetValue("Loop", "%Loop%/x");
    Manifest manifest;
    // Nothing uses it, so it cannot fail the manifest.
    manifest.environments.push_back({{}, environment, "Loop", "%Loop%/x"});
    for (const char* path : {"%Bin%\\a.so", "%Other%/a.so", "%Unknown%\\z", "/0-first"}) {
        auto file = MakeFile(path, {CheckType::Exists});
        file->environment = environment;
        AddFile(manifest.files, std::move(file));
    }
    manifest.directories.push_back(MakeGroup("%Bin%\\", MakeFile("%Other%\\x", {})));
    manifest.directories[0]->environment = environment;
    manifest.registries.push_back(MakeKey("HKEY_LOCAL_MACHINE\\SOFTWARE\\%Other%",
                                          MakeValue("%Bin%\\v", CheckType::Exists, 0)));
    manifest.registries[0]->environment = environment;

    ExpandManifest(manifest);

    // Merging, and so any mismatch, waits until filtering has decided.
    EXPECT_THAT(PathsOf(manifest.files),
                ElementsAre(Native("%Unknown%/z"), Native("/0-first"), Native("/opt/p/bin/a.so"),
                            Native("/opt/p/bin/a.so")));
    // A member without its own environment expands through its group's.
    EXPECT_EQ(manifest.directories[0]->path, Native("/opt/p/bin/"));
    EXPECT_EQ(manifest.directories[0]->files[0]->path, Native("/opt/p/bin/x"));
    EXPECT_EQ(manifest.environments[0].value, "%Loop%/x");
    EXPECT_EQ(manifest.registries[0]->path, "HKEY_LOCAL_MACHINE\\SOFTWARE\\/opt/p/bin");
    EXPECT_EQ(manifest.registries[0]->values[0]->name, "/opt/p\\bin\\v");
}

}  // namespace
}  // namespace integrity_check_tool
