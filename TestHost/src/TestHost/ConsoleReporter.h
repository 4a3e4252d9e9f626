#pragma once

#include "TestHost/Execution.h"

#include <functional>
#include <iosfwd>
#include <optional>
#include <queue>
#include <string>
#include <unordered_map>
#include <vector>

namespace Ovelith::TestHost
{
struct ConsoleSettings
{
    bool color = false;
    // "[12/307] " before each result line: for a terminal, where a person watches the run.
    bool progress = false;
    // A line naming each case as it starts, so that a case that takes the process down is named.
    bool announceStarts = false;
    // Only failed cases, with their reports, and the summary.
    bool brief = false;
    // After the run, the slowest this many cases.
    size_t durations = 0;
};

// The report a person reads: one line per case with its outcome and time, each failure under its case, and a
// last line "N passed, N failed" (", N skipped" when some were).
class ConsoleReporter final : public IRunListener
{
public:
    ConsoleReporter(std::ostream& out, ConsoleSettings settings) : mOut(out), mSettings(settings) {}

    void onRunStarted(const TestPlan& plan) override;
    void onCaseRunning(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                      const CoreTestFramework::TestFailureReport& report) override;
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;
    void onRunFinished(const RunSummary& summary) override;

private:
    using Timed = std::pair<std::chrono::nanoseconds, std::string>;

    std::string _paint(const char* colorCode, const std::string& text) const;
    // Prints the header of the round `testClass` belongs to when it is the first event of that round.
    void _enterRound(const PlannedClass& testClass);
    std::string _roundTag(size_t round) const;

    std::ostream& mOut;
    ConsoleSettings mSettings;
    // Cases of the plan, and how many of them finished. Rounds until a failure count each round anew.
    size_t mTotal = 0;
    size_t mDone = 0;
    // The plan's number of rounds (0: until one fails) and the latest round an event came from.
    size_t mRounds = 1;
    std::optional<size_t> mRound;
    // The running case's failures, printed under its result line.
    std::vector<std::string> mPendingReports;
    // Where each case stands in the plan, so that failed cases are listed in plan order however they finished.
    std::unordered_map<std::string, size_t> mPlanPosition;
    struct FailedCase
    {
        size_t round;
        size_t position;
        std::string name;
    };
    std::vector<FailedCase> mFailedCases;
    // The slowest cases so far, the fastest of them on top.
    std::priority_queue<Timed, std::vector<Timed>, std::greater<>> mSlowest;
};
} // namespace Ovelith::TestHost
