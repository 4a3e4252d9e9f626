#include "Diagnostics/Assert.h"
#include "ZentaryUnitTest/Assert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

using namespace Ovelith::CoreTestFramework;
namespace Diagnostics = Ovelith::Diagnostics;

namespace
{
class RecordingListener : public TestResultListener
{
public:
    void reportFailure(TestFailureReport&& report) override { reports.push_back(std::move(report)); }
    std::vector<TestFailureReport> reports;
};

class CheckTests : public ::testing::Test
{
protected:
    void SetUp() override { setTestResultListener(&mListener); }
    void TearDown() override { setTestResultListener(nullptr); }

    const std::vector<TestFailureReport>& reports() const { return mListener.reports; }

private:
    RecordingListener mListener;
};

struct Opaque
{
    int value = 0;
    bool operator==(const Opaque&) const { return false; }
};

void assertTwice(int value)
{
    OV_ASSERT(value > 10, "first %d", value);
    OV_ASSERT(value > 20, "second %d", value);
}
} // namespace

TEST(AssertCaptureTests, UncapturedAssertThrowsThePlaceNotTheReason)
{
    try
    {
        assertTwice(1);
        FAIL() << "no exception";
    }
    catch (const std::runtime_error& error)
    {
        const std::string text = error.what();
        EXPECT_TRUE(text.starts_with("Assertion failed: void ")) << text;
        EXPECT_NE(text.find("::assertTwice(int) "), std::string::npos) << text;
        EXPECT_NE(text.find("AssertTests.cpp"), std::string::npos) << text;
        EXPECT_EQ(text.find("first"), std::string::npos) << "the message stays out of the text";
    }
}

TEST(AssertCaptureTests, InterceptFormatsEachMessageAndContinues)
{
    std::vector<std::string> seen;
    Diagnostics::interceptAsserts([] { assertTwice(5); }, [&](std::string message) { seen.push_back(message); });
    EXPECT_EQ(seen, (std::vector<std::string>{"first 5", "second 5"}));
}

TEST(AssertCaptureTests, CaptureEndsOnReturnAndOnException)
{
    Diagnostics::interceptAsserts([] {}, [](std::string) {});
    EXPECT_THROW(assertTwice(1), std::runtime_error);

    EXPECT_THROW(Diagnostics::interceptAsserts([] { throw 42; }, [](std::string) {}), int);
    EXPECT_THROW(assertTwice(1), std::runtime_error);
}

TEST(AssertCaptureTests, ThrowOnAssertStopsTheBodyAtTheFirstAssert)
{
    std::string thrown;
    try
    {
        Diagnostics::throwOnAssert<std::string>([] { assertTwice(15); });
    }
    catch (const std::string& message)
    {
        thrown = message;
    }
    EXPECT_EQ(thrown, "second 15");
    EXPECT_THROW(assertTwice(1), std::runtime_error);
}

TEST_F(CheckTests, ComparisonFailuresCarryOperatorOperandsAndPlace)
{
    Assert::AreEqual(1, 2);
    const unsigned line = __LINE__ - 1;
    Assert::AreNotEqual(std::string("x"), std::string("x"));
    Assert::IsLessThan(3.5, 2.25);
    Assert::AreEqual(1, 1);
    Assert::IsLessThan(1, 2);

    ASSERT_EQ(reports().size(), 3u);
    EXPECT_EQ(reports()[0].function, "TestBody");
    EXPECT_EQ(reports()[0].line, std::to_string(line));
    EXPECT_NE(reports()[0].file.find("AssertTests.cpp"), std::string::npos);
    EXPECT_EQ(reports()[0].message, "Assertion failed");
    const std::vector<std::array<std::string, 3>> expected = {{"==", "1", "2"}, {"!=", "x", "x"}, {"<", "3.5", "2.25"}};
    for (size_t i = 0; i < expected.size(); ++i)
    {
        ASSERT_TRUE(reports()[i].details.has_value());
        EXPECT_EQ(reports()[i].details->comparison, expected[i][0]);
        EXPECT_EQ(reports()[i].details->left, expected[i][1]);
        EXPECT_EQ(reports()[i].details->right, expected[i][2]);
    }
}

TEST_F(CheckTests, MessagesFormatTheirArgumentsOnlyOnFailure)
{
    Assert::IsTrue(false, false, "value {} of {}", 3, "x");
    Assert::IsFalse(true, false);
    Assert::IsTrue(true, false, "{} never formatted", 1);
    ASSERT_EQ(reports().size(), 2u);
    EXPECT_EQ(reports()[0].message, "value 3 of x");
    EXPECT_FALSE(reports()[0].details.has_value());
    EXPECT_EQ(reports()[1].message, "Assertion failed");
}

TEST_F(CheckTests, TypesWithoutPrinterShowShortNameAndAddress)
{
    const Opaque left;
    const Opaque right;
    Assert::AreEqual(left, right);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_TRUE(reports()[0].details->left.starts_with("Opaque: 0x")) << reports()[0].details->left;
    EXPECT_NE(reports()[0].details->left, reports()[0].details->right);
}

TEST_F(CheckTests, StringsCompareWithOrWithoutCase)
{
    Assert::AreEqual("Hello", "hELLO", true, false);
    EXPECT_TRUE(reports().empty());
    Assert::AreEqual("Hello", "hELLO", false, false, "case counts");
    Assert::AreEqual("Hello", "Hell", true, false);
    ASSERT_EQ(reports().size(), 2u);
    EXPECT_EQ(reports()[0].message, "case counts");
    EXPECT_EQ(reports()[0].details->left, "Hello");
}

TEST_F(CheckTests, AreCloseUsesAbsoluteToleranceAndLetsNaNPass)
{
    Assert::AreClose(1.0, 1.05, 0.1);
    Assert::AreClose(1.0, 1.05, -0.1);
    Assert::AreClose(std::nan(""), 1.0, 0.1);
    EXPECT_TRUE(reports().empty());
    Assert::AreClose(1.0, 1.5, 0.1);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0].details->comparison, "==");
}

TEST_F(CheckTests, FatalCheckReportsOnceThenThrows)
{
    EXPECT_THROW(Assert::AreEqual(1, 2, true, "stop"), Assert::AssertException);
    ASSERT_EQ(reports().size(), 1u);
    try
    {
        Assert::IsTrue(false, true, "stop {}", 2);
    }
    catch (const Assert::AssertException& exception)
    {
        EXPECT_STREQ(exception.what(), "stop 2");
    }
}

TEST_F(CheckTests, CheckDebugAssertsMatchesWholeMessagesIgnoringCase)
{
    Assert::CheckDebugAsserts([] { assertTwice(15); }, "SECOND 1\\d");
    EXPECT_TRUE(reports().empty());
    Assert::CheckDebugAsserts([] { assertTwice(15); }, "second");
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0].message, "Actual: `second 15`, Expected: `second`");
}

TEST_F(CheckTests, CheckDebugAssertsContinuingComparesInOrderOrCounts)
{
    Assert::CheckDebugAsserts([] { assertTwice(5); }, {"first 5", "second 5"});
    EXPECT_TRUE(reports().empty());
    Assert::CheckDebugAsserts([] { assertTwice(5); }, {"first 5", "first 5"});
    Assert::CheckDebugAsserts([] { assertTwice(5); }, "first 5");
    Assert::CheckDebugAsserts([] {}, "anything");
    ASSERT_EQ(reports().size(), 3u);
    EXPECT_EQ(reports()[0].message, "Actual: `second 5`, Expected: `first 5`");
    EXPECT_EQ(reports()[1].message, "We expected 1 asserts and got 2 asserts.");
    EXPECT_EQ(reports()[2].message, "Assert not raised.");
}

TEST_F(CheckTests, CheckDebugAssertsStoppingEndsTheBodyAtTheAssert)
{
    bool afterAssert = false;
    Assert::CheckDebugAsserts(
        [&]
        {
            assertTwice(5);
            afterAssert = true;
        },
        "first 5", false, false);
    EXPECT_FALSE(afterAssert);
    EXPECT_TRUE(reports().empty());

    bool ran = false;
    EXPECT_THROW(Assert::CheckDebugAsserts([&] { ran = true; }, {"a", "b"}, false, false), Assert::AssertException);
    EXPECT_FALSE(ran);
    ASSERT_EQ(reports().size(), 1u);
    EXPECT_EQ(reports()[0].message, "Only a single assert can be emitted when 'doContinue' is false");

    Assert::CheckDebugAsserts([] {}, "x", false, false);
    ASSERT_EQ(reports().size(), 2u);
    EXPECT_EQ(reports()[1].message, "Assert not raised.");
}

TEST_F(CheckTests, CheckNoDebugAssertsFailsOnAnyThrow)
{
    Assert::CheckNoDebugAsserts([] { assertTwice(50); });
    EXPECT_TRUE(reports().empty());
    Assert::CheckNoDebugAsserts([] { assertTwice(5); });
    Assert::CheckNoDebugAsserts([] { throw std::logic_error("x"); }, false, "no throw please");
    ASSERT_EQ(reports().size(), 2u);
    EXPECT_EQ(reports()[1].message, "no throw please");
}
