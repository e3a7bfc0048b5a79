#include <string>
#include <vector>

#include <gtest/gtest.h>

#if defined(__linux__)
#include <dirent.h>
#endif

#include "allocation_failure.h"
#include "ruk/io.h"
#include "storage/container_format.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace fault_test {
namespace {

using Bytes = std::vector<std::uint8_t>;

#if defined(__linux__)
std::size_t OpenDescriptors() {
    std::size_t count = 0;
    DIR* directory = opendir("/proc/self/fd");
    if (directory == nullptr) {
        return 0;
    }
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

// Opening a file must not leave its descriptor open when the stream object
// cannot be allocated.
TEST(ResourceFaultTest, AFileStreamThatCannotBeMadeClosesItsFile) {
    ict_test::TempDir dir;
    const auto path = dir / "data.bin";
    ict_test::WriteBytes(path, Bytes(100, 1));
    const std::size_t before = OpenDescriptors();
    ASSERT_GT(before, 0u);
    const std::size_t failures = FailEachAllocation([&] {
        ruk::intrusive_ptr<ruk::IIO> io;
        const ruk::result_t code = ruk::OpenFileIO(path, ruk::OpenMode::Read, &io);
        if (ruk::Failed(code)) {
            EXPECT_EQ(code, ruk::result::OutOfMemory);
            EXPECT_FALSE(io);
        }
    });
    EXPECT_GE(failures, 1u);
    EXPECT_EQ(OpenDescriptors(), before);
}
#endif

// Compressing a container with allocations failing: a failure, never a
// crash or a stream left unended (the sanitizer lane's leak check sees one).
TEST(ResourceFaultTest, CompressionEndsItsStreamOnEveryFailure) {
    Bytes content(300000);
    for (std::size_t index = 0; index < content.size(); ++index) {
        content[index] = static_cast<std::uint8_t>((index * 7) ^ (index >> 9));
    }
    Bytes encoded;
    ruk::result_t last = ruk::result::Fail;
    const std::size_t failures = FailEachAllocation([&] {
        encoded.clear();
        last = storage::format::EncodeContainer(content, storage::ContainerEncoding::Compressed,
                                                &encoded);
    });
    EXPECT_GE(failures, 1u);
    EXPECT_EQ(last, ruk::result::Success);  // the undisturbed run
    EXPECT_LT(encoded.size(), content.size());
}

}  // namespace
}  // namespace fault_test
