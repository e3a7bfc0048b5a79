#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/all_checks_failed_exception.h"
#include "check/anyof.h"
#include "check/empty_value_provider.h"
#include "check/exists.h"
#include "check/hash.h"
#include "check/hex.h"
#include "check/i_data_object_source.h"
#include "check/not_exists.h"
#include "check/raw_value_provider.h"
#include "check/stream_compare.h"
#include "check/value.h"
#include "check/verification_mismatch.h"
#include "common/exception.h"
#include "data_object/file.h"
#include "openssl/sha256.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/manifest_text.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool::check {
namespace {

using ict_test::Bytes;
using ict_test::BytesOf;
using ict_test::FakeDataObject;
using ict_test::PatternBytes;
using ict_test::ScriptedStream;
using ict_test::Size;
using testing::ElementsAre;
using testing::ElementsAreArray;

// Files are the real ones on disk; a registry value is a fake that holds
// the given bytes or is absent, and the last request is kept as "value|key".
class TestDataObjectSource : public IDataObjectSource {
public:
    explicit TestDataObjectSource(bool exists, const std::string& bytes = "")
        : value_(std::make_shared<ict_test::FakeDataObject>(exists, BytesOf(bytes))) {}

    IDataObjectPtr CreateFile(const boost::filesystem::path& path) const override {
        return std::make_shared<data_object::File>(path);
    }
    IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& keyPath,
                                  RegistryType /*expectedType*/) const override {
        asked = valueName + "|" + keyPath;
        return value_;
    }

    mutable std::string asked;

private:
    std::shared_ptr<ict_test::FakeDataObject> value_;
};

// A checker member that passes or throws the given exception, keeping the
// arguments of each call.
class ScriptedChecker : public IFileChecker, public IRegistryChecker {
public:
    explicit ScriptedChecker(std::function<void()> behaviour) : behaviour_(std::move(behaviour)) {}

    std::string GetName() const override { return "Scripted"; }
    void CheckFileValue(const boost::filesystem::path& path) const override {
        calls.push_back(path.string());
        behaviour_();
    }
    void CheckRegistryValue(const std::string& keyPath, const std::string& valueName,
                            RegistryType /*type*/) const override {
        calls.push_back(keyPath + "|" + valueName);
        behaviour_();
    }

    mutable std::vector<std::string> calls;

private:
    std::function<void()> behaviour_;
};

const std::string kAbcSha256 = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const std::vector<std::uint8_t> kAbcDigest = {
    0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40, 0xde, 0x5d, 0xae, 0x22, 0x23,
    0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17, 0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};

TEST(ChecksTest, EachCheckTracesItsStepsAndSaysWhatDiffers) {
    ict_test::TempDir dir;
    const std::string file = (dir / "a.dll").string();
    const std::string folder = (dir / "bin").string();  // a folder is no file
    ict_test::WriteText(file, "abc");
    boost::filesystem::create_directory(folder);
    const auto present = std::make_shared<TestDataObjectSource>(true, "abc");
    const auto absent = std::make_shared<TestDataObjectSource>(false);
    const auto sha256 = std::make_shared<openssl::Sha256>();
    ict_test::TraceCapture trace;
    const auto& tracer = trace.Tracer();
    const Exists existsHere(tracer, present), existsNot(tracer, absent);
    const NotExists notExistsHere(tracer, present), notExistsNot(tracer, absent);
    const Hash sha(tracer, present, sha256, CheckType::Sha256, kAbcDigest);
    const Hash shortGost(tracer, present, sha256, CheckType::Gost2012, {0xba, 0x78});
    const Hash otherSha(tracer, present, sha256, CheckType::Sha256, {0x00, 0x0f});
    const Value same(tracer, present, BytesOf("abc")), longer(tracer, present, BytesOf("abc\n"));
    // A check on the file, or on value V of HKLM\K.
    using Run = std::function<void()>;
    const auto onFile = [](const IFileChecker& check, const std::string& path) -> Run {
        return [&check, path] { check.CheckFileValue(path); };
    };
    const auto onValue = [](const IRegistryChecker& check) -> Run {
        return [&check] { check.CheckRegistryValue("HKLM\\K", "V", RegistryType::Binary); };
    };
    const std::string checkingFile = "Checking value of file " + file + " ...";
    const std::string evaluated = "Hash for file " + file + " evaluated: " + kAbcSha256;
    const std::string checkingValue = "Checking registry key V in HKLM\\K ...";
    const std::string mismatch = "Verification mismatch with '";
    const std::vector<std::pair<Run, std::vector<std::string>>> cases = {
        {onFile(existsHere, file),
         {"Checking existence of file " + file + " ...", "File " + file + " exists"}},
        {onFile(existsHere, folder),
         {"Checking existence of file " + folder + " ...",
          mismatch + "Exists' checker. Reason: File " + folder + " not exists."}},
        {onFile(notExistsHere, folder),
         {"Checking absence of file " + folder + " ...", "File " + folder + " not exists."}},
        {onFile(notExistsHere, file),
         {"Checking absence of file " + file + " ...",
          mismatch + "NotExists' checker. Reason: File " + file + " exists"}},
        {onValue(existsHere),
         {"Checking existence of registry key V in HKLM\\K ...",
          "Registry key V exists in HKLM\\K"}},
        {onValue(existsNot),
         {"Checking existence of registry key V in HKLM\\K ...",
          mismatch + "Exists' checker. Reason: Registry key V not exists in HKLM\\K"}},
        {onValue(notExistsNot),
         {"Checking absence of registry key V in HKLM\\K ...",
          "Registry key V not exists in HKLM\\K"}},
        {onValue(notExistsHere),
         {"Checking absence of registry key V in HKLM\\K ...",
          mismatch + "NotExists' checker. Reason: Registry key V exists in HKLM\\K"}},
        // The registry form has no "evaluated" line.
        {onFile(sha, file),
         {checkingFile, evaluated, "File " + file + " has expected value " + kAbcSha256}},
        {onValue(sha),
         {checkingValue, "Registry key V in HKLM\\K has expected value " + kAbcSha256}},
        // A digest of another length is as wrong as one of other bytes.
        {onFile(shortGost, file),
         {checkingFile, evaluated,
          mismatch + "Gost2012' checker. Reason: File " + file + " has unexpected hash " +
              kAbcSha256 + " != expected ba78"}},
        {onValue(otherSha),
         {checkingValue, mismatch +
                             "Sha256' checker. Reason: Registry key V in HKLM\\K has "
                             "unexpected hash " +
                             kAbcSha256 + " != expected 000f"}},
        // Values are compared without being printed.
        {onFile(same, file), {checkingFile, "File " + file + " has expected value"}},
        {onValue(same), {checkingValue, "Registry key V in HKLM\\K has expected value"}},
        {onFile(longer, file),
         {checkingFile,
          mismatch + "Value' checker. Reason: File " + file + " has unexpected value"}},
        {onValue(longer),
         {checkingValue, mismatch + "Value' checker. Reason: Registry key V in HKLM\\K has "
                                    "unexpected value"}},
    };
    std::size_t seen = 0;
    for (const auto& [run, lines] : cases) {
        // The messages traced by this run, then the text of the mismatch it threw.
        const auto mismatch = ict_test::Caught<VerificationMismatch>(run);
        auto messages = trace.Messages();
        messages.erase(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(seen));
        seen += messages.size();
        if (mismatch) {
            messages.push_back(mismatch->what());
        }
        EXPECT_THAT(messages, ElementsAreArray(lines));
    }
    EXPECT_EQ(present->asked, "V|HKLM\\K");
}

std::shared_ptr<ScriptedChecker> Passing() {
    return std::make_shared<ScriptedChecker>([] {});
}

std::shared_ptr<ScriptedChecker> FailingWith(const std::string& reason) {
    return std::make_shared<ScriptedChecker>(
        [reason] { ICT_THROW(VerificationMismatch(CheckType::Sha256, reason)); });
}

TEST(AnyOfTest, StopsAtFirstPassingMemberAndTracesNumberedSteps) {
    ict_test::TraceCapture trace;
    const auto first = FailingWith("bad hash");
    const auto second = Passing();
    const auto third = Passing();
    const AnyOf anyOf(trace.Tracer(), std::vector<IFileCheckerPtr>{first, second, third});

    anyOf.CheckFileValue("/opt/p/a.dll");

    using Calls = std::vector<std::string>;
    EXPECT_EQ(first->calls, Calls{"/opt/p/a.dll"});
    EXPECT_EQ(second->calls, Calls{"/opt/p/a.dll"});
    EXPECT_EQ(third->calls, Calls{});
    EXPECT_THAT(trace.Messages(),
                ElementsAre("Check [1] ...",
                            "Check [1] - Failed. Verification mismatch with 'Sha256' checker. "
                            "Reason: bad hash",
                            "Check [2] ...", "Check [2] - Succeeded"));
    EXPECT_EQ(anyOf.GetName(), "AnyOf");
}

TEST(AnyOfTest, AllFailingMembersAreListedInOrderAndOneIsRethrownAsItIs) {
    ict_test::TraceCapture trace;
    const auto registryValue = [](const AnyOf& anyOf) {
        anyOf.CheckRegistryValue("HKLM\\K", "V", RegistryType::Sz);
    };
    EXPECT_EQ(ict_test::ThrownText<AllChecksFailedException>([&] {
                  registryValue(AnyOf(trace.Tracer(), std::vector<IRegistryCheckerPtr>{
                                                          FailingWith("one"), FailingWith("two")}));
              }),
              "All checks failed:\n"
              "\tChecker [1]: Verification mismatch with 'Sha256' checker. Reason: one\n"
              "\tChecker [2]: Verification mismatch with 'Sha256' checker. Reason: two");

    struct OwnError : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    const auto member = std::make_shared<ScriptedChecker>([] { throw OwnError("own failure"); });
    EXPECT_EQ(ict_test::ThrownText<OwnError>([&] {
                  registryValue(AnyOf(trace.Tracer(), std::vector<IRegistryCheckerPtr>{member}));
              }),
              "own failure");
    EXPECT_EQ(member->calls, std::vector<std::string>{"HKLM\\K|V"});

    EXPECT_EQ(ict_test::ThrownText<Exception>([&] {
                  AnyOf(trace.Tracer(), std::vector<IFileCheckerPtr>{}).CheckFileValue("/p/f");
              }),
              "There are no checks for file /p/f");
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] {
                  registryValue(AnyOf(trace.Tracer(), std::vector<IRegistryCheckerPtr>{}));
              }),
              "There are no checks for registry key V in HKLM\\K");
}

std::string Evaluate(const IValueProvider& provider, const IDataObject& object) {
    Bytes value{0xde, 0xad};  // replaced, not appended to
    provider.Evaluate(object, value);
    return ToHex(value);
}

TEST(StreamHoldsTest, ComparesSizeFirstThenBlocksAndNeverReadsFarPastTheExpected) {
    const Bytes big = PatternBytes(300 * 1024);
    Bytes lastDiffers = big;
    lastDiffers.back() ^= 1;
    struct Case {
        const char* name;
        Bytes content;
        Size claimedSize;
        bool endless;
        Bytes expected;
        bool holds;
        std::size_t mostRead;  // bytes read at most
    };
    const std::vector<Case> cases = {
        {"equal, several blocks", big, big.size(), false, big, true, big.size()},
        {"last byte differs", lastDiffers, big.size(), false, big, false, big.size()},
        {"known other size: nothing read", big, 3ull << 30, false, PatternBytes(3), false, 0},
        {"unknown size, endless stream", Bytes(1, 0), {}, true, Bytes(10, 0), false, 11},
        {"unknown size, equal", PatternBytes(5), {}, false, PatternBytes(5), true, 5},
        {"unknown size, shorter", PatternBytes(4), {}, false, PatternBytes(5), false, 4},
        {"no size reported but content", PatternBytes(7), 0, false, PatternBytes(7), true, 7},
        {"empty against empty", Bytes(), 0, false, Bytes(), true, 0},
        {"empty against a value", Bytes(), 0, false, PatternBytes(2), false, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ScriptedStream stream({test.content, test.claimedSize, test.endless});
        EXPECT_EQ(StreamHolds(stream, test.expected), test.holds);
        EXPECT_LE(stream.bytesRead, test.mostRead);
        // Never more than one block held, and no more than one byte past the value.
        EXPECT_LE(stream.largestRequest, 64u * 1024);
        EXPECT_LE(stream.largestRequest, test.expected.size() + 1);
    }
    ScriptedStream failing({PatternBytes(1), {}, false, 0});
    EXPECT_THROW(StreamHolds(failing, PatternBytes(1)), ruk::ResultException);
}

// Sizes about the page and the 1 MiB block that reads are sized by, the
// largest first so that the thread's buffer is left at its largest. A size
// that says less or more than the stream holds (a file that grows or shrinks
// while it is read, a procfs file that reports none) only sizes the reads.
TEST(Sha256Test, DigestsEveryByteWhateverTheSizeSays) {
    const Bytes big = PatternBytes(3 * 1024 * 1024 + 5);
    const std::size_t mebibyte = 1024 * 1024;
    for (const std::size_t size :
         {big.size(), std::size_t{0}, std::size_t{3}, std::size_t{4095}, std::size_t{4096},
          std::size_t{4097}, mebibyte - 1, mebibyte, mebibyte + 1}) {
        const std::string bytes(big.begin(), big.begin() + static_cast<std::ptrdiff_t>(size));
        for (const Size reported : {Size(size), Size(), Size(size / 2), Size(size + 1)}) {
            EXPECT_EQ(Evaluate(openssl::Sha256(),
                               FakeDataObject(true, {Bytes(bytes.begin(), bytes.end()), reported})),
                      ict_test::Sha256Hex(bytes))
                << size << " reported as " << reported.value_or(0);
        }
    }
}

// A read that starts while the thread's block is in use (a provider reading
// inside another's consumer) gets a block of its own.
TEST(ReadBlocksTest, NestedReadsKeepTheirOwnBlocks) {
    ruk::MemoryIO outer(Bytes(5000, 'o'));
    std::string seen;
    const auto append = [&](const std::uint8_t* data, std::size_t size) {
        seen.append(data, data + size);
    };
    ASSERT_EQ(ReadBlocks(outer, 4096,
                         [&](const std::uint8_t* data, std::size_t size) {
                             ruk::MemoryIO inner(Bytes(3, 'i'));
                             EXPECT_EQ(ReadBlocks(inner, 4096, append), ruk::result::Success);
                             append(data, size);
                         }),
              ruk::result::Success);
    EXPECT_EQ(seen, "iii" + std::string(4096, 'o') + "iii" + std::string(904, 'o'));
}

TEST(ValueProvidersTest, RawGivesEveryByteUpToItsLimitAndEmptyNeverReads) {
    EXPECT_EQ(Evaluate(RawValueProvider(), FakeDataObject(true, {0x2a, 0, 0, 0})), "2a000000");
    const FakeDataObject untouched(true, Bytes(1));
    EXPECT_EQ(Evaluate(EmptyValueProvider(), untouched), "");
    EXPECT_EQ(untouched.reads, 0);

    const std::string tooLong = " bytes long; a Value holds at most " +
                                std::to_string(RawValueProvider::kMaxSize) + " bytes";
    const auto error = [](const FakeDataObject& object) {
        return ict_test::ThrownText<Exception>([&] { Evaluate(RawValueProvider(), object); });
    };
    EXPECT_EQ(error(FakeDataObject(true, {PatternBytes(4096), 3ull << 30})),
              "The value is " + std::to_string(3ull << 30) + tooLong);
    // No size, but no end either: stopped at the first block past the limit.
    EXPECT_THAT(error(FakeDataObject(true, {PatternBytes(4096), {}, true})),
                testing::AllOf(testing::StartsWith("The value is "), testing::EndsWith(tooLong)));
}

TEST(ValueProvidersTest, FailingReadRaisesFrameworkResult) {
    // The first read gives bytes, the second fails.
    const FakeDataObject object(true, {PatternBytes(100), 100, false, 1});
    Bytes value;
    const auto error =
        ict_test::Caught<ruk::ResultException>([&] { openssl::Sha256().Evaluate(object, value); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->GetCode(), ruk::result::IoError);
    EXPECT_THROW(RawValueProvider().Evaluate(object, value), ruk::ResultException);
}

}  // namespace
}  // namespace integrity_check_tool::check
