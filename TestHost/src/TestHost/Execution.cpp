#include "TestHost/Execution.h"

namespace Ovelith::TestHost
{
void RunListenerList::onRunStarted(const TestPlan& plan)
{
    for (IRunListener* listener : mListeners)
    {
        listener->onRunStarted(plan);
    }
}

void RunListenerList::onCaseRunning(const PlannedClass& testClass, const PlannedCase& testCase)
{
    for (IRunListener* listener : mListeners)
    {
        listener->onCaseRunning(testClass, testCase);
    }
}

void RunListenerList::onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase)
{
    for (IRunListener* listener : mListeners)
    {
        listener->onCaseStarted(testClass, testCase);
    }
}

void RunListenerList::onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                                   const CoreTestFramework::TestFailureReport& report)
{
    for (IRunListener* listener : mListeners)
    {
        listener->onCaseReport(testClass, testCase, report);
    }
}

void RunListenerList::onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                                     std::chrono::nanoseconds duration)
{
    for (IRunListener* listener : mListeners)
    {
        listener->onCaseFinished(testClass, testCase, outcome, duration);
    }
}

void RunListenerList::onRunFinished(const RunSummary& summary)
{
    for (IRunListener* listener : mListeners)
    {
        listener->onRunFinished(summary);
    }
}

void OutcomeCounter::onCaseFinished(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/,
                                    CaseOutcome outcome, std::chrono::nanoseconds /*duration*/)
{
    switch (outcome)
    {
    case CaseOutcome::Passed:
        ++mSummary.passed;
        break;
    case CaseOutcome::Failed:
        ++mSummary.failed;
        break;
    case CaseOutcome::Skipped:
        ++mSummary.skipped;
        break;
    }
}
} // namespace Ovelith::TestHost
