#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <boost/filesystem/operations.hpp>

#include "wine_support.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

std::string Utf16(const std::string& ascii) {
    std::string bytes;
    for (char c : ascii) {
        bytes.push_back(c);
        bytes.push_back('\0');
    }
    return bytes;
}

namespace e2e = ict_test::e2e;

// A record whose Sha256 check expects `content`.
std::string FileRecord(const std::string& path, const std::string& content,
                       const std::string& filter = "") {
    return e2e::FileRecord(path, e2e::Sha256Check(content), filter);
}

class WindowsProgramUnderWine : public testing::Test {
protected:
    void SetUp() override { ICT_REQUIRE_WINDOWS_BUILD(); }

    fs::path WriteManifest(const fs::path& path, const std::string& records,
                           const std::string& environment = "") {
        ict_test::WriteText(path, e2e::ManifestText(environment + records));
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
    const std::string image = ict_test::ReadText(ict_test::WindowsCheckerPath());
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

TEST_F(WindowsProgramUnderWine, SystemFactsAreWinesAndFiltersDecideOnThem) {
    SetWineVersionOfTheChecker("win10");
    struct Record {
        std::string filter;
        bool checked;
    };
    const std::vector<Record> records = {
        {"os=\"Windows\"", true},
        {"os=\"Linux\"", false},
        {"arch=\"X86_64\"", true},
        {"arch=\"X86\"", false},
        {"bitness=\"64\"", true},
        {"bitness=\"32\"", false},
        {"edition=\"Desktop\"", true},
        {"edition=\"Server\"", false},
        {"minVersionNt=\"1000\" maxVersionNt=\"1000\"", true},
        {"minVersionNt=\"1001\"", false},
        {"maxVersionNt=\"603\"", false},
        // Kernel versions are a Linux condition; Windows ignores them.
        {"linuxKernelVersion=\"99999\"", true},
    };
    std::string manifest;
    int checked = 0;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::string name = "f" + std::to_string(i) + ".dll";
        ict_test::WriteText(Product() / name, "content " + name);
        manifest += FileRecord("%ProductRoot%\\" + name, "content " + name, records[i].filter);
        checked += records[i].checked ? 1 : 0;
    }
    const fs::path trace = dir_ / "trace.log";
    const auto run = wine_e2e::RunChecker(
        {"--trace", trace.string(), WriteManifest(Product() / "m.xml", manifest).string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / " + std::to_string(records.size() - checked) +
                                   " / " + std::to_string(checked) + "\n"));
    const std::string log = ict_test::ReadText(trace);
    EXPECT_THAT(log, HasSubstr("\"arch\":\"X86_64\",\"os\":\"Windows\",\"edition\":\"Desktop\","
                               "\"bitness\":\"64\",\"version\":\"1000\""));

    // The version is the system's, read at every start, not a constant.
    SetWineVersionOfTheChecker("win81");
    ict_test::WriteText(Product() / "old.dll", "old");
    const auto older = wine_e2e::RunChecker(
        {WriteManifest(Product() / "old.xml",
                       FileRecord("%ProductRoot%\\old.dll", "old", "maxVersionNt=\"603\"") +
                           FileRecord("%ProductRoot%\\old.dll", "old", "minVersionNt=\"1000\""))
             .string()});
    SetWineVersionOfTheChecker("win10");
    EXPECT_EQ(older.exitCode, 0) << older.Describe();
    EXPECT_THAT(older.out, HasSubstr("\tFiles: 0 / 1 / 1\n")) << older.Describe();
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
    while (ict_test::ToWinePath(deep).size() < 280) {
        deep /= "a-rather-long-directory-name";
    }
    ict_test::WriteText(deep / "deep.dll", "deep content");
    ASSERT_GT(ict_test::ToWinePath(deep / "deep.dll").size(), 260u);

    const std::string records =
        // The process environment wins over the manifest's own SystemRoot.
        e2e::FileRecord("%SystemRoot%\\system32\\kernel32.dll") +
        FileRecord("%ProgramFiles%\\IctTest\\tool.dll", "program files content") +
        FileRecord(ict_test::ToWinePath(Product() / "bin" / "a.dll"), "content of a") +
        FileRecord("%ProductRoot%\\" + cyrillic + "\\" + cyrillicFile, "cyrillic content") +
        FileRecord(ict_test::ToWinePath(deep / "deep.dll"), "deep content");
    const auto manifest =
        WriteManifest(Product() / "integrity_check.xml", records,
                      "  <Environment key=\"SystemRoot\" value=\"Z:\\nowhere\"/>\n");
    const auto run = wine_e2e::RunChecker({manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 5\n")) << run.Describe();
    fs::remove_all(programFiles);
}

TEST_F(WindowsProgramUnderWine, DefaultManifestIsFoundBesideTheProgram) {
    const fs::path app = dir_ / "app";
    fs::create_directories(app);
    fs::copy_file(ict_test::WindowsCheckerPath(), app / "integrity_checker.exe");
    ict_test::WriteText(app / "bin" / "a.dll", "content of a");
    WriteManifest(app / "integrity_check.xml",
                  FileRecord("%ProductRoot%\\bin\\a.dll", "content of a"));

    // Started from elsewhere: only the program's own location leads there.
    const fs::path elsewhere = dir_ / "elsewhere";
    fs::create_directories(elsewhere);
    ict_test::RunOptions options;
    options.workingDirectory = elsewhere;
    auto run = ict_test::RunProgram(app / "integrity_checker.exe", options);
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tManifests: 0 / 0 / 1\n\tFiles: 0 / 0 / 1\n"));

    ict_test::WriteText(app / "bin" / "a.dll", "tampered");
    run = ict_test::RunProgram(app / "integrity_checker.exe", options);
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 1 / 0 / 0\n"));
}

TEST_F(WindowsProgramUnderWine, SingleFileIsFoundByEquivalenceIgnoringLetterCase) {
    ict_test::WriteText(Product() / "bin" / "Mixed.dll", "mixed");
    ict_test::WriteText(Product() / "bin" / "other.dll", "other");
    ict_test::WriteText(Product() / "bin" / "unlisted.dll", "unlisted");
    const auto manifest = WriteManifest(
        Product() / "m.xml", FileRecord("%ProductRoot%\\bin\\Mixed.dll", "mixed") +
                                 FileRecord("%ProductRoot%\\bin\\other.dll", "not other"));
    const std::string asked = ict_test::ToWinePath(Product()) + "\\BIN\\" +
                              boost::algorithm::to_lower_copy(std::string("Mixed.dll"));
    auto run = wine_e2e::RunChecker({"--single_file", asked, manifest.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(run.out, HasSubstr("\tFiles: 0 / 0 / 1\n")) << run.Describe();

    run = wine_e2e::RunChecker({"--single_file",
                                ict_test::ToWinePath(Product()) + "\\bin\\unlisted.dll",
                                manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("unlisted.dll not found in manifest")) << run.Describe();
}

// One manifest over one tree: the Linux and the Windows program report the
// same objects with the same outcomes and the same summary.
TEST_F(WindowsProgramUnderWine, LinuxAndWindowsReportTheSameObjectLines) {
    ict_test::WriteText(Product() / "bin" / "good.dll", "good");
    ict_test::WriteText(Product() / "bin" / "changed.dll", "changed");
    fs::create_directories(Product() / "bin" / "folder.dll");
    const std::string records =
        FileRecord("%ProductRoot%\\bin\\good.dll", "good") +
        FileRecord("%ProductRoot%\\bin\\changed.dll", "original") +
        FileRecord("%ProductRoot%\\bin\\missing.dll", "missing") +
        e2e::FileRecord("%ProductRoot%\\bin\\folder.dll") +
        e2e::FileRecord("%ProductRoot%\\bin\\absent.dll", e2e::Check("NotExists")) +
        e2e::FileRecord("%ProductRoot%\\bin\\other.dll", e2e::Check("Exists"), "os=\"MacOS\"");
    const auto manifest = WriteManifest(Product() / "integrity_check.xml", records);

    const auto onLinux = e2e::Checker({"--verbose", manifest.string()});
    const auto windows = wine_e2e::RunChecker({"--verbose", manifest.string()});
    EXPECT_EQ(onLinux.exitCode, 1) << onLinux.Describe();
    EXPECT_EQ(windows.exitCode, onLinux.exitCode) << windows.Describe();
    const auto normalise = [](const std::string& text, const std::string& root) {
        std::vector<std::string> lines = wine_e2e::ObjectLines(text, root);
        for (auto& line : lines) {
            boost::algorithm::replace_all(line, "\\", "/");
        }
        return lines;
    };
    EXPECT_EQ(normalise(windows.out, ict_test::ToWinePath(Product())),
              normalise(onLinux.out, Product().string()));
    EXPECT_EQ(normalise(windows.err, ict_test::ToWinePath(Product())),
              normalise(onLinux.err, Product().string()));
    EXPECT_THAT(onLinux.out, HasSubstr("\tFiles: 3 / 1 / 2\n")) << onLinux.Describe();
}

}  // namespace
