#pragma once

#include "TestHost/Execution.h"
#include "ZentaryUnitTest/TestResult.h"

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Ovelith::TestHost
{
// Where the text of a report goes. Writing allocates nothing, so that a report can be written from a signal
// handler.
class ReportSink
{
public:
    virtual ~ReportSink() = default;
    virtual void write(std::string_view text) = 0;

    // Decimal.
    void number(uint64_t value);
    // Seconds with three decimals, as JUnit readers expect: "0.012".
    void seconds(std::chrono::nanoseconds duration);
};

class StreamSink final : public ReportSink
{
public:
    explicit StreamSink(std::ostream& out) : mOut(out) {}
    void write(std::string_view text) override;

private:
    std::ostream& mOut;
};

class StringSink final : public ReportSink
{
public:
    explicit StringSink(std::string& text) : mText(text) {}
    void write(std::string_view text) override { mText.append(text); }

private:
    std::string& mText;
};

// Buffered writes to a file descriptor.
class DescriptorSink final : public ReportSink
{
public:
    explicit DescriptorSink(int descriptor) : mDescriptor(descriptor) {}
    void write(std::string_view text) override;
    // Writes what is buffered; false if any write failed.
    bool finish();

private:
    void _flush();

    int mDescriptor;
    char mBuffer[4096];
    size_t mUsed = 0;
    bool mOk = true;
};

// A report file of a run: it collects the run as it happens and writes it as a whole, first to a temporary
// file beside the target and then by renaming, so that the target is never half written. It keeps one entry
// per case, whatever the number of rounds: the last run of the case, except that a failed run is not replaced
// by a later passed one, so that the report fails whenever the run did, nor a run by a later skip. Entries
// stand in the order of the first round's plan.
//
// When the process is going down in the middle of a run (a fatal signal, or exit called by a case), writeNow
// still writes what finished, with the running case failed by the cause: the text of every entry is rendered
// when the entry changes, so that writing the document then only copies bytes.
class FileReporter : public IRunListener
{
public:
    // `kind` names the report in messages: "JUnit", "JSON".
    explicit FileReporter(const char* kind) : mKind(kind) {}
    ~FileReporter() override;
    FileReporter(const FileReporter&) = delete;
    FileReporter& operator=(const FileReporter&) = delete;

    void onRunStarted(const TestPlan& plan) override;
    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                      const CoreTestFramework::TestFailureReport& report) override;
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;
    void onRunFinished(const RunSummary& summary) override;

    // The cases that finished.
    void write(std::ostream& out) const;

    // Creates the temporary file the report is written to; a message when that fails. Done before the run, so
    // that a report that cannot be written costs no run.
    std::optional<std::string> open(const std::string& path);
    // Writes the report and moves it into place; a message when that fails.
    std::optional<std::string> commit();
    // As commit, with the running case, if any, failed by `cause`. Allocates nothing, takes no lock and
    // returns no message: for a process on its way down. Does nothing once the report is committed.
    void commitNow(std::string_view cause) noexcept;

    const std::string& path() const { return mPath; }

    struct Counts
    {
        size_t tests = 0;
        size_t failures = 0;
        size_t skipped = 0;
        std::chrono::nanoseconds duration{0};
    };

protected:
    // What a format renders ahead of time for the running case, to write it failed from a signal handler:
    // open, time, beforeMessage, the first failure's message, beforeFailures, the failures so far, separator
    // (if there are any), beforeCause, the cause, close.
    struct RunningText
    {
        // Up to the time of the case.
        std::string open;
        // After the time, up to the message of the first failure.
        std::string beforeMessage;
        // After the first message, up to the failures.
        std::string beforeFailures;
        // Between two failures.
        std::string separator;
        // Before the cause in its own failure, and what closes the entry.
        std::string beforeCause;
        std::string close;
    };

    // The one entry of a finished case.
    virtual std::string _renderCase(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                                    std::chrono::nanoseconds duration,
                                    const std::vector<CoreTestFramework::TestFailureReport>& reports) const = 0;
    virtual RunningText _renderRunning(const PlannedClass& testClass, const PlannedCase& testCase) const = 0;
    // One failure of the running case, and a message where the entry quotes the first one.
    virtual std::string _renderRunningReport(const PlannedClass& testClass,
                                             const CoreTestFramework::TestFailureReport& report) const = 0;
    virtual std::string _renderFirstMessage(const std::string& message) const = 0;
    // The names of the module and of a class as the document shows them.
    virtual std::string _renderModuleName(const std::string& moduleName) const = 0;
    virtual std::string _renderClassName(const std::string& moduleName, const std::string& className) const = 0;

    const std::string& moduleName() const { return mModuleName; }
    // The round, counted from 1, that a failure of `testClass` is tagged with; nothing in a run of one round.
    std::optional<size_t> roundTag(const PlannedClass& testClass) const
    {
        return mRepeated ? std::optional<size_t>(testClass.round + 1) : std::nullopt;
    }
    const std::string& renderedModuleName() const { return mRenderedModuleName; }

    // The frame of the document. Each is called with counts that include a crashed case.
    virtual void _writeStart(ReportSink& sink, const Counts& total) const = 0;
    virtual void _writeClassStart(ReportSink& sink, const std::string& renderedName, const Counts& counts,
                                  bool first) const = 0;
    virtual std::string_view _caseSeparator() const = 0;
    virtual void _writeClassEnd(ReportSink& sink) const = 0;
    virtual void _writeEnd(ReportSink& sink) const = 0;

private:
    struct CaseEntry
    {
        std::string text;
        CaseOutcome outcome = CaseOutcome::Passed;
        std::chrono::nanoseconds duration{0};
        bool finished = false;
    };
    struct ClassEntry
    {
        std::string renderedName;
        std::vector<CaseEntry> cases;
        std::unordered_map<std::string, size_t> caseIndex;
    };
    struct Position
    {
        size_t classIndex;
        size_t caseIndex;
    };
    struct Crash
    {
        std::string_view cause;
        std::chrono::nanoseconds elapsed;
    };

    Position _position(const PlannedClass& testClass, const PlannedCase& testCase);
    void _writeDocument(ReportSink& sink, const std::optional<Crash>& crash) const;
    void _writeCrashedCase(ReportSink& sink, const Crash& crash) const;
    bool _writeFile(const std::optional<Crash>& crash) noexcept;

    const char* mKind;
    std::string mModuleName;
    bool mRepeated = false;
    std::string mRenderedModuleName;
    std::vector<ClassEntry> mClasses;
    std::unordered_map<std::string, size_t> mClassIndex;
    std::chrono::nanoseconds mDuration{0};
    std::chrono::steady_clock::time_point mRunStart;

    // The running case.
    std::optional<Position> mRunning;
    std::chrono::steady_clock::time_point mRunningStart;
    std::vector<CoreTestFramework::TestFailureReport> mRunningReports;
    RunningText mRunningText;
    // Rendered: the first report's message, and every report so far joined.
    std::string mRunningFirstMessage;
    std::string mRunningFailures;

    std::string mPath;
    std::string mTemporaryPath;
    int mDescriptor = -1;
};
} // namespace Ovelith::TestHost
