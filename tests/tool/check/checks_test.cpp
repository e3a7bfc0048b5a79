#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/exists.h"
#include "check/hash.h"
#include "check/hex.h"
#include "check/not_exists.h"
#include "check/value.h"
#include "check/verification_mismatch.h"
#include "openssl/sha256.h"
#include "support/file_helpers.h"
#include "support/manifest_text.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool::check {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ict_test::BytesOf;
using testing::ElementsAreArray;

// The four checks on a file and on a registry value, each passing and
// failing: what they trace when they pass, what the mismatch says when not.
TEST(ChecksTest, EachCheckOnFilesAndRegistryValuesPassesOrNamesItsMismatch) {
    ict_test::TempDir dir;
    const std::string file = (dir / "a.dll").string();
    const std::string folder = (dir / "bin").string();  // a directory is no file
    ict_test::WriteText(file, "abc");
    boost::filesystem::create_directory(folder);
    const std::string abc = ict_test::Sha256Hex("abc");
    const auto files = std::make_shared<ict_test::TestDataObjectSource>();
    const auto registry = [](bool exists, const std::string& bytes) {
        return std::make_shared<ict_test::TestDataObjectSource>(
            std::make_shared<ict_test::FakeDataObject>(exists, BytesOf(bytes)));
    };
    const auto present = registry(true, "abc");
    const auto absent = registry(false, "");
    const auto sha256 = std::make_shared<openssl::Sha256>();
    Bytes digest;
    sha256->Evaluate(ict_test::FakeDataObject(true, BytesOf("abc")), digest);
    ASSERT_EQ(ToHex(digest), abc);

    const std::string key = "Registry key Data in HKLM\\Soft";
    struct Case {
        const char* what;
        std::function<void(const TracerPtr&)> run;
        std::vector<std::string> traced;  // when it passes
        std::string mismatch;             // after "Reason: "; empty when it passes
    };
    const auto onFile = [](auto make, const std::string& path) {
        return [make, path](const TracerPtr& tracer) { make(tracer)->CheckFileValue(path); };
    };
    const auto onValue = [](auto make) {
        return [make](const TracerPtr& tracer) {
            make(tracer)->CheckRegistryValue("HKLM\\Soft", "Data", RegistryType::Binary);
        };
    };
    const auto exists = [](std::shared_ptr<IDataObjectSource> source) {
        return [source](const TracerPtr& t) { return std::make_shared<Exists>(t, source); };
    };
    const auto notExists = [](std::shared_ptr<IDataObjectSource> source) {
        return [source](const TracerPtr& t) { return std::make_shared<NotExists>(t, source); };
    };
    const auto hash = [&](std::shared_ptr<IDataObjectSource> source, CheckType type, Bytes value) {
        return [=](const TracerPtr& t) {
            return std::make_shared<Hash>(t, source, sha256, type, value);
        };
    };
    const auto value = [](std::shared_ptr<IDataObjectSource> source, Bytes expected) {
        return [=](const TracerPtr& t) { return std::make_shared<Value>(t, source, expected); };
    };
    const Case cases[] = {
        {"file exists",
         onFile(exists(files), file),
         {"Checking existence of file " + file + " ...", "File " + file + " exists"},
         ""},
        {"folder is no file",
         onFile(exists(files), folder),
         {},
         "Verification mismatch with 'Exists' checker. Reason: File " + folder + " not exists."},
        {"folder is absent as a file",
         onFile(notExists(files), folder),
         {"Checking absence of file " + folder + " ...", "File " + folder + " not exists."},
         ""},
        {"file not absent",
         onFile(notExists(files), file),
         {},
         "Verification mismatch with 'NotExists' checker. Reason: File " + file + " exists"},
        {"value exists",
         onValue(exists(present)),
         {"Checking existence of registry key Data in HKLM\\Soft ...",
          "Registry key Data exists in HKLM\\Soft"},
         ""},
        {"value missing",
         onValue(exists(absent)),
         {},
         "Verification mismatch with 'Exists' checker. Reason: Registry key Data not exists in "
         "HKLM\\Soft"},
        {"value absent",
         onValue(notExists(absent)),
         {"Checking absence of registry key Data in HKLM\\Soft ...",
          "Registry key Data not exists in HKLM\\Soft"},
         ""},
        {"value not absent",
         onValue(notExists(present)),
         {},
         "Verification mismatch with 'NotExists' checker. Reason: Registry key Data exists in "
         "HKLM\\Soft"},
        {"file hash",
         onFile(hash(files, CheckType::Sha256, digest), file),
         {"Checking value of file " + file + " ...", "Hash for file " + file + " evaluated: " + abc,
          "File " + file + " has expected value " + abc},
         ""},
        // A digest of another length is as wrong as one of other bytes.
        {"file hash too short",
         onFile(hash(files, CheckType::Gost2012, {0xba, 0x78}), file),
         {},
         "Verification mismatch with 'Gost2012' checker. Reason: File " + file +
             " has unexpected hash " + abc + " != expected ba78"},
        {"value hash",
         onValue(hash(present, CheckType::Sha256, digest)),
         {"Checking registry key Data in HKLM\\Soft ...", key + " has expected value " + abc},
         ""},
        {"value hash differs",
         onValue(hash(present, CheckType::Sha256, {0x00, 0x0f})),
         {},
         "Verification mismatch with 'Sha256' checker. Reason: " + key + " has unexpected hash " +
             abc + " != expected 000f"},
        // Raw values are never printed.
        {"file value",
         onFile(value(files, BytesOf("abc")), file),
         {"Checking value of file " + file + " ...", "File " + file + " has expected value"},
         ""},
        {"file value longer",
         onFile(value(files, BytesOf("abc\n")), file),
         {},
         "Verification mismatch with 'Value' checker. Reason: File " + file +
             " has unexpected value"},
        {"registry value",
         onValue(value(present, BytesOf("abc"))),
         {"Checking registry key Data in HKLM\\Soft ...", key + " has expected value"},
         ""},
        {"registry value shorter",
         onValue(value(present, BytesOf("ab"))),
         {},
         "Verification mismatch with 'Value' checker. Reason: " + key + " has unexpected value"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        ict_test::TraceCapture trace;
        const std::string thrown =
            ict_test::ThrownText<VerificationMismatch>([&] { test.run(trace.Tracer()); });
        if (test.mismatch.empty()) {
            EXPECT_EQ(thrown, "(nothing thrown)");
            EXPECT_THAT(trace.Messages(), ElementsAreArray(test.traced));
        } else {
            EXPECT_EQ(thrown, test.mismatch);
        }
    }
    // The registry value asked for is the one named, in the key named.
    EXPECT_EQ(present->lastValueName, "Data");
    EXPECT_EQ(present->lastKeyPath, "HKLM\\Soft");
    EXPECT_EQ(ToHex({0x00, 0x0f, 0xa0, 0xff}), "000fa0ff");
}

TEST(ChecksTest, UnreadableFileFailsWithDataObjectMessageNotMismatch) {
    ict_test::TempDir dir;
    const auto folder = (dir / "lib.so").string();
    boost::filesystem::create_directory(folder);
    ict_test::TraceCapture trace;
    const Hash hash(trace.Tracer(), std::make_shared<ict_test::TestDataObjectSource>(),
                    std::make_shared<openssl::Sha256>(), CheckType::Sha256, {1});
    try {
        hash.CheckFileValue(folder);
        FAIL() << "a directory was hashed";
    } catch (const VerificationMismatch&) {
        FAIL() << "an unreadable file is not a mismatch";
    } catch (const Exception& error) {
        EXPECT_EQ(error.GetMessage(), "Can't read or access file " + folder + ". Reason: File " +
                                          folder + " not found");
    }
}

}  // namespace
}  // namespace integrity_check_tool::check
