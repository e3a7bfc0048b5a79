#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <boost/filesystem/directory.hpp>

#if defined(__linux__)
#include <dlfcn.h>
#include <sys/stat.h>
#endif

#include "crypto/vds/service/service.h"
#include "ruk/file_replacement.h"
#include "ruk/io.h"
#include "storage/container_format.h"
#include "storage/container_writer.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/vds/vds_material.h"

// This program replaces operator new, so that a test can make one chosen
// allocation throw std::bad_alloc, and on Linux the disk-sync calls, so that
// a test can tell whether a file was made durable.
namespace fault_test {
namespace {

std::atomic<long long> countdown{-1};  // allocations until the failing one
std::atomic<bool> allocationFailed{false};

void* Allocate(std::size_t size) {
    if (countdown.load() >= 0 && countdown.fetch_sub(1) == 0) {
        allocationFailed = true;
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* AllocateOrNull(std::size_t size) noexcept {
    try {
        return Allocate(size);
    } catch (...) {
        return nullptr;
    }
}

// Calls `operation` with the first, second, ... allocation failing until it
// runs through without reaching the armed one; returns how many runs failed.
template <typename Operation>
std::size_t FailEachAllocation(Operation operation) {
    for (std::size_t index = 0;; ++index) {
        allocationFailed = false;
        countdown = static_cast<long long>(index);
        try {
            operation();
        } catch (...) {
        }
        countdown = -1;
        if (!allocationFailed) {
            return index;
        }
    }
}

#if defined(__linux__)
struct FileId {
    dev_t device;
    ino_t index;
};

// A fixed table: noting a sync must not allocate, or it would disturb the
// allocation counting of the other tests in this program.
constexpr std::size_t kMostSyncs = 256;
FileId synced[kMostSyncs];
std::atomic<std::size_t> syncCount{0};

void NoteSync(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        return;
    }
    const std::size_t slot = syncCount.fetch_add(1);
    if (slot < kMostSyncs) {
        synced[slot] = {info.st_dev, info.st_ino};
    }
}

// Whether the file the path names now was put on disk since syncCount was
// last reset, under whatever name it had then.
bool WasSyncedToDisk(const boost::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return false;
    }
    const std::size_t count = std::min(syncCount.load(), kMostSyncs);
    for (std::size_t index = 0; index < count; ++index) {
        if (synced[index].device == info.st_dev && synced[index].index == info.st_ino) {
            return true;
        }
    }
    return false;
}

int NextSync(const char* name, int fd) {
    NoteSync(fd);
    return reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, name))(fd);
}
#endif

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
    ict_test::TempDir plain;
    syncCount = 0;
    // The check itself: a file written and never synced is not taken for one.
    ict_test::WriteText(plain / "plain", "not synced");
    EXPECT_FALSE(WasSyncedToDisk(plain / "plain"));
    for (const auto& writer : writers) {
        SCOPED_TRACE(writer.name);
        ict_test::TempDir dir;
        for (int round = 0; round < 2; ++round) {  // new, then replacing
            syncCount = 0;
            ASSERT_EQ(writer.write(dir.Path()), ruk::result::Success);
            EXPECT_TRUE(WasSyncedToDisk(dir / "vdscrl.rdb")) << "round " << round;
        }
    }
}

std::size_t OpenDescriptors() {
    const boost::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(descriptors, {}));
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
            EXPECT_TRUE(allocationFailed);
            return;
        }
        ASSERT_TRUE(verifier);
        service::IVdsVerificationResultPtr result;
        const ruk::result_t code = verifier->VerifyObject(io.get(), Range(purpose), &result);
        if (code == ruk::result::Success) {
            ASSERT_TRUE(result);
            ++verified;
        } else {
            EXPECT_TRUE(allocationFailed) << code;
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

void* operator new(std::size_t size) {
    return fault_test::Allocate(size);
}
void* operator new[](std::size_t size) {
    return fault_test::Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return fault_test::AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return fault_test::AllocateOrNull(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

#if defined(__linux__)
extern "C" int fsync(int fd) {
    return fault_test::NextSync("fsync", fd);
}
extern "C" int fdatasync(int fd) {
    return fault_test::NextSync("fdatasync", fd);
}
#endif
