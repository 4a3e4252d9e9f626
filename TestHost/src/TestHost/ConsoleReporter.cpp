#include "TestHost/ConsoleReporter.h"

#include "Diagnostics/TerminalText.h"
#include "TestHost/ReportText.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <tuple>

namespace Ovelith::TestHost
{
namespace
{
constexpr const char* GREEN = "\033[32m";
constexpr const char* RED = "\033[31m";
constexpr const char* YELLOW = "\033[33m";
constexpr const char* BOLD = "\033[1m";
constexpr const char* RESET = "\033[0m";
} // namespace

std::string ConsoleReporter::_paint(const char* colorCode, const std::string& text) const
{
    return mSettings.color ? fmt::format("{}{}{}", colorCode, text, RESET) : text;
}

void ConsoleReporter::_enterRound(const PlannedClass& testClass)
{
    if (mRounds == 1 || (mRound && *mRound >= testClass.round))
    {
        return;
    }
    mRound = testClass.round;
    if (mRounds == 0)
    {
        mDone = 0;
    }
    if (!mSettings.brief)
    {
        const std::string header = mRounds == 0 ? fmt::format("Round {}", testClass.round + 1)
                                                : fmt::format("Round {} of {}", testClass.round + 1, mRounds);
        mOut << _paint(BOLD, header) << '\n' << std::flush;
    }
}

std::string ConsoleReporter::_roundTag(size_t round) const
{
    return mRounds == 1 ? std::string() : fmt::format(" (round {})", round + 1);
}

void ConsoleReporter::onRunStarted(const TestPlan& plan)
{
    mRounds = plan.rounds;
    mRound.reset();
    mFailedCases.clear();
    mPlanPosition.clear();
    mSlowest = {};
    mTotal = plan.caseCount();
    mDone = 0;
    for (const PlannedClass& testClass : plan.classes)
    {
        for (const PlannedCase& testCase : testClass.cases)
        {
            mPlanPosition.emplace(fullName(testClass, testCase), mPlanPosition.size());
        }
    }
    mOut << fmt::format("Running {} of {} from {} ({})\n", countOf(plan.caseCount(), "case", "cases"),
                        countOf(plan.classes.size(), "class", "classes"), plan.moduleName, plan.modulePath)
         << std::flush;
}

void ConsoleReporter::onCaseRunning(const PlannedClass& testClass, const PlannedCase& testCase)
{
    _enterRound(testClass);
    if (mSettings.announceStarts && !mSettings.brief)
    {
        mOut << "RUN   " << fullName(testClass, testCase) << '\n' << std::flush;
    }
}

void ConsoleReporter::onCaseStarted(const PlannedClass& testClass, const PlannedCase& /*testCase*/)
{
    _enterRound(testClass);
    mPendingReports.clear();
}

void ConsoleReporter::onCaseReport(const PlannedClass& /*testClass*/, const PlannedCase& testCase,
                                   const CoreTestFramework::TestFailureReport& report)
{
    // Messages come from the library under test, with its colour markup and at times trailing blanks. The
    // operands of a comparison stay as they are: there a blank or a markup code may be the difference.
    std::string text = fmt::format("    {}: {}\n", _paint(BOLD, report.file + ":" + report.line),
                                   Diagnostics::renderForTerminal(report.message, mSettings.color));
    // Checks in helpers name the helper; the case itself is named on the result line already.
    if (report.function != testCase.name && report.function != testCase.function)
    {
        text += fmt::format("        in {}\n", report.function);
    }
    if (report.details)
    {
        text += fmt::format("        expected: {}\n", describeComparison(*report.details));
    }
    mPendingReports.push_back(std::move(text));
}

void ConsoleReporter::onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                                     std::chrono::nanoseconds duration)
{
    _enterRound(testClass);
    std::string name = fullName(testClass, testCase);
    ++mDone;
    const std::string progress = mSettings.progress ? fmt::format("[{}/{}] ", mDone, mTotal) : std::string();
    if (!mSettings.brief || outcome == CaseOutcome::Failed)
    {
        switch (outcome)
        {
        case CaseOutcome::Passed:
            mOut << fmt::format("{}{}  {} ({})\n", progress, _paint(GREEN, "PASS"), name, formatDuration(duration));
            break;
        case CaseOutcome::Failed:
            mOut << fmt::format("{}{}  {} ({})\n", progress, _paint(RED, "FAIL"), name, formatDuration(duration));
            break;
        case CaseOutcome::Skipped:
            mOut << fmt::format("{}{}  {}\n", progress, _paint(YELLOW, "SKIP"), name);
            break;
        }
    }
    for (const std::string& report : mPendingReports)
    {
        mOut << report;
    }
    mPendingReports.clear();
    mOut << std::flush;

    if (outcome == CaseOutcome::Failed)
    {
        const auto position = mPlanPosition.find(name);
        mFailedCases.push_back(
            {testClass.round, position == mPlanPosition.end() ? mPlanPosition.size() : position->second, name});
    }
    if (outcome != CaseOutcome::Skipped && mSettings.durations > 0)
    {
        if (mSlowest.size() < mSettings.durations)
        {
            mSlowest.emplace(duration, std::move(name));
        }
        else if (duration > mSlowest.top().first)
        {
            mSlowest.pop();
            mSlowest.emplace(duration, std::move(name));
        }
    }
}

void ConsoleReporter::onRunFinished(const RunSummary& summary)
{
    mOut << '\n';
    if (!mSlowest.empty())
    {
        std::vector<Timed> slowest;
        for (; !mSlowest.empty(); mSlowest.pop())
        {
            slowest.push_back(mSlowest.top());
        }
        mOut << fmt::format("Slowest {}:\n", countOf(slowest.size(), "case", "cases"));
        for (auto it = slowest.rbegin(); it != slowest.rend(); ++it)
        {
            mOut << fmt::format("    {:>12}  {}\n", formatDuration(it->first), it->second);
        }
    }
    if (!mFailedCases.empty())
    {
        mOut << "Failed cases:\n";
        std::stable_sort(mFailedCases.begin(), mFailedCases.end(),
                         [](const FailedCase& left, const FailedCase& right)
                         { return std::tie(left.round, left.position) < std::tie(right.round, right.position); });
        for (const FailedCase& failed : mFailedCases)
        {
            mOut << "    " << _paint(RED, failed.name) << _roundTag(failed.round) << '\n';
        }
    }
    mOut << fmt::format("Ran {} in {}\n", countOf(summary.passed + summary.failed, "case", "cases"),
                        formatDuration(summary.duration));
    std::string counts = fmt::format("{} passed, {} failed", summary.passed, summary.failed);
    if (summary.skipped > 0)
    {
        counts += fmt::format(", {} skipped", summary.skipped);
    }
    mOut << _paint(summary.failed == 0 ? GREEN : RED, counts) << '\n' << std::flush;
}
} // namespace Ovelith::TestHost
