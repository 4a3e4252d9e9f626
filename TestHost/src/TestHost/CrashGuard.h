#pragma once

#include "TestHost/Execution.h"

#include <signal.h>

#include <string>
#include <vector>

namespace Ovelith::TestHost
{
class FileReporter;

// For a run in the host's own process, where a case that crashes takes the host with it. While the guard is
// armed, a process going down in the middle of the run still leaves the report files, with the running case
// failed by the cause, and names that case on the error stream: on a fatal signal (after which the signal takes
// its course, so that the exit status and any core dump are the crash's), on SIGINT, SIGTERM or SIGHUP, and
// when a case calls exit. One guard at a time.
class CrashGuard final : public IRunListener
{
public:
    // The reports and the name must outlive the guard. Writes to `errorDescriptor`.
    CrashGuard(std::vector<FileReporter*> reports, std::string program, int errorDescriptor);
    ~CrashGuard() override;
    CrashGuard(const CrashGuard&) = delete;
    CrashGuard& operator=(const CrashGuard&) = delete;

    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override;
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override;

    // The run is over: from now on the host writes its reports itself.
    void disarm();

private:
    static void _onSignal(int signal);
    static void _onExit();
    // Writes the reports and tells why; allocates nothing.
    void _goingDown(const char* causePrefix, const char* signalName) noexcept;

    std::vector<FileReporter*> mReports;
    std::string mProgram;
    int mErrorDescriptor;
    // "<class>.<case>" of the running case; empty between cases.
    std::string mRunning;
    bool mArmed = true;
    std::vector<char> mAlternateStack;
    bool mOwnsAlternateStack = false;
    std::vector<std::pair<int, struct sigaction>> mPrevious;
};
} // namespace Ovelith::TestHost
