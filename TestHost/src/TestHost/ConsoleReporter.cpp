#include "TestHost/ConsoleReporter.h"

#include "TestHost/ReportText.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <ostream>

namespace Ovelith::TestHost
{
namespace
{
constexpr const char* GREEN = "\033[32m";
constexpr const char* RED = "\033[31m";
constexpr const char* YELLOW = "\033[33m";
constexpr const char* BOLD = "\033[1m";
constexpr const char* RESET = "\033[0m";

std::string tagList(const std::vector<std::string>& tags)
{
    return fmt::format("[{}]", fmt::join(tags, ", "));
}
} // namespace

std::string ConsoleReporter::_paint(const char* colorCode, const std::string& text) const
{
    return mColor ? fmt::format("{}{}{}", colorCode, text, RESET) : text;
}

void ConsoleReporter::onRunStarted(const TestPlan& plan)
{
    mFailedCases.clear();
    mPlanPosition.clear();
    for (const PlannedClass& testClass : plan.classes)
    {
        for (const PlannedCase& testCase : testClass.cases)
        {
            mPlanPosition.emplace(&testCase, mPlanPosition.size());
        }
    }
    mOut << fmt::format("Running {} of {} from {} ({})\n", countOf(plan.caseCount(), "case", "cases"),
                        countOf(plan.classes.size(), "class", "classes"), plan.moduleName, plan.modulePath)
         << std::flush;
}

void ConsoleReporter::onCaseStarted(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/)
{
    mPendingReports.clear();
}

void ConsoleReporter::onCaseReport(const PlannedClass& /*testClass*/, const PlannedCase& testCase,
                                   const CoreTestFramework::TestFailureReport& report)
{
    std::string text = fmt::format("    {}: {}\n", _paint(BOLD, report.file + ":" + report.line), report.message);
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
    const std::string name = fullName(testClass, testCase);
    switch (outcome)
    {
    case CaseOutcome::Passed:
        mOut << fmt::format("{}  {} ({})\n", _paint(GREEN, "PASS"), name, formatDuration(duration));
        break;
    case CaseOutcome::Failed:
        mOut << fmt::format("{}  {} ({})\n", _paint(RED, "FAIL"), name, formatDuration(duration));
        mFailedCases.emplace_back(mPlanPosition[&testCase], name);
        break;
    case CaseOutcome::Skipped:
        mOut << fmt::format("{}  {}\n", _paint(YELLOW, "SKIP"), name);
        break;
    }
    for (const std::string& report : mPendingReports)
    {
        mOut << report;
    }
    mPendingReports.clear();
    mOut << std::flush;
}

void ConsoleReporter::onRunFinished(const RunSummary& summary)
{
    mOut << '\n';
    if (!mFailedCases.empty())
    {
        mOut << "Failed cases:\n";
        std::stable_sort(mFailedCases.begin(), mFailedCases.end(),
                         [](const auto& left, const auto& right) { return left.first < right.first; });
        for (const auto& failed : mFailedCases)
        {
            mOut << "    " << _paint(RED, failed.second) << '\n';
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

void writeListing(const TestPlan& plan, std::ostream& out)
{
    out << fmt::format("{}: {}, {} ({})\n", plan.moduleName, countOf(plan.classes.size(), "class", "classes"),
                       countOf(plan.caseCount(), "case", "cases"), plan.modulePath);
    for (const PlannedClass& testClass : plan.classes)
    {
        out << fmt::format("{}  {}\n", testClass.name, tagList(testClass.tags));
        for (const PlannedCase& testCase : testClass.cases)
        {
            out << fmt::format("    {}  {}  {}:{}\n", fullName(testClass, testCase), tagList(testCase.tags),
                               testCase.file, testCase.line);
        }
    }
    out << std::flush;
}
} // namespace Ovelith::TestHost
