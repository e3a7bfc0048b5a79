// The Windows checker under Wine: what only Windows has (its version
// resource, system facts, drive letters, long and case-blind paths) and the
// shared product runs, which must print what the Linux checker prints.
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "../shared/product_runs.h"
#include "wine_support.h"

namespace {

namespace fs = boost::filesystem;
namespace e2e = ict_test::e2e;
using testing::HasSubstr;

std::string Utf16(const std::string& ascii) {
    std::string bytes;
    for (char c : ascii) {
        bytes.push_back(c);
        bytes.push_back('\0');
    }
    return bytes;
}

// A record whose Sha256 check expects `content`.
std::string FileRecord(const std::string& path, const std::string& content,
                       const std::string& filter = "") {
    return e2e::FileRecord(path, e2e::Sha256Check(content), filter);
}

class WindowsProgramUnderWine : public testing::Test {
protected:
    void SetUp() override { ICT_REQUIRE_WINDOWS_BUILD(); }

    fs::path WriteManifest(const fs::path& path, const std::string& records) {
        ict_test::WriteText(path, e2e::ManifestText(records));
        return path;
    }

    fs::path Product() const { return dir_ / "product"; }

    ict_test::TempDir dir_;
};

TEST_F(WindowsProgramUnderWine, VersionIsReadFromTheProgramsVersionResource) {
    const auto run = wine_e2e::RunChecker({"--version"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, "Version " + std::string(ICT_PROJECT_VERSION) + "\nSUCCEEDED\n")
        << run.Describe();
    // The resource itself carries the version under the key the program reads.
    const std::string image = ict_test::ReadText(wine_e2e::WindowsCheckerPath());
    EXPECT_NE(image.find(Utf16("ProductVersion")), std::string::npos);
    EXPECT_NE(image.find(Utf16("040904B0")), std::string::npos);
    EXPECT_NE(image.find(Utf16(std::string(ICT_PROJECT_VERSION))), std::string::npos);
}

// Makes Wine report the given Windows version to the checker alone.
void SetWineVersionOfTheChecker(const std::string& version) {
    wine_e2e::ImportRegistry(
        "REGEDIT4\n\n[HKEY_CURRENT_USER\\Software\\Wine\\AppDefaults\\integrity_checker.exe]\n"
        "\"Version\"=\"" +
        version + "\"\n");
}

// One record per condition: those that hold here are checked, the others skipped.
TEST_F(WindowsProgramUnderWine, SystemFactsAreWinesAndFiltersDecideOnThem) {
    const std::vector<std::string> conditions = {
        "os=\"Linux\"", "arch=\"X86_64\" bitness=\"64\"", "edition=\"Server\"",
        "minVersionNt=\"1000\" maxVersionNt=\"1000\"",
        // Kernel versions are a Linux condition; Windows ignores them.
        "linuxKernelVersion=\"99999\""};
    std::string records;
    for (std::size_t i = 0; i < conditions.size(); ++i) {
        const std::string name = "f" + std::to_string(i) + ".dll";
        ict_test::WriteText(Product() / name, "content " + name);
        records += FileRecord("%ProductRoot%\\" + name, "content " + name, conditions[i]);
    }
    const fs::path manifest = WriteManifest(Product() / "m.xml", records);
    const fs::path trace = dir_ / "trace.log";
    // The version is the system's, read at every start, not a constant.
    for (const auto& [version, files] : std::vector<std::pair<std::string, std::string>>{
             {"win81", "0 / 3 / 2"}, {"win10", "0 / 2 / 3"}}) {
        SetWineVersionOfTheChecker(version);
        const auto run = wine_e2e::RunChecker({"--trace", trace.string(), manifest.string()});
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        EXPECT_THAT(run.out, HasSubstr("\tFiles: " + files + "\n")) << version;
    }
    EXPECT_THAT(ict_test::ReadText(trace),
                HasSubstr("\"arch\":\"X86_64\",\"os\":\"Windows\",\"edition\":\"Desktop\","
                          "\"bitness\":\"64\",\"version\":\"1000\""));
}

TEST_F(WindowsProgramUnderWine, PathsDriveLettersEnvironmentAndNames) {
    const char* prefix = std::getenv("WINEPREFIX");
    ASSERT_NE(prefix, nullptr) << "the Wine tests run in their own WINEPREFIX";
    const fs::path programFiles = fs::path(prefix) / "drive_c" / "Program Files" / "IctTest";
    ict_test::WriteText(programFiles / "tool.dll", "program files content");

    ict_test::WriteText(Product() / "bin" / "a.dll", "content of a");
    const std::string cyrillic = "\xd0\xb4\xd0\xb0\xd0\xbd\xd0\xbd\xd1\x8b\xd0\xb5";  // "данные"
    const std::string cyrillicFile = "\xd1\x84\xd0\xb0\xd0\xb9\xd0\xbb.dll";  // "файл.dll"
    ict_test::WriteText(Product() / cyrillic / cyrillicFile, "cyrillic content");
    // Deep enough that the Windows form of the path passes 260 characters.
    fs::path deep = Product();
    while (wine_e2e::ToWinePath(deep).size() < 280) {
        deep /= "a-rather-long-directory-name";
    }
    ict_test::WriteText(deep / "deep.dll", "deep content");
    ASSERT_GT(wine_e2e::ToWinePath(deep / "deep.dll").size(), 260u);

    const std::string records =
        // The process environment wins over the manifest's own SystemRoot.
        e2e::FileRecord("%SystemRoot%\\system32\\kernel32.dll") +
        FileRecord("%ProgramFiles%\\IctTest\\tool.dll", "program files content") +
        FileRecord(wine_e2e::ToWinePath(Product() / "bin" / "a.dll"), "content of a") +
        FileRecord("%ProductRoot%\\" + cyrillic + "\\" + cyrillicFile, "cyrillic content") +
        FileRecord(wine_e2e::ToWinePath(deep / "deep.dll"), "deep content");
    const auto manifest =
        WriteManifest(Product() / "integrity_check.xml",
                      "  <Environment key=\"SystemRoot\" value=\"Z:\\nowhere\"/>\n" + records);
    const auto run = wine_e2e::RunChecker({manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 5\n")) << run.Describe();
    fs::remove_all(programFiles);
}

TEST_F(WindowsProgramUnderWine, DefaultManifestIsFoundBesideTheProgram) {
    const fs::path app = dir_ / "app";
    fs::create_directories(app);
    fs::copy_file(wine_e2e::WindowsCheckerPath(), app / "integrity_checker.exe");
    ict_test::WriteText(app / "bin" / "a.dll", "content of a");
    WriteManifest(app / "integrity_check.xml",
                  FileRecord("%ProductRoot%\\bin\\a.dll", "content of a"));

    // Started from elsewhere: only the program's own location leads there.
    const fs::path elsewhere = dir_ / "elsewhere";
    fs::create_directories(elsewhere);
    ict_test::RunOptions options;
    options.workingDirectory = elsewhere;
    const auto run = wine_e2e::RunUnderWine(app / "integrity_checker.exe", options);
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 0 / 1\n"));
}

TEST_F(WindowsProgramUnderWine, SingleFileIsFoundByEquivalenceIgnoringLetterCase) {
    ict_test::WriteText(Product() / "bin" / "Mixed.dll", "mixed");
    ict_test::WriteText(Product() / "bin" / "other.dll", "other");
    const auto manifest = WriteManifest(
        Product() / "m.xml", FileRecord("%ProductRoot%\\bin\\Mixed.dll", "mixed") +
                                 FileRecord("%ProductRoot%\\bin\\other.dll", "not other"));
    const std::string asked = wine_e2e::ToWinePath(Product()) + "\\BIN\\mixed.dll";
    // other.dll would fail: only the file asked for is checked.
    const auto run = wine_e2e::RunChecker({"--single_file", asked, manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n")) << run.Describe();
}

// Every shared product run, verbose: the same tree gives the same lines and
// the same exit code on both systems.
TEST_F(WindowsProgramUnderWine, EveryProductRunPrintsWhatLinuxPrints) {
    for (const auto& product : e2e::ProductRuns()) {
        SCOPED_TRACE(product.name);
        ict_test::TempDir dir;
        auto arguments = product.make(dir.Path());
        arguments.insert(arguments.begin(), "--verbose");
        const auto onLinux = e2e::Checker(arguments);
        const auto windows = wine_e2e::RunChecker(arguments);
        EXPECT_EQ(onLinux.exitCode, product.exitCode) << onLinux.Describe();
        EXPECT_EQ(windows.exitCode, onLinux.exitCode) << windows.Describe();
        const std::string root = dir.Path().string();
        const std::string wineRoot = wine_e2e::ToWinePath(dir.Path());
        EXPECT_EQ(e2e::PortableLines(windows.out, wineRoot), e2e::PortableLines(onLinux.out, root));
        EXPECT_EQ(e2e::PortableLines(windows.err, wineRoot), e2e::PortableLines(onLinux.err, root));
    }
}

}  // namespace
