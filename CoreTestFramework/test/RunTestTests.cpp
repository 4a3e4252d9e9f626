#include "Diagnostics/Assert.h"
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestModule.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace Ovelith::CoreTestFramework;

namespace
{
std::vector<std::string> sCalls;

TestModule::RegisterInitializationFunction sInitFirst([](const PlatformInitializationData&)
                                                      { sCalls.push_back("init 1"); });
TestModule::RegisterInitializationFunction sInitSecond([](const PlatformInitializationData&)
                                                       { sCalls.push_back("init 2"); });
TestModule::RegisterCleanupFunction sCleanupFirst([] { sCalls.push_back("cleanup 1"); });
TestModule::RegisterCleanupFunction sCleanupSecond([] { sCalls.push_back("cleanup 2"); });

class RecordingListener : public TestResultListener
{
public:
    void reportFailure(TestFailureReport&& report) override { reports.push_back(std::move(report)); }
    std::vector<TestFailureReport> reports;
};

struct UnknownException
{
};
} // namespace

ZUT_TEST_CLASS(Framework_OutcomeTests, "suite:framework");
class Framework_OutcomeTests final : public Framework_OutcomeTestsBase
{
    ZUT_TEST(Passes) { Assert::IsTrue(true); }
    ZUT_TEST(FailsNonFatally)
    {
        Assert::AreEqual(1, 2);
        Assert::AreEqual(3, 4);
    }
    ZUT_TEST(FailsFatally)
    {
        Assert::AreEqual(1, 2, true);
        Assert::AreEqual(3, 4);
    }
    ZUT_TEST(ThrowsStandardException) { throw std::runtime_error("boom"); }
    ZUT_TEST(RaisesLibraryAssert) { OV_ASSERT(1 == 2, "no capture here"); }
    ZUT_TEST(ThrowsUnknown) { throw UnknownException{}; }
};

class RunTestTests : public ::testing::Test
{
protected:
    void SetUp() override { mModule.initialize({}, &mListener); }
    void TearDown() override { mModule.cleanup(); }

    bool run(const std::string& caseName)
    {
        auto object = mModule.createTestClass({"Framework_OutcomeTests"});
        return mModule.runTest(*object,
                               {"Framework_OutcomeTests.Framework_OutcomeTests::generateTestDataFor_" + caseName});
    }

    TestModule mModule;
    RecordingListener mListener;
};

TEST_F(RunTestTests, DescribesCasesNewestFirstWithTheirPlace)
{
    const auto& classes = mModule.getTestClasses();
    const auto it = std::find_if(classes.begin(), classes.end(),
                                 [](const TestClassDescription& d) { return d.name == "Framework_OutcomeTests"; });
    ASSERT_NE(it, classes.end());
    EXPECT_TRUE(it->tags.has("framework_outcometests"));
    EXPECT_TRUE(it->tags.has("suite:framework"));
    EXPECT_FALSE(it->tags.has("suite:pull_request"));
    ASSERT_EQ(it->functions.size(), 6u);
    EXPECT_EQ(it->functions.front().name, "Framework_OutcomeTests::generateTestDataFor_ThrowsUnknown");
    EXPECT_EQ(it->functions.back().name, "Framework_OutcomeTests::generateTestDataFor_Passes");
    EXPECT_TRUE(it->functions.back().tags.isOnly("passes"));
    EXPECT_NE(it->functions.back().file.find("RunTestTests.cpp"), std::string::npos);
    EXPECT_GT(it->functions.back().line, 0u);
}

TEST_F(RunTestTests, OutcomesAndReports)
{
    struct Row
    {
        const char* caseName;
        bool result;
        size_t reports;
    };
    const std::vector<Row> rows = {
        {"Passes", true, 0},
        {"FailsNonFatally", true, 2},
        {"FailsFatally", false, 1},
        {"ThrowsStandardException", true, 1},
        {"RaisesLibraryAssert", true, 1},
    };
    for (const Row& row : rows)
    {
        mListener.reports.clear();
        EXPECT_EQ(run(row.caseName), row.result) << row.caseName;
        EXPECT_EQ(mListener.reports.size(), row.reports) << row.caseName;
    }
    mListener.reports.clear();
    run("ThrowsStandardException");
    ASSERT_EQ(mListener.reports.size(), 1u);
    const TestFailureReport& report = mListener.reports[0];
    EXPECT_EQ(report.function, "Framework_OutcomeTests::generateTestDataFor_ThrowsStandardException");
    EXPECT_EQ(report.message, "boom");
    EXPECT_NE(report.file.find("RunTestTests.cpp"), std::string::npos);
    EXPECT_FALSE(report.details.has_value());

    mListener.reports.clear();
    run("RaisesLibraryAssert");
    ASSERT_EQ(mListener.reports.size(), 1u);
    EXPECT_TRUE(mListener.reports[0].message.starts_with("Assertion failed: ")) << mListener.reports[0].message;
}

TEST_F(RunTestTests, OtherExceptionsLeaveRunTest)
{
    EXPECT_THROW(run("ThrowsUnknown"), UnknownException);
}

TEST_F(RunTestTests, UnknownIdsAssert)
{
    const auto asserts = Ovelith::Diagnostics::collectAsserts(
        [&]
        {
            EXPECT_EQ(mModule.createTestClass({"Nope%d"}), nullptr);
            auto object = mModule.createTestClass({"Framework_OutcomeTests"});
            EXPECT_TRUE(mModule.runTest(*object, {"Framework_OutcomeTests.Missing"}));
        });
    ASSERT_EQ(asserts.size(), 2u);
    // The finished text is read as a format, so a '%' in a name is taken as a directive.
    EXPECT_TRUE(asserts[0].starts_with("Test class Nope")) << asserts[0];
    EXPECT_NE(asserts[0], "Test class Nope%d not found.");
    EXPECT_EQ(asserts[1], "Test function Framework_OutcomeTests.Missing not found.");
}

TEST(ModuleLifecycleTests, UseCountGuardsChainsAndListener)
{
    TestModule module(nullptr);
    RecordingListener first;
    RecordingListener second;
    sCalls.clear();
    module.initialize({}, &first);
    module.initialize({}, &second);
    EXPECT_EQ(getTestResultListener(), &first);
    EXPECT_EQ(sCalls, (std::vector<std::string>{"init 1", "init 2"}));
    module.cleanup();
    EXPECT_EQ(getTestResultListener(), &first);
    module.cleanup();
    EXPECT_EQ(getTestResultListener(), nullptr);
    EXPECT_EQ(sCalls, (std::vector<std::string>{"init 1", "init 2", "cleanup 2", "cleanup 1"}));
}
