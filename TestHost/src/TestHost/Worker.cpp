#include "TestHost/Worker.h"

#include "TestHost/CaseRunner.h"
#include "TestHost/WorkerProtocol.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

namespace Ovelith::TestHost::internal
{
namespace
{
// A worker whose host is gone has no one to tell anything; how it ends does not matter.
constexpr int EXIT_HOST_GONE = 70;

// Output a case wrote is pushed out before the case counts as done, and before the process ends without the
// flushing that exit would do.
void flushOutput()
{
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

// Tells the host each event as it happens, so that a case that never finishes has told all it could.
class HostChannel final : public IRunListener
{
public:
    explicit HostChannel(int socket) : mSocket(socket) {}

    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override
    {
        send(RecordWriter(RecordType::Started).add(indexOf(testClass, testCase)));
    }
    void onCaseReport(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/,
                      const CoreTestFramework::TestFailureReport& report) override
    {
        send(RecordWriter(RecordType::Report).add(report));
    }
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override
    {
        flushOutput();
        send(RecordWriter(RecordType::Finished)
                 .add(indexOf(testClass, testCase))
                 .add(static_cast<uint64_t>(outcome))
                 .add(static_cast<uint64_t>(duration.count())));
    }

    void send(const RecordWriter& record)
    {
        if (!sendAll(mSocket, record.bytes()))
        {
            _exit(EXIT_HOST_GONE);
        }
    }

private:
    static uint64_t indexOf(const PlannedClass& testClass, const PlannedCase& testCase)
    {
        return static_cast<uint64_t>(&testCase - testClass.cases.data());
    }

    int mSocket;
};

void closeDescriptorsFrom(int first)
{
    if (close_range(static_cast<unsigned>(first), ~0u, 0) == 0)
    {
        return;
    }
    const long last = sysconf(_SC_OPEN_MAX);
    for (long descriptor = first; descriptor < last; ++descriptor)
    {
        close(static_cast<int>(descriptor));
    }
}

// Leaves the worker the socket as WORKER_SOCKET and the standard streams: input reads nothing, and output joins
// the error stream, so that what cases print never breaks into the host's report. Everything else the host had
// open (its report file, other workers' sockets) is closed.
void detachFromHost(int socket, pid_t host)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The host may have died before the line above took effect.
    if (getppid() != host)
    {
        _exit(EXIT_HOST_GONE);
    }
    if (socket != WORKER_SOCKET && dup2(socket, WORKER_SOCKET) < 0)
    {
        _exit(EXIT_HOST_GONE);
    }
    const int nothing = open("/dev/null", O_RDONLY);
    if (nothing >= 0)
    {
        dup2(nothing, STDIN_FILENO);
    }
    dup2(STDERR_FILENO, STDOUT_FILENO);
    closeDescriptorsFrom(WORKER_SOCKET + 1);
}

// Between cases: whether the host asked the class to end, or went away.
bool stopRequested()
{
    pollfd entry{WORKER_SOCKET, POLLIN, 0};
    if (poll(&entry, 1, 0) <= 0)
    {
        return false;
    }
    const std::optional<Record> record = receiveRecord(WORKER_SOCKET);
    return !record || record->type == RecordType::Stop;
}

void serve(CoreTestFramework::TestModule& module, const TestPlan& plan, const ExecutionSettings& settings)
{
    HostChannel channel(WORKER_SOCKET);
    CaseRunner runner(module, channel);
    if (std::optional<std::string> error = runner.initialize())
    {
        channel.send(RecordWriter(RecordType::ModuleFailure).add(*error));
        return;
    }
    channel.send(RecordWriter(RecordType::Ready));

    // The host closing its side is the end of the work.
    while (const std::optional<Record> record = receiveRecord(WORKER_SOCKET))
    {
        // A stop that arrives after its class ended asks nothing more.
        if (record->type != RecordType::Run)
        {
            continue;
        }
        PayloadReader reader(record->payload);
        const uint64_t classIndex = reader.number();
        const uint64_t firstCase = reader.number();
        if (!reader.ok() || classIndex >= plan.classes.size())
        {
            break;
        }
        runner.runClass(plan.classes[classIndex], firstCase,
                        [&](bool failed) { return (settings.failFast && failed) || stopRequested(); });
        channel.send(RecordWriter(RecordType::ClassDone));
    }
    if (std::optional<std::string> error = runner.cleanup())
    {
        channel.send(RecordWriter(RecordType::ModuleFailure).add(*error));
    }
}
} // namespace

void runWorker(CoreTestFramework::TestModule& module, const TestPlan& plan, const ExecutionSettings& settings,
               int socket, pid_t host)
{
    detachFromHost(socket, host);
    try
    {
        serve(module, plan, settings);
    }
    catch (...)
    {
        // Only the host's own code runs outside a case here; if it cannot go on, the host sees an early exit.
        flushOutput();
        _exit(EXIT_HOST_GONE);
    }
    flushOutput();
    // Leaving without exit's teardown: the module is cleaned up, and the rest is the host's copy.
    _exit(0);
}
} // namespace Ovelith::TestHost::internal
