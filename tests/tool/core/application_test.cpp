#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "action/composite.h"
#include "application.h"
#include "arguments/checker.h"
#include "ruk/exception.h"

namespace {

using namespace integrity_check_tool;
using testing::HasSubstr;
using testing::InSequence;
using testing::Return;

// A locator whose framework service is missing.
class BrokenLocator : public ruk::IServiceLocator {
public:
    ruk::result_t GetService(ruk::intrusive_ptr<ruk::IService>*) override {
        return ruk::result::NotFound;
    }
    ruk::result_t CreateTracer(ruk::intrusive_ptr<ruk::ITracer>* tracer) override {
        return ruk::GetRootServiceLocator()->CreateTracer(tracer);
    }
};

TEST(ApplicationTest, MissingFrameworkServiceFailsWithTheDocumentedLocation) {
    auto arguments = std::make_shared<CheckerArguments>();
    arguments->Parse({"checker", "--version"});
    BrokenLocator locator;
    try {
        Application application(arguments->BuildConfiguration(), arguments, &locator);
        FAIL() << "application created";
    } catch (const ruk::AssertionFailed& error) {
        EXPECT_EQ(error.GetFile(), "product/tool/integrity_check_tool/source/application");
        EXPECT_EQ(error.GetLine(), 89);
        EXPECT_THAT(error.what(), HasSubstr("Expression failed"));
    }
}

class MockAction : public action::IAction {
public:
    MOCK_METHOD(std::string, GetName, (), (const, override));
    MOCK_METHOD(bool, Execute, (), (override));
};

TEST(CompositeTest, RunsEveryChildOnceInOrderAndSucceedsOnlyWhenAllDo) {
    const std::vector<std::pair<std::vector<bool>, bool>> cases = {
        {{true, false, true}, false}, {{false, true}, false}, {{true, true}, true}, {{}, true}};
    for (const auto& [results, succeeds] : cases) {
        InSequence order;
        std::vector<action::IActionPtr> children;
        for (const bool result : results) {
            auto child = std::make_shared<MockAction>();
            EXPECT_CALL(*child, Execute()).WillOnce(Return(result));
            children.push_back(child);
        }
        action::Composite composite(children);
        EXPECT_EQ(composite.GetName(), "Composite");
        EXPECT_EQ(composite.Execute(), succeeds);
    }
}

}  // namespace
