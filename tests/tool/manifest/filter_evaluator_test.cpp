#include "manifest/filter_evaluator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "support/enum_printing.h"
#include "support/thrown.h"
#include "support/trace_capture.h"

namespace integrity_check_tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

// A system described by the test instead of the one running it.
class FakeSystemInfo : public SystemInfo {
public:
    FakeSystemInfo(Os os, std::uint32_t version, std::set<std::string> definitions = {})
        : SystemInfo(std::move(definitions)), os_(os), version_(version) {}

    Arch GetOsArch() const override { return Arch::X86_64; }
    Os GetOs() const override { return os_; }
    OsEdition GetEdition() const override { return OsEdition::Desktop; }
    Bitness GetBitness() const override { return Bitness::Bits64; }
    std::uint32_t GetVersion() const override { return version_; }

private:
    Os os_;
    std::uint32_t version_;
};

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

TEST(FilterEvaluatorTest, TracesTheContextOnce) {
    ict_test::TraceCapture capture;
    FilterEvaluator evaluator(capture.Tracer(), FakeSystemInfo(Os::Windows, 1000, {"B", "A"}));
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_THAT(capture.Lines()[0],
                HasSubstr("Filter: {\"arch\":\"X86_64\",\"os\":\"Windows\",\"edition\":"
                          "\"Desktop\",\"bitness\":\"64\",\"version\":\"1000\","
                          "\"definitions\":\"A,B\"}"));
    EXPECT_EQ(evaluator.GetContext().version, 1000u);

    // Nothing is composed when the tracer does not admit detail lines.
    auto quiet = std::make_shared<Tracer>(600u, capture.Channel());
    FilterEvaluator silent(quiet, FakeSystemInfo(Os::Windows, 1000));
    Filter filter;
    filter.arch = Arch::X86;
    EXPECT_TRUE(silent.IsFiltered(filter, "quiet"));
    EXPECT_EQ(capture.Lines().size(), 1u);
}

TEST(FilterEvaluatorTest, EachConditionFiltersOnlyWhenItDiffers) {
    ict_test::TraceCapture capture;
    FilterEvaluator evaluator(capture.Tracer(), FakeSystemInfo(Os::Windows, 1000, {"Extras"}));

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
    FilterEvaluator noDefinitions(nullptr, FakeSystemInfo(Os::Windows, 1000));
    EXPECT_TRUE(noDefinitions.IsFiltered(matching, "defined"));
}

TEST(FilterEvaluatorTest, FirstFailingConditionInOrderIsReported) {
    ict_test::TraceCapture capture;
    FilterEvaluator evaluator(capture.Tracer(), FakeSystemInfo(Os::Windows, 601));
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
    FilterEvaluator onLinux(capture.Tracer(), FakeSystemInfo(Os::Linux, 601));
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

TEST(FilterEvaluatorTest, UnknownArchitectureFailsConstruction) {
    platform::SystemFacts facts;
    facts.archCode = platform::kArchUnknown;
    EXPECT_EQ(
        ict_test::ThrownText<Exception>([&] { FilterEvaluator(nullptr, SystemInfo({}, facts)); }),
        "Unsupported system architecture 7");
}

}  // namespace
}  // namespace integrity_check_tool
