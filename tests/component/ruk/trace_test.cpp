#include <iostream>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ruk/service_locator.h"
#include "ruk/trace.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/regex_match.h"
#include "support/temp_dir.h"

namespace {

using ict_test::FullyMatches;
using testing::ElementsAre;
namespace os_error = ict_test::os_error;

TEST(RukTraceTest, LevelWordsFollowTheLevelBands) {
    EXPECT_STREQ(ruk::GetLevelWord(300), "ERROR");
    EXPECT_STREQ(ruk::GetLevelWord(301), "WARNING");
    EXPECT_STREQ(ruk::GetLevelWord(400), "WARNING");
    EXPECT_STREQ(ruk::GetLevelWord(600), "INFO");
    EXPECT_STREQ(ruk::GetLevelWord(700), "START");
    EXPECT_STREQ(ruk::GetLevelWord(800), "DEBUG");
}

TEST(RukTraceTest, TracerWritesPrefixedLinesUpToItsLevelToEveryChannel) {
    ruk::intrusive_ptr<ruk::ITracer> tracer;
    ASSERT_EQ(ruk::GetRootServiceLocator()->CreateTracer(&tracer), ruk::result::Success);
    EXPECT_EQ(tracer->GetLevel(), 0u);
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> first(new ruk::MemoryTraceChannel());
    ruk::intrusive_ptr<ruk::MemoryTraceChannel> second(new ruk::MemoryTraceChannel());
    ASSERT_EQ(tracer->AttachChannel(first), ruk::result::Success);
    ASSERT_EQ(tracer->AttachChannel(second), ruk::result::Success);
    EXPECT_EQ(tracer->AttachChannel(nullptr), ruk::result::InvalidArgument);
    ASSERT_EQ(tracer->SetLevel(700), ruk::result::Success);

    tracer->Write(700, "start-up fact");
    tracer->Write(701, "too detailed");
    tracer->Write(300, "an error");

    // "%X %I %p": time, thread id, level word, then the text.
    EXPECT_THAT(first->Lines(),
                ElementsAre(FullyMatches("[0-9]+:[0-9]+:[0-9]+ [^ ]+ START start-up fact"),
                            FullyMatches("[0-9]+:[0-9]+:[0-9]+ [^ ]+ ERROR an error")));
    EXPECT_EQ(first->Lines(), second->Lines());
}

TEST(RukTraceTest, FileChannelKeepsTheOldContentAndAppendsEachLine) {
    ict_test::TempDir dir;
    const auto path = dir / "trace.log";
    ict_test::WriteText(path, "old content\n");
    ruk::intrusive_ptr<ruk::ITraceChannel> channel;
    ASSERT_EQ(ruk::CreateFileTraceChannel(path, &channel), ruk::result::Success);
    channel->WriteLine("one");
    channel->WriteLine("two");
    // Each line is written at once: readable while the channel is still open.
    EXPECT_EQ(ict_test::ReadText(path), "old content\none\ntwo\n");

    // The system's own error, not a fixed one.
    ruk::intrusive_ptr<ruk::ITraceChannel> failed;
    EXPECT_EQ(ruk::CreateFileTraceChannel(dir / "no" / "such" / "dir.log", &failed),
              ruk::MakeOsResult(os_error::kNoFolderOnTheWay));
    EXPECT_EQ(ruk::CreateFileTraceChannel(dir.Path(), &failed),
              ruk::MakeOsResult(os_error::kIsAFolder));
    EXPECT_FALSE(failed);
}

TEST(RukTraceTest, AFailingFileWriteIsReportedOnceOnStandardError) {
    ruk::intrusive_ptr<ruk::ITraceChannel> channel;
    // Every write to this device fails as on a full disk (Wine hands Windows
    // programs the host's device under the same name).
    const ruk::result_t opened = ruk::CreateFileTraceChannel("/dev/full", &channel);
#ifdef _WIN32
    if (opened != ruk::result::Success) {
        GTEST_SKIP() << "Windows has no device whose every write fails";
    }
#endif
    ASSERT_EQ(opened, ruk::result::Success);
    std::ostringstream captured;
    std::streambuf* const original = std::cerr.rdbuf(captured.rdbuf());
    channel->WriteLine("one");
    channel->WriteLine("two");
    std::cerr.rdbuf(original);
    EXPECT_EQ(captured.str(), "Can't write trace file /dev/full. Reason: " +
                                  os_error::Text(os_error::kDiskFull) + "\n");
}

}  // namespace
