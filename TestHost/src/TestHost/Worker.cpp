#include "TestHost/Worker.h"

#include "TestHost/CaseRunner.h"
#include "TestHost/WorkerProtocol.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
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

// Tells the host each report as it happens, so that a case that never finishes has told all it could, and each
// case's end. A case's start needs no word: cases run in the order the host sent them, each as soon as the one
// before has ended.
class HostChannel final : public IRunListener
{
public:
    explicit HostChannel(int socket) : mSocket(socket) {}

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

// What the host sends, in order. The host hands out the next class before the running one ends, so that the
// worker never waits for it; the check for a stop between cases may read that class early, and keeps it.
class HostInbox
{
public:
    // Blocks for the next record; nothing once the host closed its side.
    std::optional<Record> next()
    {
        if (mPending.empty())
        {
            return receiveRecord(WORKER_SOCKET);
        }
        Record record = std::move(mPending.front());
        mPending.pop_front();
        return record;
    }

    // Between cases: whether the host asked to stop, or went away. Once it did, no further class runs.
    bool stopRequested()
    {
        pollfd entry{WORKER_SOCKET, POLLIN, 0};
        while (!mStopped && poll(&entry, 1, 0) > 0)
        {
            std::optional<Record> record = receiveRecord(WORKER_SOCKET);
            if (!record || record->type == RecordType::Stop)
            {
                mStopped = true;
                break;
            }
            mPending.push_back(std::move(*record));
        }
        return mStopped;
    }

    void stop() { mStopped = true; }
    bool stopped() const { return mStopped; }

private:
    std::deque<Record> mPending;
    bool mStopped = false;
};

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
    HostInbox inbox;
    while (const std::optional<Record> record = inbox.next())
    {
        // A stop while idle asks nothing more of this class, and a new class comes only after it.
        if (record->type == RecordType::Stop)
        {
            inbox.stop();
            continue;
        }
        PayloadReader reader(record->payload);
        const uint64_t classIndex = reader.number();
        const uint64_t firstCase = reader.number();
        if (record->type != RecordType::Run || !reader.ok() || classIndex >= plan.classes.size())
        {
            break;
        }
        // After a stop, classes handed out before it are given back unrun.
        if (!inbox.stopped())
        {
            runner.runClass(plan.classes[classIndex], firstCase,
                            [&](bool failed)
                            {
                                // The host counts failures across workers; only a limit of one is reached here
                                // for certain.
                                if (settings.maxFailures == 1 && failed)
                                {
                                    inbox.stop();
                                }
                                // Only failures make the host ask for a stop; without a limit the check would
                                // cost a call per case for nothing.
                                return inbox.stopped() || (settings.maxFailures > 0 && inbox.stopRequested());
                            });
        }
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
