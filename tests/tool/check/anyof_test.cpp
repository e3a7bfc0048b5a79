#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/all_checks_failed_exception.h"
#include "check/anyof.h"
#include "check/verification_mismatch.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool::check {
namespace {

using ict_test::ScriptedChecker;
using testing::ElementsAre;

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

    EXPECT_EQ(first->calls, 1);
    EXPECT_EQ(second->calls, 1);
    EXPECT_EQ(third->calls, 0);
    EXPECT_EQ(second->lastArguments, "/opt/p/a.dll");
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
    EXPECT_EQ(member->lastArguments, "HKLM\\K|V");

    EXPECT_EQ(ict_test::ThrownText<Exception>([&] {
                  AnyOf(trace.Tracer(), std::vector<IFileCheckerPtr>{}).CheckFileValue("/p/f");
              }),
              "There are no checks for file /p/f");
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] {
                  registryValue(AnyOf(trace.Tracer(), std::vector<IRegistryCheckerPtr>{}));
              }),
              "There are no checks for registry key V in HKLM\\K");
}

}  // namespace
}  // namespace integrity_check_tool::check
