#include "system_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"
#include "support/thrown.h"

#include "common/exception.h"

#ifndef _WIN32
#include <fstream>

#include "platform/posix/uname_facts.h"
#endif

namespace integrity_check_tool {
namespace {

platform::SystemFacts Facts(std::uint32_t archCode, std::uint32_t platformNumber = 0) {
    platform::SystemFacts facts;
    facts.platform = platformNumber;
    facts.majorVersion = 6;
    facts.minorVersion = 3;
    facts.archCode = archCode;
    return facts;
}

TEST(SystemInfoTest, ArchitectureCodesMapToArchAndBitness) {
    struct Case {
        std::uint32_t code;
        Arch arch;
        Bitness bitness;
    };
    const Case cases[] = {
        {0, Arch::X86, Bitness::Bits32},   {1, Arch::X86_64, Bitness::Bits64},
        {2, Arch::IA64, Bitness::Bits64},  {3, Arch::ARM32, Bitness::Bits32},
        {4, Arch::ARM64, Bitness::Bits64}, {5, Arch::E2K32, Bitness::Bits32},
        {6, Arch::E2K64, Bitness::Bits64},
    };
    for (const auto& entry : cases) {
        const SystemInfo system({}, Facts(entry.code));
        EXPECT_EQ(system.GetOsArch(), entry.arch) << entry.code;
        EXPECT_EQ(system.GetBitness(), entry.bitness) << entry.code;
    }
    for (const std::uint32_t code : {7u, 42u}) {
        EXPECT_EQ(ict_test::ThrownText<Exception>([&] { SystemInfo({}, Facts(code)).GetOsArch(); }),
                  "Unsupported system architecture " + std::to_string(code));
    }
}

TEST(SystemInfoTest, OsEditionVersionAndDefinitions) {
    auto facts = Facts(1);
    EXPECT_EQ(SystemInfo({}, facts).GetOs(), Os::Windows);
    EXPECT_EQ(SystemInfo({}, facts).GetEdition(), OsEdition::Desktop);
    EXPECT_EQ(SystemInfo({}, facts).GetVersion(), 603u);
    facts.isServer = true;
    facts.majorVersion = 10;
    facts.minorVersion = 0;
    EXPECT_EQ(SystemInfo({}, facts).GetEdition(), OsEdition::Server);
    EXPECT_EQ(SystemInfo({}, facts).GetVersion(), 1000u);
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
