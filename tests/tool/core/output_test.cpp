// What the tool writes: trace lines, console lines and the counts of a run.
#include <sstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>
#include <boost/format.hpp>

#include "common/exception.h"
#include "common/run_statistics.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "tracer.h"

namespace {

using namespace integrity_check_tool;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class RunStatisticsTest : public testing::Test {
protected:
    RunStatistics MakeStatistics(bool verbose) {
        return RunStatistics(std::make_shared<Tracer>(800, channel_),
                             std::make_shared<ConsoleOutput>(verbose, out_, err_));
    }

    ruk::intrusive_ptr<ruk::MemoryTraceChannel> channel_{new ruk::MemoryTraceChannel()};
    std::ostringstream out_;
    std::ostringstream err_;
};

TEST_F(RunStatisticsTest, SummaryShowsEachKindsCountsInOrder) {
    auto statistics = MakeStatistics(false);
    for (const std::size_t kind : {Files, Files, Registries}) {
        statistics.CountFailure(kind);
    }
    for (const std::size_t kind : {Files, Files, Files, Directories}) {
        statistics.CountSkip(kind);
    }
    for (const std::size_t kind : {Manifests, RegistryValues, RegistryValues}) {
        statistics.CountSuccess(kind);
    }
    statistics.PrintSummary();
    EXPECT_EQ(out_.str(),
              "===============================================>\n"
              "Summary( failed / skipped / succeeded ):\n"
              "\tManifests: 0 / 0 / 1\n"
              "\tFiles: 2 / 3 / 0\n"
              "\tDirectories: 0 / 1 / 0\n"
              "\tRegistries: 1 / 0 / 0\n"
              "\tRegistry values: 0 / 0 / 2\n"
              "===============================================>\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(RunStatisticsTest, RunReportsAndCountsEachOutcomeWithoutPassingFailuresOn) {
    auto statistics = MakeStatistics(true);
    int calls = 0;
    EXPECT_TRUE(statistics.Run(ObjectKind::Files, "file", "/a", [&] { ++calls; }));
    EXPECT_FALSE(statistics.Run(ObjectKind::Files, "file", "/b", [&] {
        ++calls;
        ICT_THROW(Exception("boom"));
    }));
    EXPECT_FALSE(
        statistics.Run(ObjectKind::Files, "file", "/c", [] { throw std::runtime_error("plain"); }));
    statistics.Skip(ObjectKind::Registries, "registry path", "HKLM\\Key");
    EXPECT_EQ(calls, 2);

    EXPECT_EQ(statistics.Get(ObjectKind::Files).succeeded, 1u);
    EXPECT_EQ(statistics.Get(ObjectKind::Files).failed, 2u);
    EXPECT_EQ(statistics.Get(ObjectKind::Registries).skipped, 1u);
    EXPECT_EQ(out_.str(),
              "Processing file /a ...\n"
              "file /a succeeded\n"
              "Processing file /b ...\n"
              "Processing file /c ...\n"
              "registry path HKLM\\Key filtered\n");
    EXPECT_EQ(err_.str(),
              "file /b failed. Reason: boom\n"
              "file /c failed. Reason: plain\n");
    EXPECT_THAT(
        channel_->Lines(),
        ElementsAre(EndsWith(" DEBUG Processing file /a ..."), EndsWith(" DEBUG file /a succeeded"),
                    EndsWith(" DEBUG Processing file /b ..."),
                    EndsWith(" DEBUG Processing file /c ..."),
                    EndsWith(" DEBUG registry path HKLM\\Key filtered")));
}

// Progress lines need "verbose"; failures always show, and the line saying
// where a failure happened comes before the failure line, which keeps its text.
TEST_F(RunStatisticsTest, QuietRunShowsOnlyFailuresWithWhereFirst) {
    auto statistics = MakeStatistics(false);
    statistics.Run(ObjectKind::Files, "file", "/a", [] {});
    statistics.Skip(ObjectKind::Files, "file", "/c");
    statistics.Run(ObjectKind::Manifests, "manifest", "a.xml, b.xml", [] {
        ICT_THROW(Exception("mismatched tag")
                  << ErrorContextInfo("Manifest file b.xml is invalid at row 3, column 2: "
                                      "mismatched tag"));
    });
    EXPECT_EQ(out_.str(), "");
    EXPECT_EQ(err_.str(),
              "Manifest file b.xml is invalid at row 3, column 2: mismatched tag\n"
              "manifest a.xml, b.xml failed. Reason: mismatched tag\n");
}

// Counts how often it is formatted into a message.
struct Probe {
    int* formatted;
};

std::ostream& operator<<(std::ostream& stream, const Probe& probe) {
    ++*probe.formatted;
    return stream << "probe";
}

TEST(TracerTest, PassesLevelsUpToItsOwnAndComposesOnlyThose) {
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> channel(new ruk::MemoryTraceChannel());
    const Tracer tracer(600, channel);
    EXPECT_TRUE(tracer.IsEnabled(600));
    EXPECT_FALSE(tracer.IsEnabled(601));
    EXPECT_FALSE(tracer.WritesToFile());

    int formatted = 0;
    tracer.Trace(700, "hidden %1%", Probe{&formatted});
    tracer.Write(800, "hidden too");
    EXPECT_EQ(formatted, 0);
    // A template that does not fit its arguments fails only when composed.
    EXPECT_NO_THROW(tracer.Trace(601, "%1% %2%", 1));
    EXPECT_THROW(tracer.Trace(600, "%1% %2%", 1), boost::io::format_error);

    tracer.Trace(600, "shown %1% and %2%", Probe{&formatted}, 42);
    tracer.Write(300, "error line");
    EXPECT_EQ(formatted, 1);
    EXPECT_THAT(channel->Lines(),
                ElementsAre(EndsWith(" INFO shown probe and 42"), EndsWith(" ERROR error line")));
}

std::string ConstructionFailure(const boost::filesystem::path& path) {
    return ict_test::ThrownText<Exception>(
        [&] { Tracer tracer(ruk::GetRootServiceLocator(), 800, path); });
}

// Appending to the file is the framework's; which targets are refused is ours.
TEST(TracerTest, WritesToAFileButRefusesTraceTargetsThatAreNotFiles) {
    ict_test::TempDir dir;
    EXPECT_TRUE(Tracer(ruk::GetRootServiceLocator(), 800, dir / "run.log").WritesToFile());
    for (const auto& path : {dir.Path(), ict_test::MakeSpecialFile(dir / "pipe")}) {
        EXPECT_THAT(ConstructionFailure(path),
                    AllOf(StartsWith("Can't create tracer. Reason: "),
                          HasSubstr("Trace path \"" + path.string() + "\" is not a file")));
    }
    // A file that cannot be opened is named with the system's own reason.
    const auto missing = dir / "missing" / "run.log";
    const std::string unopenable = ConstructionFailure(missing);
    EXPECT_THAT(unopenable,
                HasSubstr("Can't open trace file " + missing.string() + ". Reason: " +
                          ict_test::os_error::Text(ict_test::os_error::kNoFolderOnTheWay)));
    EXPECT_THAT(unopenable, HasSubstr("product/tool/integrity_check_tool/source/tracer"));
    EXPECT_FALSE(boost::filesystem::exists(dir / "missing"));
}

}  // namespace
