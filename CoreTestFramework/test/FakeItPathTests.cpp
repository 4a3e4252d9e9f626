// Built against the framework compiled with <fakeit.hpp> available.
#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestModule.h"

#include <fakeit.hpp>
#include <gtest/gtest.h>

using namespace Ovelith::CoreTestFramework;

ZUT_TEST_CLASS(Framework_FakeItTests);
class Framework_FakeItTests final : public Framework_FakeItTestsBase
{
    ZUT_TEST(FailedVerification)
    {
        throw fakeit::UnexpectedMethodCallException("Unexpected method invocation: mock.foo()");
    }
};

namespace
{
class RecordingListener : public TestResultListener
{
public:
    void reportFailure(TestFailureReport&& report) override { reports.push_back(std::move(report)); }
    std::vector<TestFailureReport> reports;
};
} // namespace

TEST(FakeItPathTests, FakeItExceptionIsReportedWithItsText)
{
    TestModule module;
    RecordingListener listener;
    module.initialize({}, &listener);
    auto object = module.createTestClass({"Framework_FakeItTests"});
    EXPECT_TRUE(module.runTest(*object, {"Framework_FakeItTests.Framework_FakeItTests::generateTestDataFor_"
                                         "FailedVerification"}));
    module.cleanup();
    ASSERT_EQ(listener.reports.size(), 1u);
    EXPECT_EQ(listener.reports[0].message, "Unexpected method invocation: mock.foo()");
    EXPECT_EQ(listener.reports[0].function, "Framework_FakeItTests::generateTestDataFor_FailedVerification");
}
