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
#include "support/vds/vds_material.h"
#include "tool/engine_helpers/trace_capture.h"
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

TEST_F(CrlStorageTest, LargestContainerIsReadAndLoggedStepByStep) {
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
    const std::string directory = dir_.Path().string();
    const std::vector<std::string> expected = {
        "Using certificate '3520p1' ...",
        "Reading CRL from storage " + directory + " ...",
        "Opening vdscrl.rdb container ...",
        "Container vdscrl.rdb opened successfully",
        "CRL has been read successfully from storage " + directory,
    };
    EXPECT_EQ(trace_.Messages(), expected);
}

TEST_F(CrlStorageTest, OneByteMoreIsTooLarge) {
    storage_->container->size = 4294967296ull;
    const auto [message, code] = Failure();
    EXPECT_EQ(message, "CRL is too large");
    EXPECT_EQ(code, nullptr);
    EXPECT_EQ(storage_->container->reads, 0);
}

TEST_F(CrlStorageTest, StorageFailuresCarryTheirCodes) {
    storage_->openResult = ruk::result::NotFound;
    auto [message, code] = Failure();
    EXPECT_EQ(message, "Failed to open container vdscrl.rdb in storage");
    ASSERT_NE(code, nullptr);
    EXPECT_EQ(*code, ruk::result::NotFound);

    storage_->openResult = ruk::result::Success;
    storage_->container->size = 10;
    storage_->container->sizeResult = ruk::result::IoError;
    std::tie(message, code) = Failure();
    EXPECT_EQ(message, "Can't get size of container vdscrl.rdb");
    ASSERT_NE(code, nullptr);
    EXPECT_EQ(*code, ruk::result::IoError);

    storage_->container->sizeResult = ruk::result::Success;
    storage_->container->readResult = ruk::result::InvalidFormat;
    std::tie(message, code) = Failure();
    EXPECT_EQ(message, "Can't read CRL from storage");
    ASSERT_NE(code, nullptr);
    EXPECT_EQ(*code, ruk::result::InvalidFormat);
}

TEST_F(CrlStorageTest, AnEmptyContainerFailsNamingTheDirectory) {
    storage_->container->size = 0;
    const auto [message, code] = Failure();
    EXPECT_EQ(message, "Revocation list " + dir_.Path().string() + " is empty");
    EXPECT_EQ(code, nullptr);
}

TEST_F(CrlStorageTest, ShortReadFailsEvenWhenTheReadSucceeded) {
    storage_->container->size = 100;
    storage_->container->missing = 1;
    const auto [message, code] = Failure();
    EXPECT_EQ(message, "Can't read CRL from storage");
    EXPECT_EQ(code, nullptr);
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
    try {
        VdsSignatureVerifier damaged(trace_.Tracer(), {TrustedRoot::Root3520p1}, dir_.Path(),
                                     false);
        FAIL() << "a truncated container was accepted";
    } catch (const Exception& error) {
        EXPECT_EQ(error.GetMessage(), "Can't read CRL from storage");
    }
    // No container in the directory at all.
    boost::filesystem::remove(dir_ / "vdscrl.rdb");
    try {
        VdsSignatureVerifier missing(trace_.Tracer(), {TrustedRoot::Root3520p1}, dir_.Path(),
                                     false);
        FAIL() << "a missing container was accepted";
    } catch (const Exception& error) {
        EXPECT_EQ(error.GetMessage(), "Failed to open container vdscrl.rdb in storage");
    }
}

}  // namespace
}  // namespace integrity_check_tool::vds
