#include <gtest/gtest.h>

#include "dsvm_fixture.h"
#include "support/file_helpers.h"
#include "support/mutator.h"

namespace dsvm_test {
namespace {

class DsvmMutationTest : public DsvmTest {};

// Block and trailer are all checked: no changed byte may leave a signature valid.
TEST_F(DsvmMutationTest, NoMutantOfASignedObjectVerifies) {
    const Bytes content = ict_test::PatternBytes(300);
    std::uint32_t seed = 1122;
    for (const char* key : {"test-1", "test-2"}) {
        SCOPED_TRACE(key);
        const Bytes signedObject = Sign(content, key);
        ASSERT_EQ(Verify(signedObject, {"test-1", "test-2"}), DSVM_OK);
        ict_test::Mutator mutator(seed++, signedObject, content.size(), 8);
        int accepted = 0;
        for (int index = 0; index < 1000; ++index) {
            if (Verify(mutator.Next(), {"test-1", "test-2"}) == DSVM_OK) {
                ++accepted;
                ADD_FAILURE() << "mutant " << index << " verified";
            }
        }
        EXPECT_EQ(accepted, 0);
    }
}

}  // namespace
}  // namespace dsvm_test
