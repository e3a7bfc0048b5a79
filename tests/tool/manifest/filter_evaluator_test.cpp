// The system a record is put to, and the filter that puts it there.
#include "manifest/filter_evaluator.h"

#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
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
    EXPECT_THAT(FilterLines(capture),
                ElementsAre("/a filtered by arch", "/b filtered by maxVersionNt",
                            "/c filtered by defined"));
}

TEST(FilterEvaluatorTest, NtBoundsImplyWindowsAndKernelVersionMatchesExactly) {
    ict_test::TraceCapture capture;
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
    EXPECT_THAT(FilterLines(capture), ElementsAre("min filtered by os", "max filtered by os"));

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
    for (const std::uint32_t code : {7u, 42u}) {
        EXPECT_EQ(ict_test::ThrownText<Exception>([&] { SystemInfo({}, Facts(code)).GetOsArch(); }),
                  "Unsupported system architecture " + std::to_string(code));
    }
    auto facts = Facts(1);
    EXPECT_EQ(SystemInfo({}, facts).GetOs(), Os::Windows);
    EXPECT_EQ(SystemInfo({}, facts).GetEdition(), OsEdition::Desktop);
    EXPECT_EQ(SystemInfo({}, facts).GetVersion(), 603u);
    facts.isServer = true;
    EXPECT_EQ(SystemInfo({}, facts).GetEdition(), OsEdition::Server);
    EXPECT_EQ(SystemInfo({}, Facts(1, 0, 1000)).GetVersion(), 1000u);
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
    platform::SystemFacts facts;
    platform::ParseKernelRelease("6.1.0-18-amd64", facts);
    EXPECT_EQ(facts.majorVersion, 6u);
    EXPECT_EQ(facts.minorVersion, 1u);
    EXPECT_EQ(facts.buildNumber, 0u);
    platform::SystemFacts partial;
    platform::ParseKernelRelease("5.15-rc1", partial);
    EXPECT_EQ(partial.majorVersion, 5u);
    EXPECT_EQ(partial.minorVersion, 15u);
    platform::SystemFacts garbage;
    platform::ParseKernelRelease("unknown", garbage);
    EXPECT_EQ(garbage.majorVersion, 0u);

    EXPECT_EQ(platform::ArchCodeFromMachine("x86_64"), platform::kArchX86_64);
    EXPECT_EQ(platform::ArchCodeFromMachine("i686"), platform::kArchX86);
    EXPECT_EQ(platform::ArchCodeFromMachine("aarch64"), platform::kArchARM64);
    EXPECT_EQ(platform::ArchCodeFromMachine("armv7l"), platform::kArchARM32);
    EXPECT_EQ(platform::ArchCodeFromMachine("e2k"), platform::kArchE2K64);
    EXPECT_EQ(platform::ArchCodeFromMachine("riscv64"), platform::kArchUnknown);
    EXPECT_EQ(platform::PlatformFromSystemName("Linux"), platform::kPlatformLinux);
    EXPECT_EQ(platform::PlatformFromSystemName("Darwin"), platform::kPlatformMacOS);
}
#endif

}  // namespace
}  // namespace integrity_check_tool
