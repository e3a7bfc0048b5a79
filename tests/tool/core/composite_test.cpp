#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "action/composite.h"

namespace {

using namespace integrity_check_tool;
using testing::InSequence;
using testing::Return;

class MockAction : public action::IAction {
public:
    MOCK_METHOD(std::string, GetName, (), (const, override));
    MOCK_METHOD(bool, Execute, (), (override));
};

std::shared_ptr<MockAction> Child(bool result) {
    auto child = std::make_shared<MockAction>();
    EXPECT_CALL(*child, Execute()).WillOnce(Return(result));
    return child;
}

TEST(CompositeTest, RunsEveryChildOnceInOrderAndSucceedsOnlyWhenAllDo) {
    {
        InSequence order;
        auto first = Child(true);
        auto failing = Child(false);
        auto last = Child(true);
        action::Composite composite({first, failing, last});
        EXPECT_EQ(composite.GetName(), "Composite");
        EXPECT_FALSE(composite.Execute());
    }
    {
        InSequence order;
        auto failing = Child(false);
        auto second = Child(true);
        EXPECT_FALSE(action::Composite({failing, second}).Execute());
    }
    {
        auto a = Child(true);
        auto b = Child(true);
        EXPECT_TRUE(action::Composite({a, b}).Execute());
    }
    EXPECT_TRUE(action::Composite({}).Execute());
}

}  // namespace
