#include "TestHost/FileReporter.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ostream>

namespace Ovelith::TestHost
{
using CoreTestFramework::TestFailureReport;
using Clock = std::chrono::steady_clock;

void ReportSink::number(uint64_t value)
{
    char digits[20];
    size_t count = 0;
    do
    {
        digits[sizeof(digits) - ++count] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    write(std::string_view(digits + sizeof(digits) - count, count));
}

void ReportSink::seconds(std::chrono::nanoseconds duration)
{
    const uint64_t nanoseconds = duration.count() > 0 ? static_cast<uint64_t>(duration.count()) : 0;
    const uint64_t milliseconds = (nanoseconds + 500'000) / 1'000'000;
    number(milliseconds / 1000);
    const char fraction[] = {'.', static_cast<char>('0' + milliseconds / 100 % 10),
                             static_cast<char>('0' + milliseconds / 10 % 10),
                             static_cast<char>('0' + milliseconds % 10)};
    write(std::string_view(fraction, sizeof(fraction)));
}

void StreamSink::write(std::string_view text)
{
    mOut.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void DescriptorSink::write(std::string_view text)
{
    while (!text.empty())
    {
        if (mUsed == sizeof(mBuffer))
        {
            _flush();
        }
        const size_t part = std::min(text.size(), sizeof(mBuffer) - mUsed);
        std::memcpy(mBuffer + mUsed, text.data(), part);
        mUsed += part;
        text.remove_prefix(part);
    }
}

void DescriptorSink::_flush()
{
    size_t done = 0;
    while (mOk && done < mUsed)
    {
        const ssize_t written = ::write(mDescriptor, mBuffer + done, mUsed - done);
        if (written < 0 && errno == EINTR)
        {
            continue;
        }
        if (written <= 0)
        {
            mOk = false;
            break;
        }
        done += static_cast<size_t>(written);
    }
    mUsed = 0;
}

bool DescriptorSink::finish()
{
    _flush();
    return mOk;
}

FileReporter::~FileReporter()
{
    if (mDescriptor >= 0)
    {
        close(mDescriptor);
        unlink(mTemporaryPath.c_str());
    }
}

void FileReporter::onRunStarted(const TestPlan& plan)
{
    mModuleName = plan.moduleName;
    mRepeated = plan.isRepeated();
    mRenderedModuleName = _renderModuleName(mModuleName);
    mClasses.clear();
    mClassIndex.clear();
    mDuration = std::chrono::nanoseconds{0};
    mRunStart = Clock::now();
    mRunning.reset();
    // Every entry has its place from the start, so that the report keeps the plan's order however cases
    // finish.
    for (const PlannedClass& testClass : plan.classes)
    {
        for (const PlannedCase& testCase : testClass.cases)
        {
            _position(testClass, testCase);
        }
    }
}

FileReporter::Position FileReporter::_position(const PlannedClass& testClass, const PlannedCase& testCase)
{
    const auto [classIt, newClass] = mClassIndex.try_emplace(testClass.name, mClasses.size());
    if (newClass)
    {
        mClasses.push_back(ClassEntry{_renderClassName(mModuleName, testClass.name), {}, {}});
    }
    ClassEntry& entry = mClasses[classIt->second];
    const auto [caseIt, newCase] = entry.caseIndex.try_emplace(testCase.name, entry.cases.size());
    if (newCase)
    {
        entry.cases.emplace_back();
    }
    return Position{classIt->second, caseIt->second};
}

void FileReporter::onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase)
{
    mRunningText = _renderRunning(testClass, testCase);
    mRunningReports.clear();
    mRunningFirstMessage.clear();
    mRunningFailures.clear();
    mRunningStart = Clock::now();
    mRunning = _position(testClass, testCase);
}

void FileReporter::onCaseReport(const PlannedClass& testClass, const PlannedCase& /*testCase*/,
                                const TestFailureReport& report)
{
    if (mRunningReports.empty())
    {
        mRunningFirstMessage = _renderFirstMessage(report.message);
    }
    else
    {
        mRunningFailures += mRunningText.separator;
    }
    mRunningFailures += _renderRunningReport(testClass, report);
    mRunningReports.push_back(report);
}

void FileReporter::onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                                  std::chrono::nanoseconds duration)
{
    const Position position = _position(testClass, testCase);
    CaseEntry& entry = mClasses[position.classIndex].cases[position.caseIndex];
    // Skipped cases get no onCaseStarted, so their reports are never the running case's.
    const bool ran = outcome != CaseOutcome::Skipped;
    static const std::vector<TestFailureReport> NONE;
    const std::vector<TestFailureReport>& reports = ran ? mRunningReports : NONE;
    const bool keepOld = entry.finished && ((entry.outcome == CaseOutcome::Failed && outcome != CaseOutcome::Failed) ||
                                            (entry.outcome != CaseOutcome::Skipped && !ran));
    if (!keepOld)
    {
        entry.text = _renderCase(testClass, testCase, outcome, duration, reports);
        entry.outcome = outcome;
        entry.duration = duration;
        entry.finished = true;
    }
    if (ran)
    {
        mRunning.reset();
        mRunningReports.clear();
    }
}

void FileReporter::onRunFinished(const RunSummary& summary)
{
    mDuration = summary.duration;
}

void FileReporter::write(std::ostream& out) const
{
    StreamSink sink(out);
    _writeDocument(sink, std::nullopt);
}

void FileReporter::_writeDocument(ReportSink& sink, const std::optional<Crash>& crash) const
{
    const auto isCrashed = [&](size_t classIndex, size_t caseIndex)
    { return crash && mRunning && mRunning->classIndex == classIndex && mRunning->caseIndex == caseIndex; };
    const auto countClass = [&](size_t classIndex)
    {
        Counts counts;
        const ClassEntry& entry = mClasses[classIndex];
        for (size_t caseIndex = 0; caseIndex < entry.cases.size(); ++caseIndex)
        {
            const CaseEntry& caseEntry = entry.cases[caseIndex];
            const bool crashed = isCrashed(classIndex, caseIndex);
            if (!caseEntry.finished && !crashed)
            {
                continue;
            }
            const CaseOutcome outcome = crashed ? CaseOutcome::Failed : caseEntry.outcome;
            ++counts.tests;
            counts.failures += outcome == CaseOutcome::Failed ? 1 : 0;
            counts.skipped += outcome == CaseOutcome::Skipped ? 1 : 0;
            counts.duration += crashed ? crash->elapsed : caseEntry.duration;
        }
        return counts;
    };

    Counts total;
    for (size_t classIndex = 0; classIndex < mClasses.size(); ++classIndex)
    {
        const Counts counts = countClass(classIndex);
        total.tests += counts.tests;
        total.failures += counts.failures;
        total.skipped += counts.skipped;
    }
    total.duration = crash ? std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - mRunStart) : mDuration;

    _writeStart(sink, total);
    bool firstClass = true;
    for (size_t classIndex = 0; classIndex < mClasses.size(); ++classIndex)
    {
        const Counts counts = countClass(classIndex);
        if (counts.tests == 0)
        {
            continue;
        }
        const ClassEntry& entry = mClasses[classIndex];
        _writeClassStart(sink, entry.renderedName, counts, firstClass);
        firstClass = false;
        bool firstCase = true;
        for (size_t caseIndex = 0; caseIndex < entry.cases.size(); ++caseIndex)
        {
            const bool crashed = isCrashed(classIndex, caseIndex);
            if (!entry.cases[caseIndex].finished && !crashed)
            {
                continue;
            }
            if (!firstCase)
            {
                sink.write(_caseSeparator());
            }
            firstCase = false;
            if (crashed)
            {
                _writeCrashedCase(sink, *crash);
            }
            else
            {
                sink.write(entry.cases[caseIndex].text);
            }
        }
        _writeClassEnd(sink);
    }
    _writeEnd(sink);
}

void FileReporter::_writeCrashedCase(ReportSink& sink, const Crash& crash) const
{
    const RunningText& text = mRunningText;
    sink.write(text.open);
    sink.seconds(crash.elapsed);
    sink.write(text.beforeMessage);
    sink.write(mRunningFailures.empty() ? crash.cause : std::string_view(mRunningFirstMessage));
    sink.write(text.beforeFailures);
    if (!mRunningFailures.empty())
    {
        sink.write(mRunningFailures);
        sink.write(text.separator);
    }
    sink.write(text.beforeCause);
    sink.write(crash.cause);
    sink.write(text.close);
}

std::optional<std::string> FileReporter::open(const std::string& path)
{
    mPath = path;
    mTemporaryPath = fmt::format("{}.{}.tmp", path, getpid());
    mDescriptor = ::open(mTemporaryPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (mDescriptor < 0)
    {
        return fmt::format("cannot write the {} report {}: {}", mKind, path, std::strerror(errno));
    }
    return std::nullopt;
}

bool FileReporter::_writeFile(const std::optional<Crash>& crash) noexcept
{
    if (mDescriptor < 0)
    {
        return true;
    }
    DescriptorSink sink(mDescriptor);
    bool ok = false;
    try
    {
        _writeDocument(sink, crash);
        ok = sink.finish();
    }
    catch (...)
    {
        // Only a stream sink throws; the report stays unwritten.
    }
    ok = close(mDescriptor) == 0 && ok;
    mDescriptor = -1;
    if (ok && std::rename(mTemporaryPath.c_str(), mPath.c_str()) == 0)
    {
        return true;
    }
    const int error = errno;
    unlink(mTemporaryPath.c_str());
    errno = error;
    return false;
}

std::optional<std::string> FileReporter::commit()
{
    if (_writeFile(std::nullopt))
    {
        return std::nullopt;
    }
    return fmt::format("cannot write the {} report {}: {}", mKind, mPath, std::strerror(errno));
}

void FileReporter::commitNow(std::string_view cause) noexcept
{
    const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - mRunningStart);
    _writeFile(Crash{cause, elapsed});
}
} // namespace Ovelith::TestHost
