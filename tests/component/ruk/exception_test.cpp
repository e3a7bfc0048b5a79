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

}  // namespace
