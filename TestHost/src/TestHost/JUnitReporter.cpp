#include "TestHost/JUnitReporter.h"

#include "TestHost/ReportText.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

#include <ostream>

namespace Ovelith::TestHost
{
namespace
{
// Length of the UTF-8 sequence at the start of `text` if it encodes a character XML 1.0 allows, else 0.
size_t validSequenceLength(std::string_view text)
{
    const auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
    {
        return lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r' ? 1 : 0;
    }
    size_t length = 0;
    uint32_t codePoint = 0;
    if ((lead & 0xE0) == 0xC0)
    {
        length = 2;
        codePoint = lead & 0x1F;
    }
    else if ((lead & 0xF0) == 0xE0)
    {
        length = 3;
        codePoint = lead & 0x0F;
    }
    else if ((lead & 0xF8) == 0xF0)
    {
        length = 4;
        codePoint = lead & 0x07;
    }
    else
    {
        return 0;
    }
    if (text.size() < length)
    {
        return 0;
    }
    for (size_t index = 1; index < length; ++index)
    {
        if ((byte(index) & 0xC0) != 0x80)
        {
            return 0;
        }
        codePoint = (codePoint << 6) | (byte(index) & 0x3F);
    }
    constexpr uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool overlong = codePoint < SMALLEST[length];
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    const bool notACharacter = codePoint == 0xFFFE || codePoint == 0xFFFF || codePoint > 0x10FFFF;
    return overlong || surrogate || notACharacter ? 0 : length;
}
} // namespace

std::string escapeXml(std::string_view text, bool attribute)
{
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty())
    {
        const size_t length = validSequenceLength(text);
        if (length == 0)
        {
            escaped += fmt::format("\\x{:02X}", static_cast<unsigned char>(text.front()));
            text.remove_prefix(1);
            continue;
        }
        if (length > 1)
        {
            escaped.append(text.substr(0, length));
            text.remove_prefix(length);
            continue;
        }
        const char c = text.front();
        text.remove_prefix(1);
        switch (c)
        {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += attribute ? "&quot;" : "\"";
            break;
        case '\'':
            escaped += attribute ? "&apos;" : "'";
            break;
        // A reader normalises raw line ends and, in attributes, all white space; references survive that.
        case '\r':
            escaped += "&#13;";
            break;
        case '\n':
            escaped += attribute ? "&#10;" : "\n";
            break;
        case '\t':
            escaped += attribute ? "&#9;" : "\t";
            break;
        default:
            escaped += c;
            break;
        }
    }
    return escaped;
}

void JUnitReporter::onRunStarted(const TestPlan& plan)
{
    mPlan = &plan;
    mRecords.clear();
    mDuration = std::chrono::nanoseconds{0};
}

void JUnitReporter::onCaseReport(const PlannedClass& /*testClass*/, const PlannedCase& testCase,
                                 const CoreTestFramework::TestFailureReport& report)
{
    CaseRecord& record = _record(testCase);
    if (record.failureText.empty())
    {
        record.firstMessage = report.message;
    }
    else
    {
        record.failureText += '\n';
    }
    record.failureText += fmt::format("{} at {}:{}: {}\n", report.function, report.file, report.line, report.message);
    if (report.details)
    {
        record.failureText += fmt::format("    expected: {}\n", describeComparison(*report.details));
    }
}

void JUnitReporter::onCaseFinished(const PlannedClass& /*testClass*/, const PlannedCase& testCase, CaseOutcome outcome,
                                   std::chrono::nanoseconds duration)
{
    CaseRecord& record = _record(testCase);
    record.outcome = outcome;
    record.duration = duration;
    record.finished = true;
}

void JUnitReporter::onRunFinished(const RunSummary& summary)
{
    mDuration = summary.duration;
}

void JUnitReporter::write(std::ostream& out) const
{
    struct Counts
    {
        size_t tests = 0;
        size_t failures = 0;
        size_t skipped = 0;
        std::chrono::nanoseconds duration{0};

        void add(const CaseRecord& record)
        {
            ++tests;
            failures += record.outcome == CaseOutcome::Failed ? 1 : 0;
            skipped += record.outcome == CaseOutcome::Skipped ? 1 : 0;
            duration += record.duration;
        }
    };
    const auto finishedRecord = [&](const PlannedCase& testCase) -> const CaseRecord*
    {
        const auto it = mRecords.find(&testCase);
        return it != mRecords.end() && it->second.finished ? &it->second : nullptr;
    };

    const std::string moduleName = mPlan ? mPlan->moduleName : std::string();
    Counts total;
    std::string suites;
    if (mPlan != nullptr)
    {
        for (const PlannedClass& testClass : mPlan->classes)
        {
            const std::string className = escapeXml(moduleName + "." + testClass.name, true);
            Counts counts;
            std::string cases;
            for (const PlannedCase& testCase : testClass.cases)
            {
                const CaseRecord* record = finishedRecord(testCase);
                if (record == nullptr)
                {
                    continue;
                }
                counts.add(*record);
                cases += fmt::format(R"(    <testcase classname="{}" name="{}" time="{}" file="{}" line="{}")",
                                     className, escapeXml(testCase.name, true), formatSeconds(record->duration),
                                     escapeXml(testCase.file, true), testCase.line);
                switch (record->outcome)
                {
                case CaseOutcome::Passed:
                    cases += "/>\n";
                    break;
                case CaseOutcome::Failed:
                    cases += fmt::format(">\n      <failure message=\"{}\">{}</failure>\n    </testcase>\n",
                                         escapeXml(record->firstMessage, true), escapeXml(record->failureText, false));
                    break;
                case CaseOutcome::Skipped:
                    cases += ">\n      <skipped/>\n    </testcase>\n";
                    break;
                }
            }
            if (counts.tests == 0)
            {
                continue;
            }
            suites += fmt::format(
                R"(  <testsuite name="{}" tests="{}" failures="{}" errors="0" skipped="{}" time="{}">)"
                "\n{}  </testsuite>\n",
                className, counts.tests, counts.failures, counts.skipped, formatSeconds(counts.duration), cases);
            total.tests += counts.tests;
            total.failures += counts.failures;
            total.skipped += counts.skipped;
        }
    }
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << fmt::format(R"(<testsuites name="{}" tests="{}" failures="{}" errors="0" skipped="{}" time="{}">)",
                       escapeXml(moduleName, true), total.tests, total.failures, total.skipped,
                       formatSeconds(mDuration))
        << '\n'
        << suites << "</testsuites>\n";
}
} // namespace Ovelith::TestHost
