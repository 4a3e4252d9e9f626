#pragma once

#include "TestHost/Execution.h"
#include "ZentaryUnitTest/TestResult.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace HostTestSupport
{
using namespace std::chrono_literals;
using Ovelith::CoreTestFramework::TestFailureDetails;
using Ovelith::CoreTestFramework::TestFailureReport;
using Ovelith::TestHost::CaseOutcome;

inline std::string readWholeFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// A run of three cases of one class: one passes, one fails with two reports (a comparison, then a check in a
// helper), one is skipped. Texts carry characters that XML must escape.
inline Ovelith::TestHost::TestPlan samplePlan()
{
    return {"Mod",
            "/m.so",
            {{"K",
              {"k", "suite:pull_request", "unit_test"},
              {{"K::generateTestDataFor_ok", "ok", "/src/k&.cpp", 3, {"ok"}},
               {"K::generateTestDataFor_bad", "bad", "/src/k&.cpp", 9, {"bad", "slow"}},
               {"K::generateTestDataFor_later", "later", "/src/k&.cpp", 12, {"later"}}}}}};
}

inline void replaySampleRun(const Ovelith::TestHost::TestPlan& plan, Ovelith::TestHost::IRunListener& listener)
{
    const auto& testClass = plan.classes[0];
    listener.onRunStarted(plan);
    listener.onCaseStarted(testClass, testClass.cases[0]);
    listener.onCaseFinished(testClass, testClass.cases[0], CaseOutcome::Passed, 1600us);
    listener.onCaseStarted(testClass, testClass.cases[1]);
    listener.onCaseReport(
        testClass, testClass.cases[1],
        TestFailureReport{"bad", "/src/k&.cpp", "10", "a < b \"q\"", TestFailureDetails{"==", "41", "42"}});
    listener.onCaseReport(testClass, testClass.cases[1],
                          TestFailureReport{"helper", "/src/h.cpp", "20", "second", std::nullopt});
    listener.onCaseFinished(testClass, testClass.cases[1], CaseOutcome::Failed, 2400us);
    listener.onCaseFinished(testClass, testClass.cases[2], CaseOutcome::Skipped, 0ns);
    listener.onRunFinished({1, 1, 1, 12ms});
}
} // namespace HostTestSupport
