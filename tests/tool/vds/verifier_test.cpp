#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/exception/get_error_info.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/process/search_path.hpp>

#include "arguments/checker.h"
#include "common/exception.h"
#include "factory/factory.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/host_tools.h"
#include "support/run_program.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "support/vds/vds_material.h"
#include "vds/verification_flags.h"
#include "vds/verifier.h"

// What the tool makes of the service's answers: its messages, the result
// codes and the revocation list (the lines for the user show end to end).
// Which signatures the service trusts is the signature core's own truth table.
namespace integrity_check_tool::vds {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Outcome = std::pair<std::string, ruk::result_t>;
using testing::HasSubstr;

const std::vector<TrustedRoot> kAllRoots = {TrustedRoot::Root3520p1, TrustedRoot::Root3020d1,
                                            TrustedRoot::Root4820d1, TrustedRoot::Root4823d1};

// The thrown message and its result code (0 when none is attached).
template <typename Action>
Outcome Failure(Action&& action) {
    const auto error = ict_test::Caught<Exception>(action);
    if (!error) {
        return {"(nothing thrown)", 0};
    }
    const auto* code = boost::get_error_info<ruk::ResultCodeInfo>(*error);
    return {error->GetMessage(), code != nullptr ? *code : 0};
}

// A storage of one container whose size and reads the test decides. Reads
// report their count without touching the buffer, so a huge size costs nothing.
struct FakeContainer : storage::IContainer {
    std::uint64_t size = 0;
    ruk::result_t sizeResult = 0;
    ruk::result_t readResult = 0;
    std::size_t missing = 0;  // bytes a read leaves out
    int reads = 0;

    storage::ContainerEncoding GetEncoding() const override {
        return storage::ContainerEncoding::Raw;
    }
    ruk::result_t GetSize(std::uint64_t* result) override {
        *result = size;
        return sizeResult;
    }
    ruk::result_t Read(void*, std::size_t count, std::size_t* read) override {
        ++reads;
        *read = count - missing;
        return readResult;
    }
};

struct FakeStorage : storage::IStorage {
    ruk::intrusive_ptr<FakeContainer> container = ruk::MakeIntrusive<FakeContainer>();
    ruk::result_t openResult = 0;
    std::string openedName;

    ruk::result_t OpenContainer(const std::string& name, storage::IContainerPtr* opened) override {
        openedName = name;
        if (ruk::Succeeded(openResult)) {
            *opened = container;
        }
        return openResult;
    }
};

class VdsVerifierTest : public testing::Test {
protected:
    boost::filesystem::path Signed(const std::string& name, const std::string& signer) {
        const auto path = dir_ / name;
        ict_test::WriteBytes(path, ict_test::PatternBytes(10000));
        ict_test::vds::Sign(path, signer);
        return path;
    }

    VdsSignatureVerifier Make(const boost::optional<boost::filesystem::path>& crl = boost::none,
                              const std::vector<TrustedRoot>& roots = kAllRoots,
                              std::function<bool(TrustedRoot)> requiresCrl = nullptr) {
        VdsSignatureVerifier::Environment environment;
        environment.output = output_;
        environment.requiresRevocationList = std::move(requiresCrl);
        return VdsSignatureVerifier(trace_.Tracer(), roots, crl, false, environment);
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    std::ostringstream lines_;
    ConsoleOutputPtr output_ = std::make_shared<ConsoleOutput>(false, lines_, lines_);
};

TEST_F(VdsVerifierTest, RefusalsCarryTheirResultCodes) {
    const VdsSignatureVerifier verifier = Make();
    const auto expired = Signed("expired.dll", "signer-expired");
    EXPECT_EQ(Failure([&] { verifier.Verify(expired, nullptr); }),
              Outcome("Can't verify VDS signature of file " + expired.string() +
                          ". Flags: Signed|Embedded|RevocationCheckSkipped|Expired",
                      ruk::result::ObjectUntrusted));
    const auto missing = dir_ / "absent.dll";
    const auto [missingMessage, missingCode] = Failure([&] { verifier.Verify(missing, nullptr); });
    EXPECT_EQ(missingMessage, "Can't create IO from file " + missing.string());
    EXPECT_TRUE(ruk::Failed(missingCode));
    EXPECT_EQ(Failure([&] { Make(boost::none, {}).Verify(expired, nullptr); }),
              Outcome("Can't create VDS verifier", ruk::result::InvalidArgument));
}

TEST(VerificationFlagsTextTest, NamesFollowTheBitOrder) {
    EXPECT_EQ(VerificationFlagsToText(0), "None");
    EXPECT_EQ(VerificationFlagsToText(0xFFFFFFFF),
              "Signed|Trusted|Embedded|Catalog|RevocationCheckSkipped|CounterSignatureUsed|"
              "SignatureValueNotMatched|MalformedContent|IncompleteChain|Revoked|Expired|"
              "InvalidExtension|UnconsumedCriticalExtension|InvalidUsage|InvalidIssuer|"
              "InvalidBasicContraints|InvalidPurpose|InvalidCertificateSign");
    // 0x40 and 0x80 (and the high bits) have no name here: nothing is shown for them.
    EXPECT_EQ(VerificationFlagsToText(0x40 | 0x80 | 0x100000), "");
}

TEST_F(VdsVerifierTest, ATrustedFileFillsTheContentBuffer) {
    Bytes content = {1, 2, 3};
    Make().Verify(Signed("good.dll", "signer"), &content);
    EXPECT_EQ(content, ict_test::PatternBytes(10000));
}

TEST_F(VdsVerifierTest, ARevocationListThatYieldsNothingFailsBeforeAnyFile) {
    const auto crl = dir_ / "crl.p7b";
    const std::string list = "Revocation list " + crl.string() + " can't be used: ";
    ict_test::WriteBytes(crl, ict_test::vds::RevocationContainer({"3520p1"}));  // others left out
    EXPECT_EQ(Failure([&] { Make(crl); }), Outcome(list + "Not found", ruk::result::NotFound));
    ict_test::WriteBytes(crl, Bytes(5000, 0x41));
    EXPECT_EQ(
        Failure([&] { Make(crl); }),
        Outcome(list + "it is not a DER-encoded revocation container", ruk::result::InvalidFormat));
    // Sparse: no disk space is used, and the size is refused before any read.
    ict_test::WriteBytes(crl, {0x30});
    boost::filesystem::resize_file(crl, 4294967296ull);
    EXPECT_EQ(Failure([&] { Make(crl); }).first, "CRL is too large");
}

// Each step of reading from storage names itself; the container's result code
// comes along where the storage gave one. A short read fails even when the
// read succeeded.
TEST_F(VdsVerifierTest, EachStepOfReadingTheStorageFailsWithItsOwnMessage) {
    using namespace ruk::result;
    const std::string list = "Revocation list " + dir_.Path().string();
    struct Case {
        const char* what;
        ruk::result_t open, size, read;
        std::uint64_t length;
        std::size_t missing;
        int reads;
        std::string message;
        ruk::result_t code;
    };
    std::vector<Case> cases = {
        {"open", NotFound, 0, 0, 10, 0, 0, "Failed to open container vdscrl.rdb in storage",
         NotFound},
        {"size", 0, IoError, 0, 10, 0, 0, "Can't get size of container vdscrl.rdb", IoError},
        {"read", 0, 0, InvalidFormat, 10, 0, 1, "Can't read CRL from storage", InvalidFormat},
        {"short read", 0, 0, 0, 100, 1, 1, "Can't read CRL from storage", 0},
        {"empty", 0, 0, 0, 0, 0, 1, list + " is empty", 0},
        {"one byte over 4 GiB - 1", 0, 0, 0, 4294967296ull, 0, 0, "CRL is too large", 0},
    };
    // The largest size passes; the zeros read are then no revocation container.
    const std::string notDer = " can't be used: it is not a DER-encoded revocation container";
    if (sizeof(std::size_t) >= 8) {
        cases.push_back({"4 GiB - 1", 0, 0, 0, 4294967295ull, 0, 1, list + notDer, InvalidFormat});
    }
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        const auto fake = ruk::MakeIntrusive<FakeStorage>();
        fake->openResult = test.open;
        fake->container->sizeResult = test.size;
        fake->container->readResult = test.read;
        fake->container->size = test.length;
        fake->container->missing = test.missing;
        VdsSignatureVerifier::Environment environment;
        boost::filesystem::path opened;
        environment.openStorage = [&](const boost::filesystem::path& directory,
                                      storage::IStoragePtr* result) {
            opened = directory;
            *result = fake;
            return ruk::result::Success;
        };
        EXPECT_EQ(Failure([&] {
                      VdsSignatureVerifier(trace_.Tracer(), {TrustedRoot::Root3520p1}, dir_.Path(),
                                           false, environment);
                  }),
                  Outcome(test.message, test.code));
        EXPECT_EQ(fake->container->reads, test.reads);
        EXPECT_EQ(fake->openedName, "vdscrl.rdb");
        EXPECT_EQ(opened, dir_.Path());
    }
}

TEST_F(VdsVerifierTest, RootsThatRequireARevocationListRefuseToRunWithoutOne) {
    const auto onlyFirst = [](TrustedRoot root) { return root == TrustedRoot::Root3020d1; };
    EXPECT_EQ(Failure([&] { Make(boost::none, kAllRoots, onlyFirst); }).first,
              "Trusted root 3020d1 requires a revocation list, but none was given (--crl)");
    // The same roots with a list that covers them are fine, and so is a
    // selection without that root.
    const auto crl = dir_ / "crl.p7b";
    ict_test::WriteBytes(
        crl, ict_test::vds::RevocationContainer({"3520p1", "3020d1", "4820d1", "4823d1"}));
    Make(crl, kAllRoots, onlyFirst).Verify(Signed("good.dll", "signer"), nullptr);
    Make(boost::none, {TrustedRoot::Root3520p1}, onlyFirst)
        .Verify(Signed("other.dll", "signer"), nullptr);
}

TEST_F(VdsVerifierTest, FactoryBuildsItForTheSelectedRootsOnly) {
    const auto arguments = std::make_shared<CheckerArguments>();
    arguments->SetSignatureType(SignatureType::VdsWithFilename);
    arguments->SetTrustedRoots({TrustedRoot::Root4823d1, TrustedRoot::Root3520p1});
    const auto verifier =
        std::make_shared<Factory>(trace_.Tracer(), std::make_shared<ApplicationConfiguration>(),
                                  arguments)
            ->CreateSignatureVerifier();
    EXPECT_EQ(verifier->GetName(), "VdsSignatureVerifier");
    EXPECT_TRUE(trace_.Traced("Using certificate '4823d1' ..."));
    EXPECT_FALSE(trace_.Traced("Using certificate '3020d1' ..."));
}

// The revocation policy of a trust set is read at build time; a misspelt
// root would silently require nothing, so the build refuses it.
TEST(TrustPolicyTest, OnlyRootNamesMayRequireARevocationList) {
    ICT_NEEDS_LINUX_TOOL("cmake");
    const auto cmake = boost::process::search_path("cmake");
    const struct {
        const char* policy;
        bool accepted;
    } cases[] = {
        {"# deployment roots without which nothing passes\n3020d1\n4823d1  # the release root\n",
         true},
        {"\n   \n", true},
        {"3020d2\n", false},
        {"3520p1 4820d1\n", false},  // one name a line
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.policy);
        ict_test::TempDir dir;
        boost::filesystem::create_directories(dir / "set" / "roots");
        ict_test::WriteText(dir / "set" / "roots" / "crl-must-exist.txt", test.policy);
        const auto run = ict_test::RunTool(
            cmake, {"-DTRUST_DIR=" + (dir / "set").string(),
                    "-DOUTPUT=" + (dir / "out.cpp").string(), "-DFILES=roots/crl-must-exist.txt",
                    "-P", (ict_test::SourceDir() / "trust" / "embed_trust.cmake").string()});
        if (test.accepted) {
            EXPECT_EQ(run.exitCode, 0) << run.Describe();
            EXPECT_THAT(ict_test::ReadText(dir / "out.cpp"),
                        HasSubstr("{\"roots/crl-must-exist.txt\", kData0, "));
        } else {
            EXPECT_NE(run.exitCode, 0) << run.Describe();
            // CMake wraps its message; the file and the word are enough.
            EXPECT_THAT(run.err, HasSubstr("crl-must-exist.txt: unknown"));
        }
    }
}

}  // namespace
}  // namespace integrity_check_tool::vds
