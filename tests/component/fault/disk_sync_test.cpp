#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "disk_sync.h"
#include "ruk/file_replacement.h"
#include "storage/container_writer.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace fault_test {
namespace {

#if defined(__linux__)
// A crash right after a file took its name must not leave it empty: every
// writer that replaces a file puts the new content on disk first.
TEST(DiskSyncTest, ReplacedFilesAreOnDiskWhenTheyTakeTheirName) {
    const std::vector<std::uint8_t> content(100000, 0x5A);
    const struct {
        const char* name;
        std::function<ruk::result_t(const boost::filesystem::path& folder)> write;
    } writers[] = {
        {"file replacement",
         [&](const boost::filesystem::path& folder) {
             ruk::FileReplacement replacement;
             std::size_t written = 0;
             ruk::result_t code = replacement.Create(folder / "vdscrl.rdb");
             if (ruk::Succeeded(code)) {
                 code = replacement.Stream().Write(content.data(), content.size(), &written);
             }
             if (ruk::Succeeded(code)) {
                 code = replacement.Close();
             }
             return ruk::Succeeded(code) ? replacement.Commit() : code;
         }},
        {"raw container",
         [&](const boost::filesystem::path& folder) {
             return storage::WriteContainer(folder, "vdscrl.rdb", content,
                                            storage::ContainerEncoding::Raw);
         }},
        {"compressed container",
         [&](const boost::filesystem::path& folder) {
             return storage::WriteContainer(folder, "vdscrl.rdb", content,
                                            storage::ContainerEncoding::Compressed);
         }},
    };
    for (const auto& writer : writers) {
        SCOPED_TRACE(writer.name);
        ict_test::TempDir dir;
        for (int round = 0; round < 2; ++round) {  // new, then replacing
            ForgetDiskSyncs();
            ASSERT_EQ(writer.write(dir.Path()), ruk::result::Success);
            EXPECT_TRUE(WasSyncedToDisk(dir / "vdscrl.rdb")) << "round " << round;
        }
    }
}

// The check itself: a file written and never synced is not taken for one.
TEST(DiskSyncTest, AFileNeverSyncedIsToldApart) {
    ict_test::TempDir dir;
    ForgetDiskSyncs();
    ict_test::WriteText(dir / "plain", "not synced");
    EXPECT_FALSE(WasSyncedToDisk(dir / "plain"));
    EXPECT_FALSE(WasSyncedToDisk(dir / "missing"));
}
#endif

}  // namespace
}  // namespace fault_test
