#include "HostReportFixture.h"
#include "TestHost/ConsoleReporter.h"
#include "TestHost/Listing.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Ovelith::TestHost;
using namespace HostTestSupport;

TEST(HostConsoleTest, PrintsEachCaseItsFailuresAndASummaryLast)
{
    const TestPlan plan = samplePlan();
    std::ostringstream out;
    ConsoleReporter reporter(out, ConsoleSettings{});
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
        ConsoleReporter reporter(*out, ConsoleSettings{out == &coloured});
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

TEST(HostConsoleTest, SettingsAddProgressStartsAndSlowestOrLeaveOnlyFailures)
{
    // Two rounds of one plan, each round's class marked with its round.
    TestPlan plan = samplePlan();
    plan.rounds = 2;
    plan.classes.push_back(plan.classes[0]);
    plan.classes[1].round = 1;
    const auto replay = [&](ConsoleSettings settings)
    {
        std::ostringstream out;
        ConsoleReporter reporter(out, settings);
        reporter.onRunStarted(plan);
        for (const PlannedClass& testClass : plan.classes)
        {
            reporter.onCaseRunning(testClass, testClass.cases[0]);
            reporter.onCaseStarted(testClass, testClass.cases[0]);
            reporter.onCaseFinished(testClass, testClass.cases[0], CaseOutcome::Passed, 3ms);
            reporter.onCaseRunning(testClass, testClass.cases[1]);
            reporter.onCaseStarted(testClass, testClass.cases[1]);
            reporter.onCaseReport(testClass, testClass.cases[1],
                                  TestFailureReport{"bad", "/b.cpp", "4", "no", std::nullopt});
            reporter.onCaseFinished(testClass, testClass.cases[1], CaseOutcome::Failed,
                                    testClass.round == 0 ? 1ms : 5ms);
            reporter.onCaseFinished(testClass, testClass.cases[2], CaseOutcome::Skipped, 0ns);
        }
        reporter.onRunFinished({2, 2, 2, 20ms});
        return out.str();
    };

    EXPECT_EQ(replay(ConsoleSettings{false, true, true, false, 2}), R"(Running 6 cases of 2 classes from Mod (/m.so)
Round 1 of 2
RUN   K.ok
[1/6] PASS  K.ok (3.000 ms)
RUN   K.bad
[2/6] FAIL  K.bad (1.000 ms)
    /b.cpp:4: no
[3/6] SKIP  K.later
Round 2 of 2
RUN   K.ok
[4/6] PASS  K.ok (3.000 ms)
RUN   K.bad
[5/6] FAIL  K.bad (5.000 ms)
    /b.cpp:4: no
[6/6] SKIP  K.later

Slowest 2 cases:
        5.000 ms  K.bad
        3.000 ms  K.ok
Failed cases:
    K.bad (round 1)
    K.bad (round 2)
Ran 4 cases in 20.000 ms
2 passed, 2 failed, 2 skipped
)");
    // Brief keeps failed cases and the summary, and needs no start lines: a crash names its case itself.
    EXPECT_EQ(replay(ConsoleSettings{false, false, true, true, 0}), R"(Running 6 cases of 2 classes from Mod (/m.so)
FAIL  K.bad (1.000 ms)
    /b.cpp:4: no
FAIL  K.bad (5.000 ms)
    /b.cpp:4: no

Failed cases:
    K.bad (round 1)
    K.bad (round 2)
Ran 4 cases in 20.000 ms
2 passed, 2 failed, 2 skipped
)");
}

TEST(HostConsoleTest, RoundsUntilAFailureCountEachRoundAndAStragglerPrintsNoHeader)
{
    // Rounds until a failure get one plan per round; the first carries the count of a round.
    TestPlan first = samplePlan();
    first.rounds = 0;
    PlannedClass second = first.classes[0];
    second.round = 1;
    std::ostringstream out;
    ConsoleReporter reporter(out, ConsoleSettings{false, true});
    reporter.onRunStarted(first);
    reporter.onCaseFinished(first.classes[0], first.classes[0].cases[0], CaseOutcome::Passed, 1ms);
    reporter.onCaseFinished(second, second.cases[0], CaseOutcome::Passed, 1ms);
    // A worker may finish a case of an earlier round after a later round began.
    reporter.onCaseFinished(first.classes[0], first.classes[0].cases[1], CaseOutcome::Failed, 1ms);
    reporter.onRunFinished({2, 1, 0, 3ms});
    EXPECT_EQ(out.str(), R"(Running 3 cases of 1 class from Mod (/m.so)
Round 1
[1/3] PASS  K.ok (1.000 ms)
Round 2
[1/3] PASS  K.ok (1.000 ms)
[2/3] FAIL  K.bad (1.000 ms)

Failed cases:
    K.bad (round 1)
Ran 3 cases in 3.000 ms
2 passed, 1 failed
)");
}

TEST(HostConsoleTest, LibraryTextLosesItsMarkupAndTrailingBlanksOffATerminal)
{
    const TestPlan plan = samplePlan();
    const auto& testClass = plan.classes[0];
    const auto run = [&](bool colour)
    {
        std::ostringstream out;
        ConsoleReporter reporter(out, ConsoleSettings{colour});
        reporter.onRunStarted(plan);
        reporter.onCaseStarted(testClass, testClass.cases[1]);
        reporter.onCaseReport(testClass, testClass.cases[1],
                              TestFailureReport{"bad", "/b.cpp", "4",
                                                "§cMissing Versioned Modules: \n    §c[@m - 2.0.0] requested  ",
                                                TestFailureDetails{"==", "§ca ", "b"}});
        reporter.onCaseFinished(testClass, testClass.cases[1], CaseOutcome::Failed, 1ms);
        return out.str();
    };
    const std::string plain = run(false);
    // The operands of a comparison are shown as they are: there the markup may be what differs.
    EXPECT_NE(plain.find("    /b.cpp:4: Missing Versioned Modules:\n    [@m - 2.0.0] requested\n"
                         "        expected: §ca  == b\n"),
              std::string::npos)
        << plain;
    const std::string coloured = run(true);
    EXPECT_NE(coloured.find(": \033[91mMissing Versioned Modules:\033[0m\n    \033[91m[@m - 2.0.0] requested\033[0m\n"),
              std::string::npos)
        << coloured;
}

TEST(HostConsoleTest, ListsAsJsonWithEveryFieldEscaped)
{
    TestPlan plan = samplePlan();
    plan.classes[0].cases.resize(2);
    plan.classes[0].cases[1].name = "q\"uote\\d";
    std::ostringstream out;
    writeJsonListing(plan, out);
    EXPECT_EQ(out.str(), R"({
  "module": "Mod",
  "path": "/m.so",
  "classes": [
    {"name": "K", "tags": ["k", "suite:pull_request", "unit_test"], "cases": [
      {"name": "ok", "fullName": "K.ok", "tags": ["ok"], "file": "/src/k&.cpp", "line": 3},
      {"name": "q\"uote\\d", "fullName": "K.q\"uote\\d", "tags": ["bad", "slow"], "file": "/src/k&.cpp", "line": 9}
    ]}
  ]
}
)");
}
