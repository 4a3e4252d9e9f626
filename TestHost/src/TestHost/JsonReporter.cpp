#include "TestHost/JsonReporter.h"

#include "TestHost/ReportText.h"

#include <fmt/format.h>

#include <charconv>

namespace Ovelith::TestHost
{
namespace
{
constexpr std::string_view OUTCOMES[] = {"passed", "failed", "skipped"};

// A report's line is text in the module's interface; it is a number wherever it can be read as one.
std::string lineValue(const std::string& line)
{
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
    return error == std::errc() && end == line.data() + line.size() ? std::to_string(number) : jsonString(line);
}

std::string failureObject(const CoreTestFramework::TestFailureReport& report)
{
    std::string text =
        fmt::format(R"({{"function": {}, "file": {}, "line": {}, "message": {})", jsonString(report.function),
                    jsonString(report.file), lineValue(report.line), jsonString(report.message));
    if (report.details)
    {
        text += fmt::format(R"(, "comparison": {}, "left": {}, "right": {})", jsonString(report.details->comparison),
                            jsonString(report.details->left), jsonString(report.details->right));
    }
    return text + "}";
}

// A case of a repeated run names the round its entry comes from, which its failures then belong to.
std::string caseStart(const PlannedCase& testCase, const std::optional<size_t>& round)
{
    return fmt::format(R"(        {{"name": {}, "file": {}, "line": {}, {}"outcome": )", jsonString(testCase.name),
                       jsonString(testCase.file), testCase.line,
                       round ? fmt::format(R"("round": {}, )", *round) : std::string());
}

// A JSON string without its quotes, to write between quotes of the document's own.
std::string unquoted(const std::string& text)
{
    const std::string quoted = jsonString(text);
    return quoted.substr(1, quoted.size() - 2);
}

void writeCounts(ReportSink& sink, const FileReporter::Counts& counts)
{
    sink.write(R"("tests": )");
    sink.number(counts.tests);
    sink.write(R"(, "failures": )");
    sink.number(counts.failures);
    sink.write(R"(, "skipped": )");
    sink.number(counts.skipped);
    sink.write(R"(, "time": )");
    sink.seconds(counts.duration);
}
} // namespace

std::string JsonReporter::_renderModuleName(const std::string& moduleName) const
{
    return jsonString(moduleName);
}

std::string JsonReporter::_renderClassName(const std::string& /*moduleName*/, const std::string& className) const
{
    return jsonString(className);
}

std::string JsonReporter::_renderCase(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                                      std::chrono::nanoseconds duration,
                                      const std::vector<CoreTestFramework::TestFailureReport>& reports) const
{
    std::string text = caseStart(testCase, roundTag(testClass));
    text += fmt::format(R"("{}", "time": )", OUTCOMES[static_cast<size_t>(outcome)]);
    StringSink(text).seconds(duration);
    if (outcome == CaseOutcome::Failed && !reports.empty())
    {
        text += fmt::format(R"(, "message": {})", jsonString(reports.front().message));
    }
    text += R"(, "failures": [)";
    for (size_t index = 0; index < reports.size(); ++index)
    {
        text += index == 0 ? "" : ", ";
        text += failureObject(reports[index]);
    }
    return text + "]}";
}

FileReporter::RunningText JsonReporter::_renderRunning(const PlannedClass& testClass, const PlannedCase& testCase) const
{
    RunningText text;
    text.open = caseStart(testCase, roundTag(testClass)) + R"("failed", "time": )";
    text.beforeMessage = R"(, "message": ")";
    text.beforeFailures = R"(", "failures": [)";
    text.separator = ", ";
    text.beforeCause = fmt::format(R"({{"function": {}, "file": {}, "line": {}, "message": ")",
                                   jsonString(testCase.name), jsonString(testCase.file), testCase.line);
    text.close = R"("}]})";
    return text;
}

std::string JsonReporter::_renderRunningReport(const PlannedClass& /*testClass*/,
                                               const CoreTestFramework::TestFailureReport& report) const
{
    return failureObject(report);
}

std::string JsonReporter::_renderFirstMessage(const std::string& message) const
{
    return unquoted(message);
}

void JsonReporter::_writeStart(ReportSink& sink, const Counts& total) const
{
    sink.write("{\n  \"module\": ");
    sink.write(renderedModuleName());
    sink.write(",\n  ");
    writeCounts(sink, total);
    sink.write(",\n  \"classes\": [");
}

void JsonReporter::_writeClassStart(ReportSink& sink, const std::string& renderedName, const Counts& counts,
                                    bool first) const
{
    sink.write(first ? "\n    {\"name\": " : ",\n    {\"name\": ");
    sink.write(renderedName);
    sink.write(", ");
    writeCounts(sink, counts);
    sink.write(", \"cases\": [\n");
}

void JsonReporter::_writeClassEnd(ReportSink& sink) const
{
    sink.write("\n    ]}");
}

void JsonReporter::_writeEnd(ReportSink& sink) const
{
    sink.write("\n  ]\n}\n");
}
} // namespace Ovelith::TestHost
