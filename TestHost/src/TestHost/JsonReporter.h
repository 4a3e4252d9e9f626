#pragma once

#include "TestHost/FileReporter.h"

namespace Ovelith::TestHost
{
// The run as JSON, for tools that would rather not read XML: totals, then each class with its totals and its
// cases, each case with its place, outcome, time and failures (a failed comparison with its operands).
class JsonReporter final : public FileReporter
{
public:
    JsonReporter() : FileReporter("JSON") {}

private:
    std::string _renderCase(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                            std::chrono::nanoseconds duration,
                            const std::vector<CoreTestFramework::TestFailureReport>& reports) const override;
    RunningText _renderRunning(const PlannedClass& testClass, const PlannedCase& testCase) const override;
    std::string _renderRunningReport(const PlannedClass& testClass,
                                     const CoreTestFramework::TestFailureReport& report) const override;
    std::string _renderFirstMessage(const std::string& message) const override;
    std::string _renderModuleName(const std::string& moduleName) const override;
    std::string _renderClassName(const std::string& moduleName, const std::string& className) const override;

    void _writeStart(ReportSink& sink, const Counts& total) const override;
    void _writeClassStart(ReportSink& sink, const std::string& renderedName, const Counts& counts,
                          bool first) const override;
    std::string_view _caseSeparator() const override { return ",\n"; }
    void _writeClassEnd(ReportSink& sink) const override;
    void _writeEnd(ReportSink& sink) const override;
};
} // namespace Ovelith::TestHost
