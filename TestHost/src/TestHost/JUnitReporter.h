#pragma once

#include "TestHost/Execution.h"

#include <iosfwd>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Ovelith::TestHost
{
// Escapes text for XML 1.0 content, or for an attribute value when `attribute` is set. Bytes that XML cannot
// carry (most control characters, broken UTF-8, U+FFFE and U+FFFF) are written as the text "\xNN", so that the
// document stays well-formed and the bytes stay visible.
std::string escapeXml(std::string_view text, bool attribute);

// Collects a run and writes it as JUnit XML: one testsuite per class, classname "<module>.<class>", and one
// failure per failed case that holds every report of that case, since readers keep only one.
class JUnitReporter final : public IRunListener
{
public:
    void onRunStarted(const TestPlan& plan) override;
    void onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                      const CoreTestFramework::TestFailureReport& report) override;
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;
    void onRunFinished(const RunSummary& summary) override;

    // The cases that finished, grouped by class in plan order. Valid while the plan of the run lives.
    void write(std::ostream& out) const;

private:
    struct CaseRecord
    {
        std::string firstMessage;
        std::string failureText;
        CaseOutcome outcome = CaseOutcome::Passed;
        std::chrono::nanoseconds duration{0};
        bool finished = false;
    };

    CaseRecord& _record(const PlannedCase& testCase) { return mRecords[&testCase]; }

    const TestPlan* mPlan = nullptr;
    std::unordered_map<const PlannedCase*, CaseRecord> mRecords;
    std::chrono::nanoseconds mDuration{0};
};
} // namespace Ovelith::TestHost
