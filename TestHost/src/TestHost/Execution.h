#pragma once

#include "TestHost/TestPlan.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Ovelith::CoreTestFramework
{
struct TestFailureReport;
}

namespace Ovelith::TestHost
{
enum class CaseOutcome
{
    Passed,
    Failed,
    // Not run, because an earlier failure ended the run.
    Skipped,
};

struct RunSummary
{
    size_t passed = 0;
    size_t failed = 0;
    size_t skipped = 0;
    std::chrono::nanoseconds duration{0};
};

// What a run tells its reporters. The class and case references point into the plan being run.
class IRunListener
{
public:
    virtual ~IRunListener() = default;

    // Once per run, with the plan of its first round. A run of rounds until one fails executes one plan per
    // round, each of which is not kept alive past its round; a class's `round` tells which one a case is in.
    virtual void onRunStarted(const TestPlan& /*plan*/) {}
    // A case has begun to run, as soon as the executor knows: in process just before onCaseStarted, from a
    // worker when the host hands the case over or the one before it ends. It may come between another case's
    // events.
    virtual void onCaseRunning(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/) {}
    virtual void onCaseStarted(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/) {}
    // Every failure of the running case, in the order they happen.
    virtual void onCaseReport(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/,
                              const CoreTestFramework::TestFailureReport& /*report*/)
    {
    }
    // Once per case of the plan; skipped cases get this call alone.
    virtual void onCaseFinished(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/,
                                CaseOutcome /*outcome*/, std::chrono::nanoseconds /*duration*/)
    {
    }
    virtual void onRunFinished(const RunSummary& /*summary*/) {}
};

struct ExecutionSettings
{
    // Stop once this many cases failed; the rest are reported as skipped. 0: never stop.
    size_t maxFailures = 0;
};

// Runs the cases of a plan and tells a listener what happens. Selection and reporting know nothing of how or
// where a case runs, so an executor is the one part to replace for a different way of running.
class IExecutor
{
public:
    virtual ~IExecutor() = default;

    // Emits onCaseStarted, onCaseReport and onCaseFinished for the plan's cases; the run's own start and end are
    // the caller's to announce. Cases that run side by side may finish out of plan order, but the events of two
    // cases never interleave. Returns a message when the module itself failed (its
    // initialisation or cleanup threw, or a failure arrived outside any case); the results reported so far
    // still stand.
    virtual std::optional<std::string> execute(const TestPlan& plan, const ExecutionSettings& settings,
                                               IRunListener& listener) = 0;
};

// Forwards every event to each listener in turn.
class RunListenerList final : public IRunListener
{
public:
    void add(IRunListener& listener) { mListeners.push_back(&listener); }

    void onRunStarted(const TestPlan& plan) override;
    void onCaseRunning(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                      const CoreTestFramework::TestFailureReport& report) override;
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;
    void onRunFinished(const RunSummary& summary) override;

private:
    std::vector<IRunListener*> mListeners;
};

// Counts the outcomes of a run; the duration is left to whoever times the run.
class OutcomeCounter final : public IRunListener
{
public:
    const RunSummary& summary() const { return mSummary; }

    void onRunStarted(const TestPlan& /*plan*/) override { mSummary = {}; }
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;

private:
    RunSummary mSummary;
};

} // namespace Ovelith::TestHost
