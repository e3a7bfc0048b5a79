#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/exists.h"
#include "check/hash.h"
#include "check/hex.h"
#include "check/not_exists.h"
#include "check/raw_value_provider.h"
#include "check/value.h"
#include "check/verification_mismatch.h"
#include "openssl/sha256.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool::check {
namespace {

using ict_test::BytesOf;
using testing::ElementsAre;

const std::string kAbcSha256 = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const std::vector<std::uint8_t> kAbcDigest = {
    0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40, 0xde, 0x5d, 0xae, 0x22, 0x23,
    0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17, 0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};

template <typename Action>
std::string MismatchText(Action&& action) {
    return ict_test::ThrownText<VerificationMismatch>(action);
}

class ChecksTest : public testing::Test {
protected:
    std::shared_ptr<ict_test::TestDataObjectSource> RegistryHolding(bool exists,
                                                                    const std::string& bytes) {
        return std::make_shared<ict_test::TestDataObjectSource>(
            std::make_shared<ict_test::FakeDataObject>(exists, BytesOf(bytes)));
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    std::shared_ptr<ict_test::TestDataObjectSource> files_ =
        std::make_shared<ict_test::TestDataObjectSource>();
};

TEST_F(ChecksTest, ExistsAndNotExistsAreMirrors) {
    const auto file = (dir_ / "present.dll").string();
    const auto directory = (dir_ / "bin").string();
    ict_test::WriteText(file, "x");
    boost::filesystem::create_directory(directory);
    const Exists exists(trace_.Tracer(), files_);
    const NotExists notExists(trace_.Tracer(), files_);

    exists.CheckFileValue(file);
    notExists.CheckFileValue(directory);  // a directory is no file
    EXPECT_THAT(trace_.Messages(), ElementsAre("Checking existence of file " + file + " ...",
                                               "File " + file + " exists",
                                               "Checking absence of file " + directory + " ...",
                                               "File " + directory + " not exists."));
    EXPECT_EQ(
        MismatchText([&] { exists.CheckFileValue(directory); }),
        "Verification mismatch with 'Exists' checker. Reason: File " + directory + " not exists.");
    EXPECT_EQ(MismatchText([&] { notExists.CheckFileValue(file); }),
              "Verification mismatch with 'NotExists' checker. Reason: File " + file + " exists");
}

TEST_F(ChecksTest, RegistryMessagesNameValueThenKey) {
    const auto present = RegistryHolding(true, "1");
    const auto absent = RegistryHolding(false, "");
    Exists(trace_.Tracer(), present).CheckRegistryValue("HKLM\\Soft", "Version", RegistryType::Sz);
    NotExists(trace_.Tracer(), absent).CheckRegistryValue("HKLM\\Soft", "Gone", RegistryType::Sz);
    EXPECT_EQ(present->lastValueName, "Version");
    EXPECT_EQ(present->lastKeyPath, "HKLM\\Soft");
    EXPECT_THAT(trace_.Messages(),
                ElementsAre("Checking existence of registry key Version in HKLM\\Soft ...",
                            "Registry key Version exists in HKLM\\Soft",
                            "Checking absence of registry key Gone in HKLM\\Soft ...",
                            "Registry key Gone not exists in HKLM\\Soft"));

    EXPECT_EQ(MismatchText([&] {
                  Exists(trace_.Tracer(), absent)
                      .CheckRegistryValue("HKLM\\Soft", "Gone", RegistryType::Sz);
              }),
              "Verification mismatch with 'Exists' checker. Reason: Registry key Gone not exists "
              "in HKLM\\Soft");
    EXPECT_EQ(MismatchText([&] {
                  NotExists(trace_.Tracer(), present)
                      .CheckRegistryValue("HKLM\\Soft", "Version", RegistryType::Sz);
              }),
              "Verification mismatch with 'NotExists' checker. Reason: Registry key Version "
              "exists in HKLM\\Soft");
}

TEST_F(ChecksTest, HashComparesDigestsAndNamesItsOwnKind) {
    const auto file = (dir_ / "a.dll").string();
    ict_test::WriteText(file, "abc");
    const auto sha256 = std::make_shared<openssl::Sha256>();
    Hash(trace_.Tracer(), files_, sha256, CheckType::Sha256, kAbcDigest).CheckFileValue(file);
    Hash(trace_.Tracer(), RegistryHolding(true, "abc"), sha256, CheckType::Sha256, kAbcDigest)
        .CheckRegistryValue("HKLM\\Soft", "Data", RegistryType::Binary);
    // The registry form has no "evaluated" line.
    EXPECT_THAT(trace_.Messages(),
                ElementsAre("Checking value of file " + file + " ...",
                            "Hash for file " + file + " evaluated: " + kAbcSha256,
                            "File " + file + " has expected value " + kAbcSha256,
                            "Checking registry key Data in HKLM\\Soft ...",
                            "Registry key Data in HKLM\\Soft has expected value " + kAbcSha256));

    // A digest of another length is as wrong as one of other bytes.
    EXPECT_EQ(MismatchText([&] {
                  Hash(trace_.Tracer(), files_, sha256, CheckType::Gost2012, {0xba, 0x78})
                      .CheckFileValue(file);
              }),
              "Verification mismatch with 'Gost2012' checker. Reason: File " + file +
                  " has unexpected hash " + kAbcSha256 + " != expected ba78");
    EXPECT_EQ(MismatchText([&] {
                  Hash(trace_.Tracer(), RegistryHolding(true, "abc"), sha256, CheckType::Sha256,
                       {0x00, 0x0f})
                      .CheckRegistryValue("HKLM\\Soft", "Data", RegistryType::Binary);
              }),
              "Verification mismatch with 'Sha256' checker. Reason: Registry key Data in "
              "HKLM\\Soft has unexpected hash " +
                  kAbcSha256 + " != expected 000f");
}

TEST_F(ChecksTest, UnreadableFileFailsWithDataObjectMessageNotMismatch) {
    const auto directory = (dir_ / "lib.so").string();
    boost::filesystem::create_directory(directory);
    const Hash hash(trace_.Tracer(), files_, std::make_shared<openssl::Sha256>(), CheckType::Sha256,
                    kAbcDigest);
    try {
        hash.CheckFileValue(directory);
        FAIL() << "a directory was hashed";
    } catch (const VerificationMismatch&) {
        FAIL() << "an unreadable file is not a mismatch";
    } catch (const Exception& error) {
        EXPECT_EQ(std::string(error.what()), "Can't read or access file " + directory +
                                                 ". Reason: File " + directory + " not found");
    }
}

TEST_F(ChecksTest, ValueComparesRawBytesWithoutPrintingThem) {
    const auto file = (dir_ / "version.txt").string();
    ict_test::WriteText(file, "1.0");
    const auto dword = std::make_shared<ict_test::TestDataObjectSource>(
        std::make_shared<ict_test::FakeDataObject>(true, std::vector<std::uint8_t>{1, 0, 0, 0}));
    Value(trace_.Tracer(), files_, BytesOf("1.0")).CheckFileValue(file);
    Value(trace_.Tracer(), dword, {1, 0, 0, 0})
        .CheckRegistryValue("HKCU\\K", "Count", RegistryType::Dword);
    EXPECT_THAT(trace_.Messages(), ElementsAre("Checking value of file " + file + " ...",
                                               "File " + file + " has expected value",
                                               "Checking registry key Count in HKCU\\K ...",
                                               "Registry key Count in HKCU\\K has expected value"));

    EXPECT_EQ(MismatchText(
                  [&] { Value(trace_.Tracer(), files_, BytesOf("1.0\n")).CheckFileValue(file); }),
              "Verification mismatch with 'Value' checker. Reason: File " + file +
                  " has unexpected value");
    EXPECT_EQ(MismatchText([&] {
                  Value(trace_.Tracer(), dword, {1, 0, 0})
                      .CheckRegistryValue("HKCU\\K", "Count", RegistryType::Dword);
              }),
              "Verification mismatch with 'Value' checker. Reason: Registry key Count in HKCU\\K "
              "has unexpected value");
    EXPECT_EQ(ToHex({0x00, 0x0f, 0xa0, 0xff}), "000fa0ff");
}

}  // namespace
}  // namespace integrity_check_tool::check
