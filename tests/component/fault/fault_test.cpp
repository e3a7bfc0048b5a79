#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#if defined(__linux__)
#include <dirent.h>
#endif

#include "allocation_failure.h"
#include "crypto/vds/service/service.h"
#include "disk_sync.h"
#include "ruk/file_replacement.h"
#include "ruk/io.h"
#include "storage/container_format.h"
#include "storage/container_writer.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"

namespace fault_test {
namespace {

namespace service = crypto::vds::service;
using Bytes = std::vector<std::uint8_t>;

#if defined(__linux__)
// A crash right after a file took its name must not leave it empty: every
// writer that replaces a file puts the new content on disk first.
TEST(DiskSyncTest, ReplacedFilesAreOnDiskWhenTheyTakeTheirName) {
    const Bytes content(100000, 0x5A);
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

service::ByteRange Range(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

// A failed allocation anywhere in building a verifier over a revocation
// container, verifying and cloning must end in a failure code, never in a
// half-made object; the core handles made before it must be released (the
// sanitizer lane's leak check sees those that are not).
TEST(ServiceFaultTest, EveryFailedAllocationEndsInAFailureCode) {
    std::vector<Bytes> roots;
    for (const char* name : {"3520p1", "3020d1", "4820d1", "4823d1"}) {
        roots.push_back(ict_test::vds::RootCertificate(name));
    }
    const Bytes container =
        ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"});
    const Bytes purpose = ict_test::vds::Purpose();
    ict_test::TempDir dir;
    ict_test::WriteBytes(dir / "signed.bin", Bytes(500, 0x33));
    ict_test::vds::Sign(dir / "signed.bin", "signer");
    const ruk::intrusive_ptr<ruk::IIO> io =
        ruk::CreateMemoryIO(ict_test::vds::ReadBytes(dir / "signed.bin"));
    const std::vector<service::ByteRange> rootRanges = {Range(roots[0]), Range(roots[1]),
                                                        Range(roots[2]), Range(roots[3])};

    int verified = 0;
    const std::size_t failures = FailEachAllocation([&] {
        service::IVdsSignatureVerifierPtr verifier;
        const ruk::result_t created =
            service::VdsCreateVerifierWithOptionalCrls(rootRanges, {}, Range(container), &verifier);
        if (ruk::Failed(created)) {
            EXPECT_TRUE(AllocationFailed());
            return;
        }
        ASSERT_TRUE(verifier);
        service::IVdsVerificationResultPtr result;
        const ruk::result_t code = verifier->VerifyObject(io.get(), Range(purpose), &result);
        if (code == ruk::result::Success) {
            ASSERT_TRUE(result);
            ++verified;
        } else {
            EXPECT_TRUE(AllocationFailed()) << code;
        }
        service::IVdsSignatureVerifierPtr copy;
        if (ruk::Succeeded(verifier->Clone(&copy))) {
            EXPECT_TRUE(copy);
        }
    });
    // The walk reached far into the work, and the last run, undisturbed, verified.
    EXPECT_GT(failures, 20u);
    EXPECT_GE(verified, 1);
}

}  // namespace
}  // namespace fault_test
