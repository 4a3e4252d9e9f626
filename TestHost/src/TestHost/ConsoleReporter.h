#pragma once

#include "TestHost/Execution.h"

#include <iosfwd>
#include <string>
#include <unordered_map>
#include <vector>

namespace Ovelith::TestHost
{
// The report a person reads: one line per case with its outcome and time, each failure under its case, and a
// last line "N passed, N failed" (", N skipped" when some were).
class ConsoleReporter final : public IRunListener
{
public:
    ConsoleReporter(std::ostream& out, bool color) : mOut(out), mColor(color) {}

    void onRunStarted(const TestPlan& plan) override;
    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                      const CoreTestFramework::TestFailureReport& report) override;
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;
    void onRunFinished(const RunSummary& summary) override;

private:
    std::string _paint(const char* colorCode, const std::string& text) const;

    std::ostream& mOut;
    bool mColor;
    // The running case's failures, printed under its result line.
    std::vector<std::string> mPendingReports;
    // Where each case stands in the plan, so that failed cases are listed in plan order however they finished.
    std::unordered_map<const PlannedCase*, size_t> mPlanPosition;
    std::vector<std::pair<size_t, std::string>> mFailedCases;
};

// The selection without running it: each class with its tags, then one line per case with its own tags and
// place.
void writeListing(const TestPlan& plan, std::ostream& out);
} // namespace Ovelith::TestHost
