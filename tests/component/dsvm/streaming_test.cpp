#include <algorithm>

#include <gtest/gtest.h>

#include "dsvm/io_object_reader.h"
#include "dsvm_fixture.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace {

using dsvm_test::Bytes;
using dsvm_test::DsvmTest;

// Wraps an object in memory and records how it is read; can fail on demand.
struct ObservedObject {
    Bytes data;
    std::size_t largestRead = 0;
    std::size_t reads = 0;
    std::size_t failAtRead = SIZE_MAX;  // 0-based index of the read that fails
    bool shortRead = false;
    bool outsideRead = false;

    DsvmObjectReader Reader() {
        DsvmObjectReader reader;
        reader.read = &ObservedObject::Read;
        reader.context = this;
        reader.size = data.size();
        return reader;
    }

    static int Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                    std::size_t* bytesRead) {
        auto* self = static_cast<ObservedObject*>(context);
        if (offset > self->data.size() || size > self->data.size() - offset) {
            self->outsideRead = true;
            return 1;
        }
        self->largestRead = std::max(self->largestRead, size);
        if (self->reads++ == self->failAtRead) {
            if (self->shortRead) {
                *bytesRead = size / 2;
                return 0;
            }
            return 1;
        }
        std::copy_n(self->data.begin() + static_cast<std::ptrdiff_t>(offset), size,
                    static_cast<std::uint8_t*>(buffer));
        *bytesRead = size;
        return 0;
    }
};

TEST_F(DsvmTest, LargeObjectsAreReadInBoundedBlocksOnly) {
    ObservedObject object;
    object.data = dsvm_test::Sign(ict_test::PatternBytes(3 * 1024 * 1024 + 17), "release-2");
    EXPECT_EQ(dsvm_test::Verify(object.Reader(), {"release-2"}), DSVM_OK);
    EXPECT_LE(object.largestRead, 1024u * 1024u);
    EXPECT_GT(object.reads, 3u);
    EXPECT_FALSE(object.outsideRead);
}

TEST_F(DsvmTest, ReadFailuresAreReportedByPhase) {
    ObservedObject object;
    object.data = dsvm_test::Sign(ict_test::PatternBytes(5000), "release-1");
    DsvmObjectReader reader = object.Reader();

    // The first read is the trailer.
    object.failAtRead = 0;
    object.reads = 0;
    EXPECT_EQ(dsvm_test::Verify(reader, {"release-1"}), DSVM_E_READ_CALLBACK);

    // Reads 0 and 1 locate the block; read 2 is the content.
    for (const bool shortRead : {false, true}) {
        object.failAtRead = 2;
        object.reads = 0;
        object.shortRead = shortRead;
        EXPECT_EQ(dsvm_test::Verify(reader, {"release-1"}), DSVM_E_HASH_INPUT) << shortRead;
    }

    DsvmHash* hash = nullptr;
    ASSERT_EQ(DsvmHashCreate(&hash), DSVM_OK);
    object.failAtRead = 0;
    object.reads = 0;
    object.shortRead = false;
    EXPECT_EQ(DsvmHashObject(hash, &reader, DSVM_HASH_WHOLE_OBJECT), DSVM_E_HASH_INPUT);
    EXPECT_EQ(DsvmHashObject(hash, nullptr, DSVM_HASH_WHOLE_OBJECT), DSVM_E_IO_NOT_INITIALIZED);
    DsvmObjectReader noCallback = reader;
    noCallback.read = nullptr;
    EXPECT_EQ(DsvmHashObject(hash, &noCallback, DSVM_HASH_WHOLE_OBJECT), DSVM_E_IO_NOT_INITIALIZED);
    DsvmHashDestroy(hash);
    EXPECT_FALSE(object.outsideRead);
}

TEST_F(DsvmTest, FileStreamsServeAsObjectsAndCanBeLimited) {
    ict_test::TempDir dir;
    const Bytes content = ict_test::PatternBytes(2 * 1024 * 1024 + 3);
    const Bytes signedObject = dsvm_test::Sign(content, "test-2");
    ict_test::WriteBytes(dir / "big.bin", signedObject);

    ruk::intrusive_ptr<ruk::IIO> io;
    ASSERT_TRUE(ruk::Succeeded(ruk::OpenFileIO(dir / "big.bin", ruk::OpenMode::Read, &io)));
    std::unique_ptr<dsvm::IoObjectReader> reader;
    ASSERT_TRUE(ruk::Succeeded(dsvm::IoObjectReader::Create(io, &reader)));
    EXPECT_EQ(reader->GetSize(), signedObject.size());
    EXPECT_EQ(dsvm_test::Verify(*reader->Get(), {"test-2"}), DSVM_OK);

    // Limited to the covered content, the same stream is an unsigned object.
    reader->Limit(content.size());
    EXPECT_EQ(dsvm_test::Verify(*reader->Get(), {"test-2"}), DSVM_E_SIGNATURE_NOT_FOUND);
    DsvmHash* hash = nullptr;
    ASSERT_EQ(DsvmHashCreate(&hash), DSVM_OK);
    ASSERT_EQ(DsvmHashObject(hash, reader->Get(), DSVM_HASH_WHOLE_OBJECT), DSVM_OK);
    Bytes digest(DSVM_HASH_SIZE);
    ASSERT_EQ(DsvmHashFinish(hash, digest.data(), digest.size()), DSVM_OK);
    DsvmHashDestroy(hash);
    EXPECT_EQ(digest, dsvm_test::Digest(content));
    EXPECT_TRUE(ruk::Succeeded(reader->GetLastError()));
}

}  // namespace
