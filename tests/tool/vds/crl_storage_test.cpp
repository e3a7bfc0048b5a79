#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>

#include "common/exception.h"
#include "ruk/exception.h"
#include "storage/container_format.h"
#include "storage/container_writer.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "support/vds/vds_material.h"
#include "vds/verifier.h"

namespace integrity_check_tool::vds {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A container whose size and reads the test decides. Reads report their
// count without touching the buffer, so a huge size costs nothing.
class FakeContainer : public storage::IContainer {
public:
    std::uint64_t size = 0;
    ruk::result_t sizeResult = ruk::result::Success;
    ruk::result_t readResult = ruk::result::Success;
    std::size_t missing = 0;  // bytes a read leaves out
    int reads = 0;

    storage::ContainerEncoding GetEncoding() const override {
        return storage::ContainerEncoding::Raw;
    }
    ruk::result_t GetSize(std::uint64_t* result) override {
        *result = size;
        return sizeResult;
    }
    ruk::result_t Read(void*, std::size_t count, std::size_t* read) override {
        ++reads;
        *read = count - missing;
        return readResult;
    }
};

class FakeStorage : public storage::IStorage {
public:
    ruk::intrusive_ptr<FakeContainer> container = ruk::MakeIntrusive<FakeContainer>();
    ruk::result_t openResult = ruk::result::Success;
    std::string openedName;

    ruk::result_t OpenContainer(const std::string& name, storage::IContainerPtr* opened) override {
        openedName = name;
        if (ruk::Succeeded(openResult)) {
            *opened = container;
        }
        return openResult;
    }
};

class CrlStorageTest : public testing::Test {
protected:
    VdsSignatureVerifier::StorageOpener Opener() {
        return [this](const boost::filesystem::path& directory, storage::IStoragePtr* opened) {
            openedDirectory_ = directory;
            *opened = storage_;
            return ruk::result::Success;
        };
    }

    std::unique_ptr<VdsSignatureVerifier> Make(const boost::filesystem::path& crl) {
        VdsSignatureVerifier::Environment environment;
        environment.openStorage = Opener();
        return std::make_unique<VdsSignatureVerifier>(
            trace_.Tracer(), std::vector<TrustedRoot>{TrustedRoot::Root3520p1}, crl, false,
            environment);
    }

    // The message and the attached result code (null when none) of a failed construction.
    std::pair<std::string, const ruk::result_t*> Failure() {
        try {
            Make(dir_.Path());
        } catch (const Exception& error) {
            const auto* code = boost::get_error_info<ruk::ResultCodeInfo>(error);
            lastCode_ = code != nullptr ? *code : 0;
            return {error.GetMessage(), code != nullptr ? &lastCode_ : nullptr};
        }
        return {"no failure", nullptr};
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    ruk::intrusive_ptr<FakeStorage> storage_ = ruk::MakeIntrusive<FakeStorage>();
    boost::filesystem::path openedDirectory_;
    ruk::result_t lastCode_ = 0;
};

// Each step names itself; the container's result code comes along where
// the storage gave one. A short read fails even when the read succeeded.
TEST_F(CrlStorageTest, EachStepFailsWithItsOwnMessage) {
    const std::string empty = "Revocation list " + dir_.Path().string() + " is empty";
    struct Case {
        const char* what;
        ruk::result_t open, size, read;
        std::uint64_t length;
        std::size_t missing;
        std::string message;
        ruk::result_t code;  // 0: none attached
        int reads;           // -1: any
    };
    const Case cases[] = {
        {"open", ruk::result::NotFound, 0, 0, 10, 0,
         "Failed to open container vdscrl.rdb in storage", ruk::result::NotFound, 0},
        {"size", 0, ruk::result::IoError, 0, 10, 0, "Can't get size of container vdscrl.rdb",
         ruk::result::IoError, 0},
        {"read", 0, 0, ruk::result::InvalidFormat, 10, 0, "Can't read CRL from storage",
         ruk::result::InvalidFormat, 1},
        {"short read", 0, 0, 0, 100, 1, "Can't read CRL from storage", 0, 1},
        {"empty", 0, 0, 0, 0, 0, empty, 0, -1},
        {"one byte over 4 GiB - 1", 0, 0, 0, 4294967296ull, 0, "CRL is too large", 0, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        storage_ = ruk::MakeIntrusive<FakeStorage>();
        storage_->openResult = test.open;
        storage_->container->sizeResult = test.size;
        storage_->container->readResult = test.read;
        storage_->container->size = test.length;
        storage_->container->missing = test.missing;
        const auto [message, code] = Failure();
        EXPECT_EQ(message, test.message);
        EXPECT_EQ(code != nullptr ? *code : 0, test.code);
        if (test.reads >= 0) {
            EXPECT_EQ(storage_->container->reads, test.reads);
        }
    }
}

TEST_F(CrlStorageTest, LargestContainerIsReadFromTheNamedContainer) {
    if (sizeof(std::size_t) < 8) {
        GTEST_SKIP() << "a 4 GiB buffer does not fit a 32-bit address space";
    }
    storage_->container->size = std::numeric_limits<std::uint32_t>::max();
    // The size passes; the zeros read are then no revocation container.
    const auto [message, code] = Failure();
    EXPECT_EQ(message, "Revocation list " + dir_.Path().string() +
                           " can't be used: it is not a DER-encoded revocation container");
    ASSERT_NE(code, nullptr);
    EXPECT_EQ(*code, ruk::result::InvalidFormat);
    EXPECT_EQ(storage_->container->reads, 1);
    EXPECT_EQ(storage_->openedName, "vdscrl.rdb");
    EXPECT_EQ(openedDirectory_, dir_.Path());
}

TEST_F(CrlStorageTest, RealStorageAndFileGiveTheSameContainer) {
    const Bytes container = ict_test::vds::RevocationContainer({"3520p1", "4823d1"});
    for (const auto encoding :
         {storage::ContainerEncoding::Raw, storage::ContainerEncoding::Compressed}) {
        ASSERT_EQ(storage::WriteContainer(dir_.Path(), "vdscrl.rdb", container, encoding),
                  ruk::result::Success);
        const VdsSignatureVerifier verifier(trace_.Tracer(), {TrustedRoot::Root3520p1}, dir_.Path(),
                                            false);
        const auto& read = verifier.GetCrlContainer();
        EXPECT_EQ(Bytes(read.Data(), read.Data() + read.Size()), container);
    }
    const auto file = dir_ / "crl.p7b";
    ict_test::WriteBytes(file, container);
    const VdsSignatureVerifier fromFile(trace_.Tracer(), {TrustedRoot::Root3520p1}, file, false);
    const auto& read = fromFile.GetCrlContainer();
    EXPECT_EQ(Bytes(read.Data(), read.Data() + read.Size()), container);

    // A damaged compressed container is a read failure, not a crash.
    Bytes packed;
    ASSERT_EQ(storage::format::EncodeContainer(container, storage::ContainerEncoding::Compressed,
                                               &packed),
              ruk::result::Success);
    packed.resize(packed.size() - 8);
    ict_test::WriteBytes(dir_ / "vdscrl.rdb", packed);
    const auto construct = [&] {
        VdsSignatureVerifier(trace_.Tracer(), {TrustedRoot::Root3520p1}, dir_.Path(), false);
    };
    EXPECT_EQ(ict_test::ThrownText<Exception>(construct), "Can't read CRL from storage");
    boost::filesystem::remove(dir_ / "vdscrl.rdb");
    EXPECT_EQ(ict_test::ThrownText<Exception>(construct),
              "Failed to open container vdscrl.rdb in storage");
}

}  // namespace
}  // namespace integrity_check_tool::vds
