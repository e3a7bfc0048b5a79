#include <sstream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "common/run_statistics.h"

namespace {

using namespace integrity_check_tool;
using testing::ElementsAre;
using testing::EndsWith;

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
    statistics.CountFailure(ObjectKind::Files);
    statistics.CountFailure(ObjectKind::Files);
    statistics.CountSkip(ObjectKind::Files);
    statistics.CountSuccess(ObjectKind::Files);
    statistics.CountSuccess(ObjectKind::Manifests);
    statistics.CountSkip(ObjectKind::Registries);
    statistics.CountSuccess(ObjectKind::RegistryValues);
    statistics.CountSuccess(ObjectKind::RegistryValues);
    statistics.CountSuccess(ObjectKind::RegistryValues);
    statistics.PrintSummary();
    EXPECT_EQ(out_.str(),
              "===============================================>\n"
              "Summary( failed / skipped / succeeded ):\n"
              "\tManifests: 0 / 0 / 1\n"
              "\tFiles: 2 / 1 / 1\n"
              "\tDirectories: 0 / 0 / 0\n"
              "\tRegistries: 0 / 1 / 0\n"
              "\tRegistry values: 0 / 0 / 3\n"
              "===============================================>\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(RunStatisticsTest, KindBeyondTheTableIsAProgrammingError) {
    auto statistics = MakeStatistics(false);
    EXPECT_THROW(statistics.CountSuccess(5), std::out_of_range);
    EXPECT_THROW(statistics.CountSkip(5), std::out_of_range);
    EXPECT_THROW(statistics.CountFailure(5), std::out_of_range);
    EXPECT_THROW(statistics.Run(7, "file", "x", [] {}), std::out_of_range);
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

TEST(ConsoleOutputTest, KindsGoToTheirStreams) {
    std::ostringstream out;
    std::ostringstream err;
    ConsoleOutput quiet(false, out, err);
    quiet.Write(ConsoleOutput::Result, "result");
    quiet.Write(ConsoleOutput::Error, "error");
    quiet.Write(ConsoleOutput::Verbose, "detail");
    quiet.Write(3, "dropped");
    quiet.Write(-1, "dropped");
    EXPECT_EQ(out.str(), "result\n");
    EXPECT_EQ(err.str(), "error\n");

    ConsoleOutput verbose(true, out, err);
    verbose.Write(ConsoleOutput::Verbose, "detail");
    EXPECT_EQ(out.str(), "result\ndetail\n");
}

}  // namespace
