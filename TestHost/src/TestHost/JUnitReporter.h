#pragma once

#include "TestHost/FileReporter.h"

#include <string>
#include <string_view>

namespace Ovelith::TestHost
{
// Escapes text for XML 1.0 content, or for an attribute value when `attribute` is set. Bytes that XML cannot
// carry (most control characters, broken UTF-8, U+FFFE and U+FFFF) are written as the text "\xNN", so that the
// document stays well-formed and the bytes stay visible.
std::string escapeXml(std::string_view text, bool attribute);

// The run as JUnit XML: one testsuite per class, classname "<module>.<class>", and one failure per failed case
// that holds every report of that case, since readers keep only one.
class JUnitReporter final : public FileReporter
{
public:
    JUnitReporter() : FileReporter("JUnit") {}

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
    std::string_view _caseSeparator() const override { return {}; }
    void _writeClassEnd(ReportSink& sink) const override;
    void _writeEnd(ReportSink& sink) const override;
};
} // namespace Ovelith::TestHost
