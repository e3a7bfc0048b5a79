#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>

#include "action/check_signature.h"
#include "action/file_lookup.h"
#include "action/verify.h"
#include "arguments/checker.h"
#include "common/configuration.h"
#include "common/console_output.h"
#include "common/exception.h"
#include "common/run_statistics.h"
#include "factory/factory.h"
#include "signature/without_signature_verifier.h"
#include "support/file_helpers.h"
#include "support/manifest_text.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool::action {
namespace {

using ict_test::Base64;
using ict_test::FileRecord;
using ict_test::Sha256Check;
using ict_test::ValueCheck;
using testing::HasSubstr;
namespace fs = boost::filesystem;

// Accepts every file except those named "bad.dll".
class PickyVerifier : public ISignatureVerifier {
public:
    std::string GetName() const override { return "Picky"; }
    void Verify(const boost::filesystem::path& path,
                std::vector<std::uint8_t>* /*content*/) const override {
        verified.push_back(path.filename().string());
        if (path.filename() == "bad.dll") {
            ICT_THROW(Exception("Invalid signature"));
        }
    }
    mutable std::vector<std::string> verified;
};

// Registry values are fakes (present ones hold "ok"), the verifier is picky.
class TestFactory : public Factory {
public:
    using Factory::Factory;
    IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& /*keyPath*/,
                                  RegistryType /*expectedType*/) const override {
        return std::make_shared<ict_test::FakeDataObject>(valueName != "Absent",
                                                          ict_test::BytesOf("ok"));
    }
    ISignatureVerifierPtr CreateSignatureVerifier() const override { return verifier; }
    std::shared_ptr<PickyVerifier> verifier = std::make_shared<PickyVerifier>();
};

// What an action needs around it: a temporary product folder, a detail
// tracer, captured console streams, run statistics and a factory.
class ActionTest : public testing::Test {
protected:
    ActionTest()
        : output_(std::make_shared<ConsoleOutput>(true, out_, err_)),
          statistics_(std::make_shared<RunStatistics>(trace_.Tracer(), output_)),
          arguments_(std::make_shared<CheckerArguments>()) {}

    // Writes a manifest file holding `body` inside its root element.
    boost::filesystem::path WriteManifest(const std::string& name, const std::string& body) {
        const auto path = dir_ / name;
        ict_test::WriteText(path, "<Manifest productName=\"Test\">\n" + body + "</Manifest>\n");
        return path;
    }

    VerifySettings Settings(std::set<boost::filesystem::path> manifests) const {
        VerifySettings settings;
        settings.manifestPaths = std::move(manifests);
        return settings;
    }

    template <typename Made = Factory>
    std::shared_ptr<Made> MakeFactory() const {
        return std::make_shared<Made>(trace_.Tracer(), std::make_shared<ApplicationConfiguration>(),
                                      arguments_);
    }

    // "failed/skipped/succeeded" of a kind, for compact assertions.
    std::string Counts(std::size_t kind) const {
        const auto& counters = statistics_->Get(kind);
        return std::to_string(counters.failed) + "/" + std::to_string(counters.skipped) + "/" +
               std::to_string(counters.succeeded);
    }

    bool RunVerify(VerifySettings settings, std::shared_ptr<const Factory> factory = nullptr) {
        Verify verify(std::move(settings), trace_.Tracer(), factory ? factory : MakeFactory(),
                      statistics_);
        EXPECT_EQ(verify.GetName(), "Verify");
        return verify.Execute();
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    std::ostringstream out_;
    std::ostringstream err_;
    ConsoleOutputPtr output_;
    RunStatisticsPtr statistics_;
    std::shared_ptr<CheckerArguments> arguments_;
};

using VerifyTest = ActionTest;
using SideActionsTest = ActionTest;
using FactoryTest = ActionTest;

TEST_F(VerifyTest, PassingManifestCountsEveryObjectAndPrintsSummaryOnce) {
    ict_test::WriteText(dir_ / "bin" / "a.dll", "aaa");
    ict_test::WriteText(dir_ / "bin" / "b.dll", "bbb");
    const auto manifest = WriteManifest(
        "integrity_check.xml",
        "<Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n" +
            FileRecord("%Bin%\\a.dll", Sha256Check("aaa")) + "<Files path=\"%Bin%\">" +
            FileRecord("b.dll", ValueCheck("bbb")) + "</Files>\n" +
            "<File path=\"%Bin%\\gone.dll\"><Check type=\"NotExists\"/></File>\n"
            "<File path=\"%Bin%\\other.dll\" defined=\"NOT_GIVEN\"><Check/></File>\n"
            "<Registry path=\"HKLM\\SOFTWARE\\Test\" os=\"MacOS\">"
            "<Value name=\"V\" type=\"REG_SZ\"><Check/></Value></Registry>\n");

    EXPECT_TRUE(RunVerify(Settings({manifest})));

    EXPECT_EQ(Counts(Manifests), "0/0/1");
    EXPECT_EQ(Counts(Registries), "0/1/0");
    EXPECT_EQ(Counts(RegistryValues), "0/0/0");
    // Lines name the expanded path.
    EXPECT_THAT(out_.str(),
                HasSubstr("file " + (dir_ / "bin" / "other.dll").string() + " filtered"));
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 0 / 1 / 3\n"));
    EXPECT_EQ(err_.str(), "");
    const std::string summary = "Summary( failed / skipped / succeeded ):";
    const std::string out = out_.str();
    EXPECT_EQ(out.find(summary), out.rfind(summary));
}

TEST_F(VerifyTest, RegistryKeyFailsOnceAfterAllItsValuesRan) {
    const auto manifest = WriteManifest(
        "m.xml",
        "<Registry path=\"HKLM\\SOFTWARE\\Test\">"
        "<Value name=\"Present\" type=\"REG_SZ\"><Check type=\"NotExists\"/></Value>"
        "<Value name=\"Absent\" type=\"REG_SZ\"><Check type=\"NotExists\"/></Value>"
        "<Value name=\"Data\" type=\"REG_BINARY\"><Check type=\"Value\" value=\"" +
            Base64("ok") +
            "\"/></Value>"
            "<Value name=\"Skipped\" type=\"REG_SZ\" defined=\"NOT_GIVEN\"><Check/></Value>"
            "</Registry>\n");
    EXPECT_FALSE(RunVerify(Settings({manifest}), MakeFactory<TestFactory>()));

    EXPECT_EQ(Counts(RegistryValues), "1/1/2");
    EXPECT_EQ(Counts(Registries), "1/0/0");
    EXPECT_EQ(Counts(Manifests), "1/0/0");
    EXPECT_THAT(err_.str(), HasSubstr("registry value Present failed. Reason: Verification "
                                      "mismatch with 'NotExists' checker. Reason: Registry key "
                                      "Present exists in HKLM\\SOFTWARE\\Test"));
    EXPECT_THAT(err_.str(), HasSubstr("registry path HKLM\\SOFTWARE\\Test failed. Reason: "
                                      "Verification of registry path HKLM\\SOFTWARE\\Test "
                                      "failed"));
}

TEST_F(VerifyTest, ManifestsExpandedThroughOwnEnvironmentsMergeIntoOne) {
    ict_test::WriteText(dir_ / "product" / "a.dll", "aaa");
    ict_test::WriteText(dir_ / "product" / "b.dll", "bbb");
    const auto first =
        WriteManifest("product/first.xml", FileRecord("%ProductRoot%/a.dll", Sha256Check("aaa")));
    const auto second = WriteManifest(
        "second.xml", "<Environment key=\"Home\" value=\"%ProductRoot%/product\"/>\n" +
                          FileRecord("%Home%/a.dll", Sha256Check("aaa")) +
                          FileRecord("%Home%/b.dll", ict_test::Check("Exists")));

    EXPECT_TRUE(RunVerify(Settings({first, second})));

    // One file each, the same a.dll merged; paths sort by element:
    // product/first.xml comes before second.xml.
    EXPECT_EQ(Counts(Files), "0/0/2");
    EXPECT_EQ(Counts(Manifests), "0/0/1");
    EXPECT_THAT(out_.str(),
                HasSubstr("manifest " + first.string() + ", " + second.string() + " succeeded"));
}

TEST_F(VerifyTest, SingleFileIsTheOnlyObjectChecked) {
    ict_test::WriteText(dir_ / "a.dll", "aaa");
    const auto manifest =
        WriteManifest("m.xml",
                      "<File path=\"%ProductRoot%/a.dll\"><Check type=\"Exists\"/></File>\n"
                      "<File path=\"%ProductRoot%/missing.dll\"><Check type=\"Exists\"/></File>\n"
                      "<File path=\"%ProductRoot%/other.dll\" os=\"MacOS\"><Check/></File>\n"
                      "<Registry path=\"HKLM\\SOFTWARE\\Test\"><Value name=\"V\" type=\"REG_SZ\">"
                      "<Check type=\"Exists\"/></Value></Registry>\n");
    auto settings = Settings({manifest});
    settings.singleFilePath = dir_ / "a.dll";
    EXPECT_TRUE(RunVerify(settings));
    // Records filtered out elsewhere in the manifest are not this run's objects.
    EXPECT_EQ(Counts(Files), "0/0/1");
    EXPECT_EQ(Counts(Registries), "0/0/0");

    settings.singleFilePath = dir_ / "elsewhere.dll";
    EXPECT_FALSE(RunVerify(settings));
    EXPECT_THAT(err_.str(), HasSubstr("File " + (dir_ / "elsewhere.dll").string() +
                                      " not found in manifest " + manifest.string()));
    EXPECT_EQ(Counts(Files), "0/0/1");
}

TEST_F(SideActionsTest, CheckSignatureTriesEveryFileAndTracesFailuresAsErrors) {
    const auto manifest =
        WriteManifest("m.xml",
                      "<File path=\"%ProductRoot%/bad.dll\"><Check/></File>\n"
                      "<File path=\"%ProductRoot%/good.dll\"><Check/></File>\n"
                      "<File path=\"%ProductRoot%/skip.dll\" defined=\"NO\"><Check/></File>\n"
                      "<File path=\"%ProductRoot%/late.dll\"><Check/></File>\n");
    // A verifier that cannot be made fails the run before any file.
    arguments_->SetSignatureCheckingMode(SignatureCheckingMode::Release);
    arguments_->SetSignatureType(static_cast<SignatureType>(3));
    EXPECT_FALSE(CheckSignature(Settings({manifest}), trace_.Tracer(), MakeFactory(), statistics_)
                     .Execute());
    EXPECT_EQ(Counts(Files), "0/0/0");
    EXPECT_THAT(err_.str(), HasSubstr("Unknown signature type 3"));

    const auto factory = MakeFactory<TestFactory>();
    CheckSignature action(Settings({manifest}), trace_.Tracer(), factory, statistics_);
    EXPECT_EQ(action.GetName(), "CheckSignature");
    EXPECT_FALSE(action.Execute());
    EXPECT_EQ(factory->verifier->verified,
              (std::vector<std::string>{"bad.dll", "good.dll", "late.dll"}));
    EXPECT_EQ(Counts(Files), "1/1/2");
    EXPECT_EQ(Counts(Manifests), "2/0/0");  // one failure each run
    EXPECT_THAT(err_.str(), HasSubstr("bad.dll failed. Reason: Invalid signature"));
}

// Which verifier each signature type gets while checking is the verifiers'
// own tests (dsvm, vds) and the side actions' (an unknown type).
TEST_F(FactoryTest, CheckerAndProviderByCheckType) {
    const auto factory = MakeFactory();
    // Registry checkers come from the same table as file checkers.
    const struct {
        CheckType type;
        const char* checker;
        const char* provider;
    } cases[] = {
        {CheckType::Exists, "Exists", "Empty"}, {CheckType::NotExists, "NotExists", "Empty"},
        {CheckType::Sha256, "Hash", "Sha256"},  {CheckType::Gost2012, "Hash", "Gost2012Hash"},
        {CheckType::Value, "Value", "Raw"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(factory->CreateFileChecker({test.type, {1}})->GetName(), test.checker);
        EXPECT_EQ(factory->CreateValueProvider(test.type)->GetName(), test.provider);
    }
    const auto unknown = static_cast<CheckType>(9);
    EXPECT_THAT(ict_test::ThrownText<Exception>([&] {
                    factory->CreateFileChecker({unknown, {}});
                }),
                HasSubstr("9"));
    EXPECT_THAT(ict_test::ThrownText<Exception>([&] { factory->CreateValueProvider(unknown); }),
                HasSubstr("9"));
}

TEST_F(FactoryTest, DisabledCheckingGivesUnsignedVerifierWhateverTheType) {
    arguments_->SetSignatureCheckingMode(SignatureCheckingMode::Disabled);
    for (const auto type : {SignatureType::Dsvm2, SignatureType::Vds,
                            SignatureType::VdsWithFilename, static_cast<SignatureType>(77)}) {
        arguments_->SetSignatureType(type);
        EXPECT_EQ(MakeFactory()->CreateSignatureVerifier()->GetName(), "WithoutSignatureVerifier");
    }
}

TEST_F(FactoryTest, WithoutSignatureVerifierAcceptsUnreadFilesAndReadsContentOnRequest) {
    const WithoutSignatureVerifier verifier;
    // Not even opened: a missing file passes without a content buffer.
    verifier.Verify(dir_ / "missing", nullptr);

    ict_test::WriteText(dir_ / "f", "content");
    std::vector<std::uint8_t> content{9, 9};
    verifier.Verify(dir_ / "f", &content);
    EXPECT_EQ(content, ict_test::BytesOf("content"));

    EXPECT_THAT(
        ict_test::ThrownText<Exception>([&] { verifier.Verify(dir_ / "missing", &content); }),
        HasSubstr("Can't read file " + (dir_ / "missing").string()));
}

TEST(FileLookupTest, EachStepFindsTheEntryMeantAndEquivalenceOnlyForExistingPaths) {
    ict_test::TempDir dir;
    ict_test::TraceCapture trace;
    const auto a = dir / "bin" / "a.dll";
    const auto b = dir / "bin" / "b.dll";
    ict_test::WriteText(a, "a");
    ict_test::WriteText(b, "b");
    const auto missing = dir / "bin" / ".." / "bin" / "c.dll";
    struct Case {
        const char* what;
        std::vector<fs::path> entries;
        fs::path request;
        fs::path found;  // empty: none
    };
    std::vector<Case> cases = {
        {"the original path", {a, b}, a, a},
        {"a relative request, an absolute entry", {a, b}, "bin/a.dll", a},
        {"an absolute request, a relative entry", {"bin/a.dll", "bin/b.dll"}, b, "bin/b.dll"},
        {"by equivalence", {a, b}, dir / "bin" / ".." / "bin" / "b.dll", b},
        {"a missing path", {a, b}, missing, ""},
    };
    // The table holds the canonical form, as a manifest under a resolved folder would.
    if (ict_test::SymbolicLinksWork(dir.Path())) {
        fs::create_symlink(b, dir / "link.dll");
        const auto canonical = fs::canonical(b).make_preferred();
        cases.push_back(
            {"a link by its canonical path", {a, canonical}, dir / "link.dll", canonical});
    }
    const fs::path previous = fs::current_path();
    fs::current_path(dir.Path());
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        FileTable files;
        for (const auto& entry : test.entries) {
            auto file = std::make_unique<FileInfo>();
            file->path = entry;
            files.emplace(entry, std::move(file));
        }
        const auto found = FindFileEntry(files, test.request, *trace.Tracer());
        EXPECT_EQ(found == files.end() ? "" : found->first.string(), test.found.string());
    }
    fs::current_path(previous);
    EXPECT_FALSE(trace.Traced("Find file by equivalence path " + missing.string()));
}

}  // namespace
}  // namespace integrity_check_tool::action
