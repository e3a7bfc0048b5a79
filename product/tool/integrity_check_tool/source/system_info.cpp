#include "system_info.h"

#include <atomic>
#include <memory>
#include <string>

#include "common/exception.h"
#include "common/message_format.h"
#include "ruk/exception.h"

namespace integrity_check_tool {
namespace {

const char* UnsupportedArchitecture() {
    return "Unsupported system architecture %1%";
}

// The process-wide snapshot, published with one atomic exchange after it is
// complete. Two threads asking at once both query the system; one snapshot
// wins and the other is dropped, so readers never see a half-written one.
std::atomic<const platform::SystemFacts*> g_snapshot{nullptr};

const platform::SystemFacts& ProcessSnapshot() {
    if (const platform::SystemFacts* ready = g_snapshot.load(std::memory_order_acquire)) {
        return *ready;
    }
    auto facts = std::make_unique<platform::SystemFacts>();
    RUK_CHECK(platform::QuerySystemFacts(facts.get()));
    const platform::SystemFacts* expected = nullptr;
    if (g_snapshot.compare_exchange_strong(expected, facts.get(), std::memory_order_acq_rel)) {
        // Lives until the process ends, like the facts it describes.
        return *facts.release();
    }
    return *expected;
}

}  // namespace

SystemInfo::SystemInfo(std::set<std::string> definitions) : definitions_(std::move(definitions)) {}

SystemInfo::SystemInfo(std::set<std::string> definitions, const platform::SystemFacts& facts)
    : definitions_(std::move(definitions)), facts_(facts) {}

SystemInfo::~SystemInfo() = default;

const platform::SystemFacts& SystemInfo::GetFacts() const {
    return facts_ ? *facts_ : ProcessSnapshot();
}

Arch SystemInfo::GetOsArch() const {
    const std::uint32_t code = GetFacts().archCode;
    switch (code) {
        case platform::kArchX86:
            return Arch::X86;
        case platform::kArchX86_64:
            return Arch::X86_64;
        case platform::kArchIA64:
            return Arch::IA64;
        case platform::kArchARM32:
            return Arch::ARM32;
        case platform::kArchARM64:
            return Arch::ARM64;
        case platform::kArchE2K32:
            return Arch::E2K32;
        case platform::kArchE2K64:
            return Arch::E2K64;
        default:
            ICT_THROW(Exception(MessageFormat(UnsupportedArchitecture(), std::to_string(code))));
    }
}

Os SystemInfo::GetOs() const {
    switch (GetFacts().platform) {
        case platform::kPlatformWindows:
            return Os::Windows;
        case platform::kPlatformMacOS:
            return Os::MacOS;
        default:
            return Os::Linux;
    }
}

OsEdition SystemInfo::GetEdition() const {
    return GetFacts().isServer ? OsEdition::Server : OsEdition::Desktop;
}

Bitness SystemInfo::GetBitness() const {
    switch (GetOsArch()) {
        case Arch::X86_64:
        case Arch::IA64:
        case Arch::ARM64:
        case Arch::E2K64:
            return Bitness::Bits64;
        default:
            return Bitness::Bits32;
    }
}

std::uint32_t SystemInfo::GetVersion() const {
    const auto& facts = GetFacts();
    return facts.majorVersion * 100 + facts.minorVersion;
}

std::set<std::string> SystemInfo::GetDefinitions() const {
    return definitions_;
}

}  // namespace integrity_check_tool
