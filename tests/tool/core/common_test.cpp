// What the tool writes and names: traces, console lines, run counts, names.
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>
#include <boost/format.hpp>

#include "common/enumerations.h"
#include "common/exception.h"
#include "common/run_statistics.h"
#include "common/signed_file_name.h"
#include "common/utf16.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "tracer.h"

namespace integrity_check_tool {
namespace {

using ict_test::ThrownText;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// Every name maps to the value of its position and back; a value past the
// table has no name, and any other text is refused as it was given.
template <typename Enum>
void ExpectTable(const std::vector<std::string>& names, const std::string& unknown) {
    const auto& table = NamedValuesOf<Enum>::Get();
    ASSERT_EQ(table.names.size(), names.size());
    for (std::size_t index = 0; index < names.size(); ++index) {
        const auto value = static_cast<Enum>(index);
        EXPECT_EQ(table.values[index], value);
        EXPECT_EQ(FromName<Enum>(names[index]), value) << names[index];
        EXPECT_EQ(ToName(value), names[index]);
    }
    EXPECT_THROW(ToName(static_cast<Enum>(names.size())), std::out_of_range);
    EXPECT_EQ(ThrownText<Exception>([&] { FromName<Enum>(unknown); }), "Invalid name: " + unknown);
}

TEST(EnumerationsTest, TablesHoldTheirNamesInValueOrderAndNothingElse) {
    ExpectTable<CheckType>({"Exists", "NotExists", "Gost2012", "Sha256", "Value"}, "exists");
    ExpectTable<Bitness>({"32", "64"}, "Exists ");
    ExpectTable<OsEdition>({"Server", "Desktop"}, "server");
    ExpectTable<Os>({"Linux", "Windows", "MacOS"}, "");
    ExpectTable<Arch>({"X86_64", "X86", "IA64", "ARM32", "ARM64", "E2K32", "E2K64"}, "x86_64");
    ExpectTable<SignatureType>({"dsvm2", "vds", "vds-with-filename"}, "DSVM2");
    ExpectTable<RegistryType>({"REG_BINARY", "REG_DWORD", "REG_DWORD_LITTLE_ENDIAN",
                               "REG_DWORD_BIG_ENDIAN", "REG_EXPAND_SZ", "REG_LINK", "REG_MULTI_SZ",
                               "REG_NONE", "REG_QWORD", "REG_QWORD_LITTLE_ENDIAN", "REG_SZ"},
                              "reg_sz");
    ExpectTable<TrustedRoot>({"3520p1", "3020d1", "4820d1", "4823d1"}, "3520P1");
}

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

// Progress lines need "verbose"; failures always show, and the line saying
// where a failure happened comes before the failure line, which keeps its
// text. The summary shows each kind's counts in order.
TEST_F(RunStatisticsTest, SummaryShowsEachKindsCountsInOrder) {
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
    for (const std::size_t kind : {Files, Files, Registries}) {
        statistics.CountFailure(kind);
    }
    for (const std::size_t kind : {Files, Files, Directories}) {
        statistics.CountSkip(kind);
    }
    for (const std::size_t kind : {RegistryValues, RegistryValues}) {
        statistics.CountSuccess(kind);
    }
    out_.str("");
    statistics.PrintSummary();
    EXPECT_EQ(out_.str(),
              "===============================================>\n"
              "Summary( failed / skipped / succeeded ):\n"
              "\tManifests: 1 / 0 / 0\n"
              "\tFiles: 2 / 3 / 1\n"
              "\tDirectories: 0 / 1 / 0\n"
              "\tRegistries: 1 / 0 / 0\n"
              "\tRegistry values: 0 / 0 / 2\n"
              "===============================================>\n");
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
    return ThrownText<Exception>([&] { Tracer tracer(ruk::GetRootServiceLocator(), 800, path); });
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

// The path a program holds for UTF-8 text: the bytes themselves on POSIX,
// their UTF-16 form on Windows (a narrow path there is in the code page).
boost::filesystem::path PathOf(const std::string& text) {
#ifdef _WIN32
    std::u16string units;
    EXPECT_TRUE(Utf8ToUtf16(text, &units)) << text;
    return boost::filesystem::path(std::wstring(units.begin(), units.end()));
#else
    return boost::filesystem::path(text);
#endif
}

TEST(SignedFileNameTest, TheNameIsTakenAsItStandsInThePath) {
    const std::pair<const char*, std::u16string> cases[] = {
        {"Setup.exe", u"Setup.exe"},
        {"C:\\Program Files\\Product\\Setup.EXE", u"Setup.EXE"},
        {"/opt/product/bin/tool.dll", u"tool.dll"},
        {"dir\\sub/mixed.sys", u"mixed.sys"},
        // A drive letter and colon with no separator: the name follows the
        // colon, on POSIX too (where it is a legal file name of its own).
        {"C:a.dll", u"a.dll"},
        {"/dir/C:a.dll", u"C:a.dll"},  // the drive rule only applies to the whole path
        // Not a drive prefix: kept.
        {"1:x", u"1:x"},
        {"ab:x", u"ab:x"},
        {"a.dll:stream", u"a.dll:stream"},
        // A path that ends in a separator binds the empty name.
        {"dir/", u""},
    };
    for (const auto& [path, name] : cases) {
        EXPECT_EQ(SignedFileName(PathOf(path)), name) << path;
    }
    // Little-endian units, a surrogate pair for a character outside the BMP, one zero unit.
    EXPECT_EQ(SignedFileNameBytes(PathOf("/p/\xF0\x9F\x98\x80")),
              (std::vector<std::uint8_t>{0x3D, 0xD8, 0x00, 0xDE, 0, 0}));
}

// On POSIX a name is UTF-8, converted here: every malformed form is refused
// naming the path.
TEST(SignedFileNameTest, Utf8NamesAreConvertedAndEveryMalformedFormRefused) {
    // Only the name part is converted: a bad byte in a folder name does not matter.
    EXPECT_EQ(SignedFileName("/d\xFF/a.dll"), u"a.dll");
#ifdef _WIN32
    GTEST_SKIP() << "a Windows path is UTF-16: it cannot hold a name that is not valid UTF-8";
#endif
    const std::pair<const char*, std::u16string> valid[] = {
        {"", u""},
        {"\x7F", u"\x7F"},
        {"\xC2\x80", u"\u0080"},              // smallest two-byte form
        {"\xDF\xBF", u"\u07FF"},              // largest two-byte form
        {"\xE0\xA0\x80", u"\u0800"},          // smallest three-byte form
        {"\xED\x9F\xBF", u"\uD7FF"},          // just below the surrogates
        {"\xEE\x80\x80", u"\uE000"},          // just above them
        {"\xEF\xBF\xBF", u"\uFFFF"},          // largest three-byte form
        {"\xF0\x90\x80\x80", u"\U00010000"},  // smallest four-byte form
        {"\xF0\x9F\x94\x91", u"\U0001F511"},  // a surrogate pair
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},  // the last code point
        {"a\xD0\x96z", u"a\u0416z"},
        {"\xEF\xBF\xBD", u"\uFFFD"},  // a real U+FFFD is a valid name
    };
    for (const auto& [text, units] : valid) {
        EXPECT_EQ(SignedFileName(std::string("/p/") + text), units) << text;
    }
    const char* const invalid[] = {
        "\x80",                  // a continuation byte alone
        "\xC2",                  // a form cut short
        "\xE0\x41\x80",          // a lead byte followed by no continuation
        "\xC0\x80",              // overlong NUL
        "\xE0\x9F\xBF",          // overlong three-byte
        "\xF0\x8F\xBF\xBF",      // overlong four-byte
        "\xED\xA0\x80",          // an encoded high surrogate
        "\xED\xBF\xBF",          // an encoded low surrogate
        "\xF4\x90\x80\x80",      // above U+10FFFF
        "\xF8\x88\x80\x80\x80",  // five-byte lead
    };
    for (const char* text : invalid) {
        const std::string path = std::string("/p/") + text;
        EXPECT_EQ(ThrownText<Exception>([&] { SignedFileName(path); }),
                  "File name " + path + " is not valid UTF-8")
            << testing::PrintToString(path);
    }
}

}  // namespace
}  // namespace integrity_check_tool
