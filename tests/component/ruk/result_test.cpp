#include <gtest/gtest.h>

#include "ruk/result.h"
#include "support/os_errors.h"

namespace {

TEST(RukResultTest, FrameworkCodesHaveTheirTextsAndCategory) {
    EXPECT_EQ(ruk::GetResultText(ruk::result::Success), "Success");
    EXPECT_EQ(ruk::GetResultText(ruk::result::NotFound), "Not found");
    EXPECT_EQ(ruk::GetResultText(ruk::result::AccessDenied), "Access denied");
    EXPECT_EQ(ruk::GetResultText(ruk::result::InvalidArgument), "Invalid argument");
    EXPECT_EQ(ruk::GetResultText(-1000), "Unknown result code");
    EXPECT_EQ(ruk::GetResultText(12345), "Unknown result code");
    EXPECT_STREQ(ruk::GetResultCategory(ruk::result::NotFound), "ruk.result");
    EXPECT_STREQ(ruk::GetResultCategory(ruk::result::Success), "ruk.result");

    EXPECT_TRUE(ruk::Succeeded(ruk::result::Success));
    EXPECT_TRUE(ruk::Succeeded(1));
    EXPECT_TRUE(ruk::Failed(ruk::result::Fail));
    EXPECT_FALSE(ruk::Failed(0));
}

TEST(RukResultTest, OsErrorsAreWrappedAsFailuresOfTheirOwnCategory) {
    namespace os_error = ict_test::os_error;
    const ruk::result_t code = ruk::MakeOsResult(os_error::kNoEntry);
    EXPECT_TRUE(ruk::Failed(code));
    EXPECT_TRUE(ruk::IsOsResult(code));
    EXPECT_EQ(ruk::GetOsError(code), os_error::kNoEntry);
    EXPECT_STREQ(ruk::GetResultCategory(code), "os.result");
    EXPECT_EQ(ruk::GetResultText(code), os_error::Text(os_error::kNoEntry));

    // Zero is no error; framework codes are not os codes.
    EXPECT_EQ(ruk::MakeOsResult(0), ruk::result::Success);
    EXPECT_FALSE(ruk::IsOsResult(ruk::result::NotFound));
    EXPECT_EQ(ruk::GetOsError(ruk::result::NotFound), 0u);
    // Distinct errors stay distinct.
    EXPECT_NE(ruk::MakeOsResult(os_error::kAccessDenied), code);
}

}  // namespace
