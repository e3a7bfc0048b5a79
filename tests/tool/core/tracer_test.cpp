#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>
#include <boost/format.hpp>

#include "common/exception.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "tracer.h"

namespace {

using integrity_check_tool::Exception;
using integrity_check_tool::Tracer;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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

TEST(TracerTest, WritesToANewTraceFileAndAppendsToAnOldOne) {
    ict_test::TempDir dir;
    const auto path = dir / "run.log";
    for (const char* line : {"first", "second"}) {
        const Tracer tracer(ruk::GetRootServiceLocator(), 800, path);
        tracer.Trace(800, "%1% run", line);
    }
    EXPECT_THAT(ict_test::ReadText(path), HasSubstr(" DEBUG first run\n"));
    EXPECT_THAT(ict_test::ReadText(path), EndsWith(" DEBUG second run\n"));
    {
        const Tracer tracer(ruk::GetRootServiceLocator(), 800, path);
        EXPECT_TRUE(tracer.WritesToFile());
        tracer.Trace(800, "detail %1%", "line");
        tracer.Trace(801, "beyond the level");
    }
    const std::string log = ict_test::ReadText(path);
    EXPECT_THAT(log, EndsWith(" DEBUG detail line\n"));
    EXPECT_THAT(log, Not(HasSubstr("beyond")));
}

std::string ConstructionFailure(const boost::filesystem::path& path) {
    return ict_test::ThrownText<Exception>(
        [&] { Tracer tracer(ruk::GetRootServiceLocator(), 800, path); });
}

TEST(TracerTest, RefusesTraceTargetsThatAreNotFiles) {
    ict_test::TempDir dir;
    const std::string onDirectory = ConstructionFailure(dir.Path());
    EXPECT_THAT(onDirectory, StartsWith("Can't create tracer. Reason: "));
    EXPECT_THAT(onDirectory, HasSubstr("Trace path \"" + dir.Path().string() + "\" is not a file"));

    const auto special = ict_test::MakeSpecialFile(dir / "pipe");
    EXPECT_THAT(ConstructionFailure(special),
                HasSubstr("Trace path \"" + special.string() + "\" is not a file"));

    // A file that cannot be opened is named with the system's own reason.
    const auto missing = dir / "missing" / "run.log";
    const std::string unopenable = ConstructionFailure(missing);
    EXPECT_THAT(unopenable, StartsWith("Can't create tracer. Reason: "));
    EXPECT_THAT(unopenable,
                HasSubstr("Can't open trace file " + missing.string() + ". Reason: " +
                          ict_test::os_error::Text(ict_test::os_error::kNoFolderOnTheWay)));
    EXPECT_THAT(unopenable, HasSubstr("product/tool/integrity_check_tool/source/tracer"));
    EXPECT_FALSE(boost::filesystem::exists(dir / "missing"));
}

}  // namespace
