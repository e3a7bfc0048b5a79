#include <string>

#include <gtest/gtest.h>

#include "dsvm/dsvm.h"

namespace {

std::string Text(DsvmResult code) {
    const char* text = DsvmGetResultText(code);
    return text == nullptr ? "<none>" : text;
}

// The texts are shown to users verbatim, misspellings and all.
TEST(DsvmResultText, KnownCodesKeepTheirExactWording) {
    EXPECT_EQ(Text(0xE9BA5770u), "Success");
    EXPECT_EQ(Text(0xD10CC37Au), "The library is not initialized");
    EXPECT_EQ(Text(0x7D11F7E2u), "Object hash couln't be calculated because of input error");
    EXPECT_EQ(Text(0x38F3542Du), "Object signed by \"sign-in-object\" has invalid signature");
    EXPECT_EQ(Text(0x08CD9BACu),
              "The signature of object signed by \"sign-in-object\" wasn't found");
    EXPECT_EQ(Text(0x5AAEEAE0u),
              "Some parameters of function call are invalid. In most cases - pointers to buffer "
              "and sizes are 0");
    EXPECT_EQ(Text(0xE75ABF28u),
              "Given type of objects isn't comply given set of parameters or registry has invalid "
              "type");
    EXPECT_EQ(Text(0xEB529C3Du),
              "The given set of registries isn't prepared to operation (DSVM_IsRegsSetPrepared)");
    EXPECT_EQ(Text(0x474677E6u),
              "Returned if the value of property DSVM_OBJ_REG_INDEX is set and count of set of "
              "hash registries > 1");
    EXPECT_EQ(Text(0xC93BC471u), "Unknown Gost version");
    EXPECT_EQ(Text(0x04529DA3u), "The external I/O interface isn't initialized");
}

TEST(DsvmResultText, UnknownCodesHaveNoText) {
    EXPECT_EQ(DsvmGetResultText(0), nullptr);
    EXPECT_EQ(DsvmGetResultText(0xFFFFFFFFu), nullptr);
    EXPECT_EQ(DsvmGetResultText(0xE9BA5771u), nullptr);
}

TEST(DsvmResultText, NeedsNoInitialisation) {
    // Callers describe a failed DsvmInitialize with it.
    EXPECT_EQ(Text(DSVM_E_NOT_INITIALIZED), "The library is not initialized");
}

}  // namespace
