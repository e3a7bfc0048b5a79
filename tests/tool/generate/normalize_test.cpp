#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "action/normalize.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;
using testing::Contains;
using testing::HasSubstr;

class NormalizeTest : public testing::Test {
protected:
    bool Run(const fs::path& path) {
        Normalize action(trace_.Tracer(), NormalizeSettings{path});
        EXPECT_EQ(action.GetName(), "Normalize");
        return action.Execute();
    }
    std::vector<std::string> Messages() const { return trace_.Messages(); }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
};

TEST_F(NormalizeTest, GroupsAndPlaceholdersSurviveAndTheWrapperGoes) {
    const fs::path path = dir_ / "m.xml";
    ict_test::WriteText(path, R"(<Config><Manifest productName="Demo">
  <Environment key="Bin" value="%ProductRoot%\bin"/>
  <Files path="%Bin%" arch="X86"><File path="p.dll"><Check/></File></Files>
</Manifest></Config>)");
    const std::string normalized = R"(<?xml version="1.0" encoding="UTF-8" ?>
<Manifest productName="Demo">
    <Environment key="Bin" value="%ProductRoot%\bin" />
    <Files path="%Bin%" arch="X86">
        <File path="p.dll">
            <Check type="Exists" />
        </File>
    </Files>
</Manifest>
)";
    ASSERT_TRUE(Run(path));
    EXPECT_EQ(ict_test::ReadText(path), normalized);
    EXPECT_THAT(Messages(), Contains("Manifest " + path.string() + " normalized"));
    // The current dialect comes back unchanged.
    ASSERT_TRUE(Run(path));
    EXPECT_EQ(ict_test::ReadText(path), normalized);
}

// What normalize can't read it leaves byte for byte, and says why. Neither
// special file may be read: one never ends, the other waits for a writer.
TEST_F(NormalizeTest, BadInputIsLeftAsItWasAndTheReasonIsGiven) {
    const fs::path path = dir_ / "m.xml";
    const auto failed = [](const fs::path& manifest) {
        return "Normalization of manifest " + manifest.string() + " failed. Reason: ";
    };
    const std::string unclosed =
        "<Manifest>\r\n  <File path=\"a\"><Check type=\"sha256\"/></File>\r\n";
    const std::pair<std::string, std::string> contents[] = {
        // The unclosed manifest is placed: which file, which row.
        {unclosed, "Manifest file " + path.string() + " is invalid at row 3"},
        {unclosed + "</Manifest>", failed(path) + "Invalid name: sha256"},
        {"<Other/>", failed(path) + "XML node Manifest is absent"}};
    for (const auto& [content, line] : contents) {
        ict_test::WriteText(path, content);
        EXPECT_FALSE(Run(path)) << content;
        EXPECT_EQ(ict_test::ReadText(path), content);
        EXPECT_THAT(Messages(), Contains(HasSubstr(line)));
    }
    std::vector<std::pair<fs::path, std::string>> unreadable = {
        {dir_.Path(), "it is a directory, not a regular file"},
        {dir_ / "none.xml", ict_test::os_error::Text(ict_test::os_error::kNoEntry)},
        {ict_test::MakeSpecialFile(dir_ / "pipe.xml"), "it is not a regular file"}};
#ifndef _WIN32
    unreadable.push_back({"/dev/zero", "it is not a regular file"});
#endif
    for (const auto& [manifest, reason] : unreadable) {
        EXPECT_FALSE(Run(manifest)) << manifest;
        EXPECT_THAT(Messages(), Contains(failed(manifest) + "Can't open manifest file " +
                                         manifest.string() + ". Reason: " + reason));
    }
    EXPECT_FALSE(fs::exists(dir_ / "none.xml"));
    EXPECT_EQ(ict_test::ReadText(path), "<Other/>");
}

// Another writer that saves the manifest while it is being normalized keeps
// its version: the file is replaced only if it is still the one that was read.
TEST_F(NormalizeTest, AManifestChangedMeanwhileIsLeftToItsNewWriter) {
    const fs::path path = dir_ / "m.xml";
    // The reader's warning about the unknown attribute comes after the file
    // was read and before it is replaced: the other writer saves then.
    class MeddlingChannel : public ruk::MemoryTraceChannel {
    public:
        explicit MeddlingChannel(fs::path path) : path_(std::move(path)) {}
        void WriteLine(const std::string& line) override {
            MemoryTraceChannel::WriteLine(line);
            if (line.find("Unknown attribute") != std::string::npos) {
                ict_test::WriteText(path_, "<Manifest productName=\"Theirs\"/>");
            }
        }

    private:
        fs::path path_;
    };
    ict_test::WriteText(path, R"(<Manifest productName="Ours" extra="1"/>)");
    const ruk::intrusive_ptr<MeddlingChannel> channel(new MeddlingChannel(path));
    Normalize action(std::make_shared<Tracer>(800, channel), NormalizeSettings{path});

    EXPECT_FALSE(action.Execute());
    EXPECT_EQ(ict_test::ReadText(path), "<Manifest productName=\"Theirs\"/>");
    EXPECT_THAT(channel->Lines(), Contains(HasSubstr("Normalization of manifest " + path.string() +
                                                     " failed. Reason: ")));
}

}  // namespace
}  // namespace integrity_check_tool::action
