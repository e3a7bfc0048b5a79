// Records on their way to the checks: filtered, expanded, selected, merged.
#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "manifest/environment.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "support/enum_printing.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "system_info.h"

#ifndef _WIN32
#include <fstream>

#include "platform/posix/uname_facts.h"
#endif

namespace integrity_check_tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

template <typename Action>
std::string FailureOf(Action action) {
    return ict_test::ThrownText<Exception>(action);
}

// A system described by the test instead of the one running it: platform 0
// is Windows, 1 and 2 are Linux, 3 is macOS; architecture 1 is X86_64.
platform::SystemFacts Facts(std::uint32_t archCode, std::uint32_t platformNumber = 0,
                            std::uint32_t version = 603) {
    platform::SystemFacts facts;
    facts.platform = platformNumber;
    facts.majorVersion = version / 100;
    facts.minorVersion = version % 100;
    facts.archCode = archCode;
    return facts;
}

std::vector<std::string> FilterLines(const ict_test::TraceCapture& capture) {
    std::vector<std::string> lines;
    for (const auto& line : capture.Lines()) {
        const auto start = line.find("filtered by");
        if (start != std::string::npos) {
            lines.push_back(line.substr(line.rfind(' ', start - 2) + 1));
        }
    }
    return lines;
}

TEST(FilterEvaluatorTest, TracesTheContextAndEachConditionFiltersOnlyWhenItDiffers) {
    ict_test::TraceCapture capture;
    FilterEvaluator evaluator(capture.Tracer(), SystemInfo({"Extras", "A"}, Facts(1, 0, 1000)));
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_THAT(capture.Lines()[0],
                HasSubstr("Filter: {\"arch\":\"X86_64\",\"os\":\"Windows\",\"edition\":"
                          "\"Desktop\",\"bitness\":\"64\",\"version\":\"1000\","
                          "\"definitions\":\"A,Extras\"}"));

    EXPECT_FALSE(evaluator.IsFiltered(Filter{}, "none"));

    Filter matching;
    matching.arch = Arch::X86_64;
    matching.os = Os::Windows;
    matching.osEdition = OsEdition::Desktop;
    matching.bitness = Bitness::Bits64;
    matching.minVersionNt = 1000;  // bounds are inclusive
    matching.maxVersionNt = 1000;
    matching.linuxKernelVersion = 515;  // ignored on Windows
    matching.defined = std::string("Extras");
    EXPECT_FALSE(evaluator.IsFiltered(matching, "all match"));

    std::vector<Filter> differing(7);
    differing[0].arch = Arch::X86;
    differing[1].os = Os::Linux;
    differing[2].osEdition = OsEdition::Server;
    differing[3].bitness = Bitness::Bits32;
    differing[4].maxVersionNt = 603;
    differing[5].minVersionNt = 1001;
    differing[6].defined = std::string("extras");  // names are case-sensitive
    for (const auto& filter : differing) {
        EXPECT_TRUE(evaluator.IsFiltered(filter, "x"));
    }
    // With no definitions given, every record with "defined" is filtered.
    FilterEvaluator noDefinitions(nullptr, SystemInfo({}, Facts(1, 0, 1000)));
    EXPECT_TRUE(noDefinitions.IsFiltered(matching, "defined"));
}

TEST(FilterEvaluatorTest, FirstFailingConditionInOrderIsReported) {
    ict_test::TraceCapture capture;
    FilterEvaluator evaluator(capture.Tracer(), SystemInfo({}, Facts(1, 0, 601)));
    Filter filter;
    filter.defined = std::string("Missing");
    filter.maxVersionNt = 600;
    filter.arch = Arch::ARM32;
    EXPECT_TRUE(evaluator.IsFiltered(filter, "/a"));
    filter.arch.reset();
    EXPECT_TRUE(evaluator.IsFiltered(filter, "/b"));
    filter.maxVersionNt.reset();
    EXPECT_TRUE(evaluator.IsFiltered(filter, "/c"));

    // On Linux the NT bounds imply Windows; a kernel version matches exactly.
    FilterEvaluator onLinux(capture.Tracer(), SystemInfo({}, Facts(1, 1, 601)));
    Filter minimum;
    minimum.minVersionNt = 100;
    EXPECT_TRUE(onLinux.IsFiltered(minimum, "min"));
    Filter maximum;
    maximum.maxVersionNt = 9999;
    EXPECT_TRUE(onLinux.IsFiltered(maximum, "max"));
    // An explicit os wins over the implied one, and then the bounds do nothing here.
    Filter explicitLinux = minimum;
    explicitLinux.os = Os::Linux;
    EXPECT_FALSE(onLinux.IsFiltered(explicitLinux, "explicit"));
    EXPECT_THAT(FilterLines(capture),
                ElementsAre("/a filtered by arch", "/b filtered by maxVersionNt",
                            "/c filtered by defined", "min filtered by os", "max filtered by os"));

    Filter kernel;
    kernel.linuxKernelVersion = 601;
    EXPECT_FALSE(onLinux.IsFiltered(kernel, "k"));
    for (const std::uint32_t other : {600u, 602u}) {
        kernel.linuxKernelVersion = other;
        EXPECT_TRUE(onLinux.IsFiltered(kernel, "k"));
    }
}

TEST(SystemInfoTest, FactsGiveArchBitnessOsEditionVersionAndDefinitions) {
    const std::tuple<std::uint32_t, Arch, Bitness> architectures[] = {
        {0, Arch::X86, Bitness::Bits32},   {1, Arch::X86_64, Bitness::Bits64},
        {2, Arch::IA64, Bitness::Bits64},  {3, Arch::ARM32, Bitness::Bits32},
        {4, Arch::ARM64, Bitness::Bits64}, {5, Arch::E2K32, Bitness::Bits32},
        {6, Arch::E2K64, Bitness::Bits64},
    };
    for (const auto& [code, arch, bitness] : architectures) {
        const SystemInfo system({}, Facts(code));
        EXPECT_EQ(system.GetOsArch(), arch) << code;
        EXPECT_EQ(system.GetBitness(), bitness) << code;
    }
    EXPECT_EQ(FailureOf([] { SystemInfo({}, Facts(7)).GetOsArch(); }),
              "Unsupported system architecture 7");
    auto facts = Facts(1);
    EXPECT_EQ(SystemInfo({}, facts).GetOs(), Os::Windows);
    EXPECT_EQ(SystemInfo({}, facts).GetEdition(), OsEdition::Desktop);
    EXPECT_EQ(SystemInfo({}, facts).GetVersion(), 603u);
    facts.isServer = true;
    EXPECT_EQ(SystemInfo({}, facts).GetEdition(), OsEdition::Server);
    EXPECT_EQ(SystemInfo({}, Facts(1, 3)).GetOs(), Os::MacOS);
    EXPECT_EQ(SystemInfo({}, Facts(1, 1)).GetOs(), Os::Linux);
    EXPECT_EQ(SystemInfo({}, Facts(1, 2)).GetOs(), Os::Linux);
    EXPECT_EQ(SystemInfo({"b", "a"}, facts).GetDefinitions(), (std::set<std::string>{"a", "b"}));
}

#ifndef _WIN32
TEST(SystemInfoTest, RunningSystemIsDescribedFromTheKernel) {
    std::ifstream file("/proc/sys/kernel/osrelease");
    std::string release;
    if (!std::getline(file, release)) {
        GTEST_SKIP() << "no /proc/sys/kernel/osrelease to compare with";
    }
    platform::SystemFacts expected;
    platform::ParseKernelRelease(release, expected);

    const SystemInfo system({});
    EXPECT_EQ(system.GetOs(), Os::Linux);
    EXPECT_EQ(system.GetEdition(), OsEdition::Desktop);
    EXPECT_EQ(system.GetVersion(), expected.majorVersion * 100 + expected.minorVersion);
    EXPECT_GT(system.GetVersion(), 0u);
    EXPECT_NO_THROW(system.GetOsArch());
}

TEST(UnameFactsTest, KernelReleaseAndMachineNames) {
    // Release, major, minor: what does not parse is left at zero.
    const std::tuple<const char*, unsigned, unsigned> releases[] = {
        {"6.1.0-18-amd64", 6, 1}, {"5.15-rc1", 5, 15}, {"unknown", 0, 0}};
    for (const auto& [release, major, minor] : releases) {
        platform::SystemFacts facts;
        platform::ParseKernelRelease(release, facts);
        EXPECT_EQ(std::make_tuple(facts.majorVersion, facts.minorVersion, facts.buildNumber),
                  std::make_tuple(major, minor, 0u))
            << release;
    }
    const std::pair<const char*, std::uint32_t> machines[] = {
        {"x86_64", platform::kArchX86_64}, {"i686", platform::kArchX86},
        {"aarch64", platform::kArchARM64}, {"armv7l", platform::kArchARM32},
        {"e2k", platform::kArchE2K64},     {"riscv64", platform::kArchUnknown}};
    for (const auto& [machine, code] : machines) {
        EXPECT_EQ(platform::ArchCodeFromMachine(machine), code) << machine;
    }
    EXPECT_EQ(platform::PlatformFromSystemName("Linux"), platform::kPlatformLinux);
    EXPECT_EQ(platform::PlatformFromSystemName("Darwin"), platform::kPlatformMacOS);
}
#endif

// Sets a process variable; "" removes it.
void SetProcessVariable(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value);
#else
    static_cast<void>(*value ? setenv(name, value, 1) : unsetenv(name));
#endif
}

class EnvironmentTest : public ::testing::Test {
protected:
    // The expansion, or the failure's text after "error: ".
    std::string Expanded(const std::string& text) const {
        try {
            return environment_.Expand(text);
        } catch (const Exception& error) {
            return std::string("error: ") + error.what();
        }
    }

    Environment environment_{"/opt/product/manifest.xml", nullptr};
};

TEST_F(EnvironmentTest, KeysAreNormalisedAndBadEntriesAreNamed) {
    EXPECT_EQ(environment_.GetValue("ManifestPath"), "/opt/product/manifest.xml");
    EXPECT_EQ(environment_.GetValue("%ProductRoot%"), "/opt/product");
    EXPECT_EQ(Environment("manifest.xml", nullptr).GetValue("ProductRoot"), ".");
    EXPECT_EQ(Environment::Placeholder2Key("my key"), "my key");
    for (const char* text : {"a%b", "%", "%%", "", "%A%%B%", "%A"}) {
        EXPECT_EQ(FailureOf([&] { Environment::Placeholder2Key(text); }),
                  std::string("Wrong format of environment variable ") + text);
    }
    environment_.SetValue("%Bin%", "first");
    environment_.SetValue("Bin", "second");
    EXPECT_EQ(environment_.GetValue("%Bin%"), "second");
    // A manifest entry may replace a built-in key.
    environment_.SetValue("ProductRoot", "/elsewhere");
    EXPECT_EQ(environment_.Expand("%ProductRoot%/x"), "/elsewhere/x");

    EXPECT_EQ(FailureOf([&] { environment_.SetValue("a%b", "x"); }),
              "Wrong format of environment variable a%b");
    EXPECT_EQ(FailureOf([&] { environment_.SetValue("Empty", ""); }),
              "Value of environment variable Empty is empty");
    EXPECT_EQ(FailureOf([&] { environment_.GetValue("Empty"); }),
              "Unknown environment variable Empty");
}

TEST_F(EnvironmentTest, ExpandReplacesKnownPlaceholdersPassAfterPass) {
    const std::map<std::string, std::string> values = {{"A", "1"},
                                                       {"B", "2"},
                                                       {"Bin", "%ProductRoot%/bin"},
                                                       {"Plugins", "%Bin%/plugins"},
                                                       {"Open", "%Bi"},
                                                       {"R", "%R%\\x"},
                                                       {"P", "%Q%"},
                                                       {"Q", "%P%"}};
    for (const auto& [key, value] : values) {
        environment_.SetValue(key, value);
    }
    // Matches run left to right ("% of %" is the first, an unknown key); one
    // key twice in one text is not a recursion; a placeholder formed only by a
    // substitution is expanded in the next pass.
    const std::pair<const char*, const char*> cases[] = {
        {"%ProductRoot%\\bin\\a.dll", "/opt/product\\bin\\a.dll"},
        {"%A%%B%", "12"},
        {"%%", "%%"},
        {"50% of %A%", "50% of %A%"},
        {"x%", "x%"},
        {"%%A%", "%1"},
        {"%Unknown%\\%A%", "%Unknown%\\1"},
        {"%A%/%A%", "1/1"},
        {"%Plugins%/p.so", "/opt/product/bin/plugins/p.so"},
        {"%Open%n%", "/opt/product/bin"},
        {"%R%", "error: Environment variable R used recursively"},
        {"%P%", "error: Environment variable P used recursively"}};
    for (const auto& [text, expanded] : cases) {
        EXPECT_EQ(Expanded(text), expanded) << text;
    }
}

// Values that double at each level would need gigabytes a few levels on;
// the expansion stops at the longest Windows path, counted in characters.
TEST_F(EnvironmentTest, ExpansionStopsAtTheLongestPath) {
    for (int level = 0; level < 30; ++level) {
        const std::string next = "%K" + std::to_string(level + 1) + "%";
        environment_.SetValue("K" + std::to_string(level), next + next);
    }
    environment_.SetValue("K30", "x");
    // K15 holds 32,768 characters: one too many. The bound holds for every
    // pass: K17 gives 8,192 characters, but on the way 8,192 copies of
    // "%K30%" are more than the bound; K18 stays below it all the way.
    // Without a bound K0 would need gigabytes: it comes only after K15.
    ASSERT_EQ(Expanded("%K15%"), "error: Expanded text of %K15% is too long");
    EXPECT_EQ(Expanded("%K0%"), "error: Expanded text of %K0% is too long");
    EXPECT_EQ(Expanded("%K17%"), "error: Expanded text of %K17% is too long");
    EXPECT_EQ(Expanded("%K18%"), std::string(4096, 'x'));
    environment_.SetValue("Long", std::string(Environment::kMaxExpandedLength, 'b'));
    EXPECT_EQ(Expanded("%Long%").size(), Environment::kMaxExpandedLength);
    EXPECT_EQ(Expanded("y%Long%"), "error: Expanded text of y%Long% is too long");

    const std::string longest(Environment::kMaxExpandedLength, 'a');
    EXPECT_EQ(Expanded(longest), longest);
    EXPECT_EQ(Expanded("%K30%" + longest.substr(1)), "x" + longest.substr(1));
    // The start of a long text names it, cut after 64 characters.
    EXPECT_EQ(Expanded(longest + "a"),
              "error: Expanded text of " + std::string(64, 'a') + "... is too long");
    EXPECT_EQ(Expanded("%K30%" + longest),
              "error: Expanded text of %K30%" + std::string(59, 'a') + "... is too long");
    // Characters, not bytes: 32,767 two-byte characters are a path Windows takes.
    std::string wide;
    for (std::size_t index = 1; index < Environment::kMaxExpandedLength; ++index) {
        wide += "\xC3\xA9";
    }
    EXPECT_EQ(Expanded("%K30%" + wide), "x" + wide);
    EXPECT_EQ(Expanded("%K30%%K30%" + wide),
              "error: Expanded text of %K30%%K30%" + std::string(wide, 0, 54) + "... is too long");
}

TEST_F(EnvironmentTest, ProcessEnvironmentTakesPrecedence) {
    SetProcessVariable("ICT_TEST_ROOT", "/from/process");
    SetProcessVariable("ProductRoot", "/process/root");
    environment_.SetValue("ICT_TEST_ROOT", "/from/manifest");
    EXPECT_EQ(environment_.GetValue("ICT_TEST_ROOT"), "/from/process");
    EXPECT_EQ(environment_.Expand("%ICT_TEST_ROOT%/a"), "/from/process/a");
    EXPECT_EQ(environment_.Expand("%ProductRoot%"), "/process/root");
    SetProcessVariable("ICT_TEST_ROOT", "");
    SetProcessVariable("ProductRoot", "");
}

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
        {"/p/bin//", "//a.dll", "/p/bin/a.dll"},
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
