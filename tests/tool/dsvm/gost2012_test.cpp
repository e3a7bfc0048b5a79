#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/exception/diagnostic_information.hpp>

#include "dsvm/exception.h"
#include "dsvm/gost2012.h"
#include "signed_files.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"

namespace integrity_check_tool::dsvm {
namespace {

using testing::HasSubstr;

class Gost2012Test : public testing::Test {
protected:
    Gost2012::Blob Key(const std::string& name) { return dsvm_test::PublicKey(name); }

    // The exception VerifySignature throws for `path` with the release pair.
    Exception Failure(const boost::filesystem::path& path, bool requireBothKeys = true,
                      Gost2012::Blob first = {}, Gost2012::Blob second = {}) {
        if (first.empty() && second.empty() && requireBothKeys) {
            first = Key("release-1");
            second = Key("release-2");
        }
        try {
            Gost2012(trace_.Tracer())
                .VerifySignature(path, first, second, requireBothKeys, nullptr);
        } catch (const Exception& error) {
            return error;
        }
        ADD_FAILURE() << "no dsvm::Exception for " << path;
        return Exception("none", 0);
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
};

TEST_F(Gost2012Test, GoodSignatureIsTracedAndItsContentHandedBack) {
    const std::string content = "signed content\n";
    dsvm_test::WriteSigned(dir_ / "a.dll", content, "release-2");
    const Gost2012 gost(trace_.Tracer());
    std::vector<std::uint8_t> covered{1, 2, 3};
    gost.VerifySignature(dir_ / "a.dll", Key("release-1"), Key("release-2"), true, &covered);

    EXPECT_EQ(covered, dsvm_test::ToBytes(content));
    EXPECT_TRUE(trace_.Traced("Signature size: " + std::to_string(40 + 128 + 16)));
}

TEST_F(Gost2012Test, FailuresNameTheStepAndTheDsvmResult) {
    ict_test::WriteText(dir_ / "unsigned.dll", "no signature here");
    dsvm_test::WriteSigned(dir_ / "foreign.dll", "x", "foreign");
    ict_test::WriteText(dir_ / "empty.dll", "");

    const Exception unsignedFile = Failure(dir_ / "unsigned.dll");
    EXPECT_EQ(std::string(unsignedFile.what()),
              "Invalid signature (DSVM result 0x08CD9BAC: The signature of object signed by "
              "\"sign-in-object\" wasn't found)");
    EXPECT_EQ(unsignedFile.GetCode(), 0x08CD9BACu);

    EXPECT_EQ(Failure(dir_ / "foreign.dll").GetCode(), 0x408B1C02u);
    EXPECT_EQ(std::string(Failure(dir_ / "empty.dll").what()),
              "Invalid signature (DSVM result 0xDEABF3F6: Given pointer to object buffer and its "
              "size are 0)");
    // An unreadable file is not reported as a bad signature.
    EXPECT_EQ(std::string(Failure(dir_ / "missing.dll").what()),
              "Can't calculate hash (DSVM result 0x14064F2A: The file for operation couldn't be "
              "opened)");
    // The failing step is named, the location is the wrapper's.
    const Exception badKey =
        Failure(dir_ / "unsigned.dll", true, dsvm_test::ToBytes("junk"), Key("release-2"));
    EXPECT_THAT(badKey.what(), HasSubstr("Can't register keys in DSVM parameters list (DSVM "
                                         "result 0x5AAEEAE0: Some parameters"));
    EXPECT_THAT(boost::diagnostic_information(badKey),
                HasSubstr("product/tool/integrity_check_tool/source/dsvm/gost2012"));
}

TEST_F(Gost2012Test, MissingKeysAreRefusedOrLeftOutByTheFlag) {
    dsvm_test::WriteSigned(dir_ / "test.dll", "t", "test-2");
    // Both required: an empty blob cannot be registered.
    EXPECT_EQ(Failure(dir_ / "test.dll", true, Key("test-1"), {}).GetCode(), 0x5AAEEAE0u);
    // Not required: the present key still verifies ...
    Gost2012(trace_.Tracer()).VerifySignature(dir_ / "test.dll", {}, Key("test-2"), false, nullptr);
    // ... and with no key at all there is no registry to prepare.
    EXPECT_THAT(Failure(dir_ / "test.dll", false).what(),
                HasSubstr("Can't prepare registry set (DSVM result 0x8F995FFD"));
}

TEST(DsvmExceptionTest, CarriesCodeTextAndStaysATypedToolException) {
    const Exception unknown("Can't calculate hash", 0x12AB);
    EXPECT_EQ(std::string(unknown.what()), "Can't calculate hash (DSVM result 0x000012AB)");
    EXPECT_EQ(unknown.GetMessage(), unknown.what());
    EXPECT_EQ(DescribeResult(0xE9BA5770), "0xE9BA5770: Success");
    try {
        ICT_THROW(Exception("step", 0x408B1C02));
    } catch (const integrity_check_tool::Exception& error) {
        const std::string diagnostic = boost::diagnostic_information(error);
        EXPECT_THAT(diagnostic, HasSubstr("step (DSVM result 0x408B1C02: Key for operation"));
        EXPECT_THAT(diagnostic, HasSubstr("gost2012_test.cpp"));
    }
}

}  // namespace
}  // namespace integrity_check_tool::dsvm
