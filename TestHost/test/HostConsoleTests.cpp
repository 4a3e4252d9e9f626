#include "HostReportFixture.h"
#include "TestHost/ConsoleReporter.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Ovelith::TestHost;
using namespace HostTestSupport;

TEST(HostConsoleTest, PrintsEachCaseItsFailuresAndASummaryLast)
{
    const TestPlan plan = samplePlan();
    std::ostringstream out;
    ConsoleReporter reporter(out, false);
    replaySampleRun(plan, reporter);

    const std::string expected = R"(Running 3 cases of 1 class from Mod (/m.so)
PASS  K.ok (1.600 ms)
FAIL  K.bad (2.400 ms)
    /src/k&.cpp:10: a < b "q"
        expected: 41 == 42
    /src/h.cpp:20: second
        in helper
SKIP  K.later

Failed cases:
    K.bad
Ran 2 cases in 12.000 ms
1 passed, 1 failed, 1 skipped
)";
    EXPECT_EQ(out.str(), expected);
}

TEST(HostConsoleTest, ColoursOnlyWhenAskedAndCountsSkippedOnlyWhenAny)
{
    const TestPlan plan = samplePlan();
    const auto& testClass = plan.classes[0];
    std::ostringstream plain;
    std::ostringstream coloured;
    for (std::ostringstream* out : {&plain, &coloured})
    {
        ConsoleReporter reporter(*out, out == &coloured);
        reporter.onRunStarted(plan);
        reporter.onCaseFinished(testClass, testClass.cases[0], CaseOutcome::Passed, {});
        reporter.onCaseFinished(testClass, testClass.cases[1], CaseOutcome::Failed, {});
        reporter.onRunFinished({1, 1, 0, {}});
    }
    EXPECT_EQ(plain.str().find('\033'), std::string::npos);
    EXPECT_TRUE(plain.str().ends_with("\n1 passed, 1 failed\n")) << plain.str();
    EXPECT_NE(coloured.str().find("\033[32mPASS\033[0m  K.ok"), std::string::npos) << coloured.str();
    EXPECT_NE(coloured.str().find("\033[31mFAIL\033[0m  K.bad"), std::string::npos);
    EXPECT_TRUE(coloured.str().ends_with("\033[31m1 passed, 1 failed\033[0m\n")) << coloured.str();
}

TEST(HostConsoleTest, ListsClassesWithTagsAndCasesWithPlaces)
{
    std::ostringstream out;
    writeListing(samplePlan(), out);
    EXPECT_EQ(out.str(), R"(Mod: 1 class, 3 cases (/m.so)
K  [k, suite:pull_request, unit_test]
    K.ok  [ok]  /src/k&.cpp:3
    K.bad  [bad, slow]  /src/k&.cpp:9
    K.later  [later]  /src/k&.cpp:12
)");
}
