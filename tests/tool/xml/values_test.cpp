#include "xml/values.h"

#include <gtest/gtest.h>
#include <boost/archive/iterators/dataflow_exception.hpp>

#include "common/exception.h"

namespace integrity_check_tool::xml {
namespace {

TEST(ReadNumberTest, DecimalAndHexadecimal) {
    EXPECT_EQ(ReadNumber("601"), 601u);
    EXPECT_EQ(ReadNumber("0x0A"), 10u);
    EXPECT_EQ(ReadNumber("0X0a00"), 0xA00u);
    EXPECT_EQ(ReadNumber("0x0A00"), 2560u);
    EXPECT_EQ(ReadNumber("10abc"), 10u);
    EXPECT_EQ(ReadNumber("  \t10"), 10u);
    EXPECT_EQ(ReadNumber(" 0x10 trailing"), 16u);
    // Read as 64 bits, kept as 32.
    EXPECT_EQ(ReadNumber("4294967297"), 1u);
    EXPECT_EQ(ReadNumber("0x1FFFFFFFF"), 0xFFFFFFFFu);
}

TEST(ReadNumberTest, TextWithoutANumberFails) {
    for (const char* text : {"abc", "", "   ", "x10"}) {
        try {
            ReadNumber(text);
            ADD_FAILURE() << "accepted '" << text << "'";
        } catch (const Exception& error) {
            EXPECT_EQ(error.GetMessage(), std::string("Invalid number: ") + text);
        }
    }
}

TEST(Base64Test, PaddingFollowsTheByteCount) {
    EXPECT_EQ(EncodeBase64({}), "");
    EXPECT_EQ(EncodeBase64({1, 2, 3}), "AQID");
    EXPECT_EQ(EncodeBase64({1, 2, 3, 4}), "AQIDBA==");
    EXPECT_EQ(EncodeBase64({1, 2, 3, 4, 5}), "AQIDBAU=");
    EXPECT_EQ(EncodeBase64({0xFB, 0xFF}), "+/8=");

    EXPECT_EQ(DecodeBase64(""), Bytes{});
    EXPECT_EQ(DecodeBase64("=="), Bytes{});
    EXPECT_EQ(DecodeBase64("AQID"), (Bytes{1, 2, 3}));
    EXPECT_EQ(DecodeBase64("AQIDBA=="), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(DecodeBase64("AQIDBAU="), (Bytes{1, 2, 3, 4, 5}));
    // Padding is optional on reading.
    EXPECT_EQ(DecodeBase64("AQIDBA"), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(DecodeBase64("+/8"), (Bytes{0xFB, 0xFF}));
}

TEST(Base64Test, EveryLengthRoundTrips) {
    Bytes bytes;
    for (int length = 0; length < 70; ++length) {
        EXPECT_EQ(DecodeBase64(EncodeBase64(bytes)), bytes) << length;
        EXPECT_EQ(EncodeBase64(bytes).size() % 4, 0u);
        bytes.push_back(static_cast<std::uint8_t>(length * 37 + 11));
    }
}

TEST(Base64Test, CharacterOutsideTheAlphabetFailsWithTheDecodersOwnMessage) {
    for (const char* text : {"AQ*D", "AQID!", "A QID", "AQIDB-==", "\xC3\xA9QID"}) {
        try {
            DecodeBase64(text);
            ADD_FAILURE() << "accepted '" << text << "'";
        } catch (const boost::archive::iterators::dataflow_exception& error) {
            EXPECT_STREQ(error.what(), "attempt to decode a value not in base64 char set");
        }
    }
}

}  // namespace
}  // namespace integrity_check_tool::xml
