#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "application.h"
#include "arguments/checker.h"
#include "ruk/exception.h"

namespace {

using namespace integrity_check_tool;
using testing::HasSubstr;

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

}  // namespace
