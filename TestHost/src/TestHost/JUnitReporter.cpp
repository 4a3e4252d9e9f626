#include "TestHost/JUnitReporter.h"

#include "TestHost/ReportText.h"

#include <fmt/format.h>

namespace Ovelith::TestHost
{
namespace
{
// Length of the UTF-8 sequence at the start of `text` if it encodes a character XML 1.0 allows, else 0.
size_t validSequenceLength(std::string_view text)
{
    uint32_t codePoint = 0;
    const size_t length = utf8SequenceLength(text, codePoint);
    if (codePoint < 0x20)
    {
        return codePoint == '\t' || codePoint == '\n' || codePoint == '\r' ? length : 0;
    }
    return codePoint == 0xFFFE || codePoint == 0xFFFF ? 0 : length;
}

// "round 3: " before each failure of a repeated run, so that a reader knows which run of the case it was.
std::string roundPrefix(const std::optional<size_t>& round)
{
    return round ? fmt::format("round {}: ", *round) : std::string();
}

std::string failureText(const CoreTestFramework::TestFailureReport& report, const std::optional<size_t>& round)
{
    std::string text = fmt::format("{}{} at {}:{}: {}\n", roundPrefix(round), report.function, report.file, report.line,
                                   report.message);
    if (report.details)
    {
        text += fmt::format("    expected: {}\n", describeComparison(*report.details));
    }
    return text;
}

std::string testcaseOpen(const PlannedClass& testClass, const PlannedCase& testCase, const std::string& moduleName)
{
    return fmt::format(R"(    <testcase classname="{}" name="{}" time=")",
                       escapeXml(fmt::format("{}.{}", moduleName, testClass.name), true),
                       escapeXml(testCase.name, true));
}

std::string testcasePlace(const PlannedCase& testCase)
{
    return fmt::format(R"(" file="{}" line="{}")", escapeXml(testCase.file, true), testCase.line);
}

constexpr const char* FAILURE_SEPARATOR = "\n";

// The attributes of a testsuites or testsuite element, and the end of its start tag.
void writeSuiteAttributes(ReportSink& sink, const std::string& renderedName, const FileReporter::Counts& counts)
{
    sink.write(" name=\"");
    sink.write(renderedName);
    sink.write("\" tests=\"");
    sink.number(counts.tests);
    sink.write("\" failures=\"");
    sink.number(counts.failures);
    sink.write("\" errors=\"0\" skipped=\"");
    sink.number(counts.skipped);
    sink.write("\" time=\"");
    sink.seconds(counts.duration);
    sink.write("\">\n");
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

std::string JUnitReporter::_renderModuleName(const std::string& moduleName) const
{
    return escapeXml(moduleName, true);
}

std::string JUnitReporter::_renderClassName(const std::string& moduleName, const std::string& className) const
{
    return escapeXml(fmt::format("{}.{}", moduleName, className), true);
}

std::string JUnitReporter::_renderCase(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                                       std::chrono::nanoseconds duration,
                                       const std::vector<CoreTestFramework::TestFailureReport>& reports) const
{
    std::string text = testcaseOpen(testClass, testCase, moduleName());
    StringSink(text).seconds(duration);
    text += testcasePlace(testCase);
    switch (outcome)
    {
    case CaseOutcome::Passed:
        text += "/>\n";
        break;
    case CaseOutcome::Failed:
    {
        const std::optional<size_t> round = roundTag(testClass);
        std::string body;
        for (const CoreTestFramework::TestFailureReport& report : reports)
        {
            body += body.empty() ? "" : FAILURE_SEPARATOR;
            body += failureText(report, round);
        }
        const std::string message = reports.empty() ? std::string() : roundPrefix(round) + reports.front().message;
        text += fmt::format(">\n      <failure message=\"{}\">{}</failure>\n    </testcase>\n",
                            escapeXml(message, true), escapeXml(body, false));
        break;
    }
    case CaseOutcome::Skipped:
        text += ">\n      <skipped/>\n    </testcase>\n";
        break;
    }
    return text;
}

FileReporter::RunningText JUnitReporter::_renderRunning(const PlannedClass& testClass,
                                                        const PlannedCase& testCase) const
{
    RunningText text;
    text.open = testcaseOpen(testClass, testCase, moduleName());
    const std::string round = roundPrefix(roundTag(testClass));
    text.beforeMessage =
        fmt::format("{}>\n      <failure message=\"{}", testcasePlace(testCase), escapeXml(round, true));
    text.beforeFailures = "\">";
    text.separator = std::string(FAILURE_SEPARATOR);
    text.beforeCause =
        escapeXml(fmt::format("{}{} at {}:{}: ", round, testCase.name, testCase.file, testCase.line), false);
    text.close = "\n</failure>\n    </testcase>\n";
    return text;
}

std::string JUnitReporter::_renderRunningReport(const PlannedClass& testClass,
                                                const CoreTestFramework::TestFailureReport& report) const
{
    return escapeXml(failureText(report, roundTag(testClass)), false);
}

std::string JUnitReporter::_renderFirstMessage(const std::string& message) const
{
    return escapeXml(message, true);
}

void JUnitReporter::_writeStart(ReportSink& sink, const Counts& total) const
{
    sink.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites");
    writeSuiteAttributes(sink, renderedModuleName(), total);
}

void JUnitReporter::_writeClassStart(ReportSink& sink, const std::string& renderedName, const Counts& counts,
                                     bool /*first*/) const
{
    sink.write("  <testsuite");
    writeSuiteAttributes(sink, renderedName, counts);
}

void JUnitReporter::_writeClassEnd(ReportSink& sink) const
{
    sink.write("  </testsuite>\n");
}

void JUnitReporter::_writeEnd(ReportSink& sink) const
{
    sink.write("</testsuites>\n");
}
} // namespace Ovelith::TestHost
