#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>

#include "ruk/exception.h"

namespace {

using testing::HasSubstr;

ruk::result_t FailWith(ruk::result_t code) {
    return code;
}

TEST(RukExceptionTest, CheckThrowsOnlyForFailuresWithCodeTextAndLocation) {
    EXPECT_NO_THROW(RUK_CHECK(FailWith(ruk::result::Success)));
    EXPECT_NO_THROW(RUK_CHECK(FailWith(3)));
    try {
        RUK_CHECK(FailWith(ruk::result::NotFound));
        FAIL() << "no exception";
    } catch (const ruk::ResultException& error) {
        EXPECT_EQ(error.GetCode(), ruk::result::NotFound);
        EXPECT_STREQ(error.what(), "Not found (ruk.result 0xFFFFFFFE)");
        const ruk::result_t* code = boost::get_error_info<ruk::ResultCodeInfo>(error);
        ASSERT_NE(code, nullptr);
        EXPECT_EQ(*code, ruk::result::NotFound);
        const char* const* file = boost::get_error_info<boost::throw_file>(error);
        ASSERT_NE(file, nullptr);
        EXPECT_THAT(*file, HasSubstr("exception_test.cpp"));
        const char* const* function = boost::get_error_info<boost::throw_function>(error);
        ASSERT_NE(function, nullptr);
        EXPECT_THAT(*function, HasSubstr("TestBody"));
    }
}

TEST(RukExceptionTest, AssertionNamesExpressionFileAndLine) {
    const int expectedLine = __LINE__ + 2;
    try {
        RUK_ASSERT(1 + 1 == 3);
        FAIL() << "no exception";
    } catch (const ruk::AssertionFailed& error) {
        EXPECT_THAT(error.what(), HasSubstr("Expression failed: 1 + 1 == 3 at "));
        EXPECT_THAT(error.what(), HasSubstr("exception_test.cpp:" + std::to_string(expectedLine)));
        EXPECT_EQ(error.GetLine(), expectedLine);
    }
    try {
        RUK_ASSERT_AT(false, "some/source/label", 89);
        FAIL() << "no exception";
    } catch (const ruk::AssertionFailed& error) {
        EXPECT_STREQ(error.what(), "Expression failed: false at some/source/label:89");
        EXPECT_EQ(error.GetFile(), "some/source/label");
        const int* line = boost::get_error_info<boost::throw_line>(error);
        ASSERT_NE(line, nullptr);
        EXPECT_EQ(*line, 89);
    }
    EXPECT_NO_THROW(RUK_ASSERT(true));
}

}  // namespace
