#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/exception.h"
#include "data_object/file.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "utils/file_utils.h"

namespace integrity_check_tool::data_object {
namespace {

template <typename Action>
std::string ErrorText(Action&& action) {
    return ict_test::ThrownText<Exception>(action);
}

std::string ReadAll(ruk::IIO& io) {
    std::string text;
    char block[7];
    std::size_t count = 0;
    while (ruk::Succeeded(io.Read(block, sizeof(block), &count)) && count != 0) {
        text.append(block, count);
    }
    return text;
}

TEST(FileTest, OnlyRegularFilesExistAndOnlyTheyAreRead) {
    ict_test::TempDir dir;
    ict_test::WriteText(dir / "a.dll", "payload of a");
    boost::filesystem::create_directory(dir / "bin");
    const auto special = ict_test::MakeSpecialFile(dir / "pipe");

    EXPECT_TRUE(File(dir / "a.dll").IsExists());
    EXPECT_FALSE(File(dir / "bin").IsExists());
    EXPECT_FALSE(File(special).IsExists());
    EXPECT_FALSE(File(dir / "missing").IsExists());
    EXPECT_FALSE(File(dir / "a.dll" / "below-a-file").IsExists());
    EXPECT_FALSE(File(dir / "a<b?.dll").IsExists());  // a name Windows cannot hold
    EXPECT_EQ(File(dir / "a.dll").GetTypeName(), "File");
    EXPECT_EQ(ReadAll(*File(dir / "a.dll").GetData()), "payload of a");

    if (!ict_test::SymbolicLinksWork(dir.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    boost::filesystem::create_symlink(dir / "a.dll", dir / "link");
    boost::filesystem::create_symlink(dir / "gone", dir / "dangling");
    EXPECT_TRUE(File(dir / "link").IsExists());  // the link's target is a regular file
    EXPECT_FALSE(File(dir / "dangling").IsExists());
    EXPECT_EQ(ReadAll(*File(dir / "link").GetData()), "payload of a");
}

TEST(FileTest, NonFilesFailWithNestedNotFoundMessage) {
    ict_test::TempDir dir;
    boost::filesystem::create_directory(dir / "bin");
    // A FIFO has no writer: opening it would hang this test.
    const auto special = ict_test::MakeSpecialFile(dir / "pipe");
    for (const auto& path : {dir / "bin", special, dir / "missing"}) {
        EXPECT_EQ(ErrorText([&] { File(path).GetData(); }), "Can't read or access file " +
                                                                path.string() + ". Reason: File " +
                                                                path.string() + " not found");
    }
}

TEST(ReadWholeFileTest, ReadsRegularFilesAndNamesPathAndReasonOtherwise) {
    ict_test::TempDir dir;
    std::vector<std::uint8_t> bytes(1024 * 1024 + 17);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<std::uint8_t>(index % 251);
    }
    ict_test::WriteBytes(dir / "crl.bin", bytes);
    ict_test::WriteText(dir / "empty", "");
    EXPECT_EQ(ReadWholeFile(dir / "crl.bin"), bytes);
    EXPECT_TRUE(ReadWholeFile(dir / "empty").empty());

    boost::filesystem::create_directory(dir / "dir");
    const auto special = ict_test::MakeSpecialFile(dir / "pipe");
    EXPECT_EQ(ErrorText([&] { ReadWholeFile(dir / "missing"); }),
              "Can't read file " + (dir / "missing").string() + ". Reason: not found");
    EXPECT_EQ(ErrorText([&] { ReadWholeFile(dir / "dir"); }),
              "Can't read file " + (dir / "dir").string() + ". Reason: not a regular file");
    EXPECT_EQ(ErrorText([&] { ReadWholeFile(special); }),
              "Can't read file " + special.string() + ". Reason: not a regular file");
}

}  // namespace
}  // namespace integrity_check_tool::data_object
