#include "TestHost/WorkerExecutor.h"

#include "TestHost/Worker.h"
#include "TestHost/WorkerProtocol.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <iostream>
#include <list>

namespace Ovelith::TestHost
{
namespace
{
using CoreTestFramework::TestFailureReport;
using Clock = std::chrono::steady_clock;

// Cases of one class still to run, from `nextCase` on; a busy worker is running `nextCase`.
struct Assignment
{
    size_t classIndex;
    size_t nextCase;
};

struct WorkerProcess
{
    pid_t pid = -1;
    // -1 once the worker closed its end.
    int socket = -1;
    // Readable once the process has ended.
    int pidfd = -1;
    RecordBuffer inbox;
    bool ready = false;
    // Told that no more work comes; it is cleaning up.
    bool closing = false;
    // It said why the module could not be initialised; how it ends adds nothing.
    bool failedToInitialise = false;
    bool killedForTime = false;
    // A send to it failed: it is ending. Its socket stays open, since what it sent before it ended (the cases
    // it finished) is still to be read when its end is seen.
    bool unreachable = false;
    // What it was handed, the running class first. A second class waits in the worker, so that it goes on
    // without waiting for the host between classes.
    std::deque<Assignment> assignments;
    Clock::time_point caseStart;
    // Those of the running case.
    std::vector<TestFailureReport> reports;
    std::optional<Clock::time_point> deadline;
};

std::string describeEnd(int status)
{
    if (WIFSIGNALED(status))
    {
        const char* name = sigabbrev_np(WTERMSIG(status));
        return name != nullptr ? fmt::format("crashed with SIG{}", name)
                               : fmt::format("crashed with signal {}", WTERMSIG(status));
    }
    return fmt::format("exited with status {}", WEXITSTATUS(status));
}

void closeIfOpen(int& descriptor)
{
    if (descriptor >= 0)
    {
        close(descriptor);
        descriptor = -1;
    }
}

// One execution of a plan: the workers, the work not yet handed out and what has been reported.
class WorkerRun
{
public:
    WorkerRun(CoreTestFramework::TestModule& module, const TestPlan& plan, const ExecutionSettings& settings,
              const WorkerSettings& workerSettings, IRunListener& listener)
        : mModule(module), mPlan(plan), mSettings(settings), mJobs(std::max<size_t>(workerSettings.jobs, 1)),
          mTimeoutSeconds(workerSettings.timeoutSeconds), mListener(listener)
    {
        if (mTimeoutSeconds > 0)
        {
            mTimeout = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(mTimeoutSeconds));
        }
        for (size_t index = 0; index < plan.classes.size(); ++index)
        {
            mFinished.emplace_back(plan.classes[index].cases.size(), false);
            if (!plan.classes[index].cases.empty())
            {
                mQueue.push_back({index, 0});
            }
        }
    }

    std::optional<std::string> execute()
    {
        _topUp();
        while (!mWorkers.empty())
        {
            _dispatch();
            _wait();
            _topUp();
        }
        for (size_t classIndex = 0; classIndex < mPlan.classes.size(); ++classIndex)
        {
            const PlannedClass& testClass = mPlan.classes[classIndex];
            for (size_t caseIndex = 0; caseIndex < testClass.cases.size(); ++caseIndex)
            {
                if (!mFinished[classIndex][caseIndex])
                {
                    mListener.onCaseFinished(testClass, testClass.cases[caseIndex], CaseOutcome::Skipped,
                                             std::chrono::nanoseconds{0});
                }
            }
        }
        if (mErrors.empty())
        {
            return std::nullopt;
        }
        std::string joined = mErrors.front();
        for (size_t index = 1; index < mErrors.size(); ++index)
        {
            joined += "; " + mErrors[index];
        }
        return joined;
    }

private:
    std::optional<Clock::time_point> _deadlineFromNow() const
    {
        if (!mTimeout)
        {
            return std::nullopt;
        }
        return Clock::now() + *mTimeout;
    }

    void _addError(std::string message)
    {
        if (std::find(mErrors.begin(), mErrors.end(), message) == mErrors.end())
        {
            mErrors.push_back(std::move(message));
        }
    }

    // Starts workers while there is more work than idle or starting workers to take it.
    void _topUp()
    {
        size_t spare = static_cast<size_t>(std::count_if(mWorkers.begin(), mWorkers.end(),
                                                         [](const WorkerProcess& worker) {
                                                             return worker.assignments.empty() && !worker.closing &&
                                                                    !worker.unreachable;
                                                         }));
        while (!mStopped && mWorkers.size() < mJobs && mQueue.size() > spare)
        {
            if (!_spawn())
            {
                _stop();
                return;
            }
            ++spare;
        }
    }

    bool _spawn()
    {
        int sockets[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0)
        {
            _addError(fmt::format("cannot start a worker: {}", std::strerror(errno)));
            return false;
        }
        // The child gets a copy of whatever output is still buffered here and would print it a second time.
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);

        const pid_t host = getpid();
        const pid_t pid = fork();
        if (pid == 0)
        {
            internal::runWorker(mModule, mPlan, mSettings, sockets[1], host);
        }
        close(sockets[1]);
        if (pid < 0)
        {
            _addError(fmt::format("cannot start a worker: {}", std::strerror(errno)));
            close(sockets[0]);
            return false;
        }
        // Called directly: the C library's wrapper is newer than some of the systems this builds on.
        const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        if (pidfd < 0)
        {
            _addError(fmt::format("cannot watch a worker: {}", std::strerror(errno)));
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            close(sockets[0]);
            return false;
        }
        WorkerProcess& worker = mWorkers.emplace_back();
        worker.pid = pid;
        worker.socket = sockets[0];
        worker.pidfd = pidfd;
        worker.deadline = _deadlineFromNow();
        return true;
    }

    // Gives each idle worker a class, then each busy one a class to wait in it, as long as that leaves one for
    // every worker still starting. A worker left idle has nothing more to do and is told to finish.
    void _dispatch()
    {
        const size_t starting = static_cast<size_t>(
            std::count_if(mWorkers.begin(), mWorkers.end(), [](const WorkerProcess& worker) { return !worker.ready; }));
        for (const size_t depth : {size_t{1}, size_t{2}})
        {
            const size_t reserved = depth == 1 ? 0 : starting;
            for (WorkerProcess& worker : mWorkers)
            {
                while (worker.ready && !worker.closing && !worker.unreachable && worker.socket >= 0 && !mStopped &&
                       mQueue.size() > reserved && worker.assignments.size() < depth)
                {
                    _send(worker, mQueue.front());
                }
            }
        }
        for (WorkerProcess& worker : mWorkers)
        {
            if (worker.ready && !worker.closing && !worker.unreachable && worker.socket >= 0 &&
                worker.assignments.empty())
            {
                shutdown(worker.socket, SHUT_WR);
                worker.closing = true;
                worker.deadline = _deadlineFromNow();
            }
        }
    }

    void _send(WorkerProcess& worker, const Assignment assignment)
    {
        if (!sendAll(worker.socket,
                     RecordWriter(RecordType::Run).add(assignment.classIndex).add(assignment.nextCase).bytes()))
        {
            // It is ending; its end is seen through its pidfd, and what it sent until then is read there.
            worker.unreachable = true;
            return;
        }
        mQueue.pop_front();
        worker.assignments.push_back(assignment);
        if (worker.assignments.size() == 1)
        {
            _caseStarts(worker);
        }
    }

    // Waits for what the workers say or for the next deadline, and handles it.
    void _wait()
    {
        std::vector<pollfd> entries;
        std::optional<Clock::time_point> nearest;
        for (const WorkerProcess& worker : mWorkers)
        {
            entries.push_back({worker.socket, POLLIN, 0});
            entries.push_back({worker.pidfd, POLLIN, 0});
            if (worker.deadline && (!nearest || *worker.deadline < *nearest))
            {
                nearest = worker.deadline;
            }
        }
        int timeout = -1;
        if (nearest)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*nearest - Clock::now());
            timeout = static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
        }
        // A negative descriptor is ignored by poll, so closed sockets keep their place in the list.
        if (poll(entries.data(), entries.size(), timeout) < 0 && errno != EINTR)
        {
            // Without a way to watch them the workers cannot be run; what they did not finish counts as skipped.
            _addError(fmt::format("cannot wait for the workers: {}", std::strerror(errno)));
            _stop();
            for (WorkerProcess& worker : mWorkers)
            {
                kill(worker.pid, SIGKILL);
                waitpid(worker.pid, nullptr, 0);
                closeIfOpen(worker.socket);
                closeIfOpen(worker.pidfd);
            }
            mWorkers.clear();
            return;
        }

        size_t entry = 0;
        for (auto it = mWorkers.begin(); it != mWorkers.end(); entry += 2)
        {
            WorkerProcess& worker = *it;
            if (entries[entry].revents != 0)
            {
                _receive(worker);
            }
            if (entries[entry + 1].revents != 0)
            {
                // Whatever it sent before it ended is in the socket still.
                _receive(worker);
                _reap(worker);
                it = mWorkers.erase(it);
                continue;
            }
            if (worker.deadline && Clock::now() >= *worker.deadline)
            {
                kill(worker.pid, SIGKILL);
                worker.killedForTime = true;
                worker.deadline.reset();
            }
            ++it;
        }
    }

    void _receive(WorkerProcess& worker)
    {
        char buffer[1 << 16];
        while (worker.socket >= 0)
        {
            const ssize_t received = recv(worker.socket, buffer, sizeof(buffer), MSG_DONTWAIT);
            if (received > 0)
            {
                worker.inbox.append(buffer, static_cast<size_t>(received));
                // A short read took all there was; asking again would only cost a call.
                if (static_cast<size_t>(received) < sizeof(buffer))
                {
                    break;
                }
                continue;
            }
            if (received < 0 && errno == EINTR)
            {
                continue;
            }
            if (received == 0 || (errno != EAGAIN && errno != EWOULDBLOCK))
            {
                closeIfOpen(worker.socket);
            }
            break;
        }
        while (std::optional<Record> record = worker.inbox.next())
        {
            _handle(worker, *record);
        }
        if (worker.inbox.broken())
        {
            kill(worker.pid, SIGKILL);
            closeIfOpen(worker.socket);
        }
    }

    void _handle(WorkerProcess& worker, const Record& record)
    {
        PayloadReader reader(record.payload);
        switch (record.type)
        {
        case RecordType::Ready:
            worker.ready = true;
            worker.deadline.reset();
            break;
        case RecordType::Report:
            worker.reports.push_back(reader.report());
            break;
        case RecordType::Finished:
        {
            const size_t caseIndex = reader.number();
            const auto outcome = static_cast<CaseOutcome>(reader.number());
            const std::chrono::nanoseconds duration{reader.number()};
            if (!worker.assignments.empty())
            {
                Assignment& running = worker.assignments.front();
                _finishCase(running.classIndex, caseIndex, outcome, duration, worker.reports);
                running.nextCase = caseIndex + 1;
                _caseStarts(worker);
            }
            break;
        }
        case RecordType::ClassDone:
            if (!worker.assignments.empty())
            {
                worker.assignments.pop_front();
            }
            if (worker.assignments.empty())
            {
                worker.deadline.reset();
            }
            else
            {
                _caseStarts(worker);
            }
            break;
        case RecordType::ModuleFailure:
            _addError(reader.text());
            if (!worker.ready)
            {
                worker.failedToInitialise = true;
                _stop();
            }
            break;
        case RecordType::Run:
        case RecordType::Stop:
            break;
        }
    }

    // The worker goes on with the next case of its class at once; the clock of the timeout starts.
    void _caseStarts(WorkerProcess& worker)
    {
        worker.caseStart = Clock::now();
        worker.reports.clear();
        worker.deadline = _deadlineFromNow();
        const Assignment& running = worker.assignments.front();
        const PlannedClass& testClass = mPlan.classes[running.classIndex];
        if (running.nextCase < testClass.cases.size() && !mStopped)
        {
            mListener.onCaseRunning(testClass, testClass.cases[running.nextCase]);
        }
    }

    void _reap(WorkerProcess& worker)
    {
        int status = 0;
        while (waitpid(worker.pid, &status, 0) < 0 && errno == EINTR)
        {
        }
        closeIfOpen(worker.pidfd);
        closeIfOpen(worker.socket);
        const bool endedAsTold =
            worker.closing && !worker.killedForTime && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (endedAsTold || worker.failedToInitialise)
        {
            return;
        }
        const std::string cause =
            worker.killedForTime ? fmt::format("timed out after {} s", mTimeoutSeconds) : describeEnd(status);
        if (!worker.assignments.empty())
        {
            _blame(worker, cause);
        }
        else if (!worker.ready)
        {
            _addError(fmt::format("a worker {} while initialising the module", cause));
            _stop();
        }
        else if (worker.closing)
        {
            _addError(fmt::format("a worker {} while cleaning up the module", cause));
        }
        else
        {
            _addError(fmt::format("a worker {} between classes", cause));
        }
    }

    // The case a worker was running when it ended fails with the cause, after what it reported, and the rest of
    // its class, with the class waiting behind it, goes back to the front of the queue. So every lost worker
    // costs one case, and the run moves on.
    void _blame(WorkerProcess& worker, const std::string& cause)
    {
        const Assignment assignment = worker.assignments.front();
        if (!mStopped)
        {
            for (size_t index = worker.assignments.size() - 1; index > 0; --index)
            {
                mQueue.push_front(worker.assignments[index]);
            }
        }
        const PlannedClass& testClass = mPlan.classes[assignment.classIndex];
        const size_t caseIndex = assignment.nextCase;
        if (caseIndex >= testClass.cases.size())
        {
            return;
        }
        const PlannedCase& testCase = testClass.cases[caseIndex];
        std::vector<TestFailureReport> reports = std::move(worker.reports);
        const auto duration = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - worker.caseStart);
        reports.push_back(TestFailureReport{testCase.name, testCase.file, std::to_string(testCase.line), cause, {}});
        _finishCase(assignment.classIndex, caseIndex, CaseOutcome::Failed, duration, reports);
        if (!mStopped && caseIndex + 1 < testClass.cases.size())
        {
            mQueue.push_front({assignment.classIndex, caseIndex + 1});
        }
    }

    // Tells the listener all of one case at once, so that cases of different workers never mix.
    void _finishCase(size_t classIndex, size_t caseIndex, CaseOutcome outcome, std::chrono::nanoseconds duration,
                     const std::vector<TestFailureReport>& reports)
    {
        const PlannedClass& testClass = mPlan.classes[classIndex];
        if (caseIndex >= testClass.cases.size() || mFinished[classIndex][caseIndex])
        {
            return;
        }
        mFinished[classIndex][caseIndex] = true;
        const PlannedCase& testCase = testClass.cases[caseIndex];
        mListener.onCaseStarted(testClass, testCase);
        for (const TestFailureReport& report : reports)
        {
            mListener.onCaseReport(testClass, testCase, report);
        }
        mListener.onCaseFinished(testClass, testCase, outcome, duration);
        mFailures += outcome == CaseOutcome::Failed ? 1 : 0;
        if (mSettings.maxFailures > 0 && mFailures >= mSettings.maxFailures)
        {
            _stop();
        }
    }

    // No more classes are handed out, and busy workers end theirs after the running case.
    void _stop()
    {
        if (mStopped)
        {
            return;
        }
        mStopped = true;
        mQueue.clear();
        for (WorkerProcess& worker : mWorkers)
        {
            if (!worker.assignments.empty() && worker.socket >= 0)
            {
                sendAll(worker.socket, RecordWriter(RecordType::Stop).bytes());
            }
        }
    }

    CoreTestFramework::TestModule& mModule;
    const TestPlan& mPlan;
    const ExecutionSettings& mSettings;
    const size_t mJobs;
    const double mTimeoutSeconds;
    std::optional<Clock::duration> mTimeout;
    IRunListener& mListener;

    std::list<WorkerProcess> mWorkers;
    std::deque<Assignment> mQueue;
    std::vector<std::vector<bool>> mFinished;
    std::vector<std::string> mErrors;
    size_t mFailures = 0;
    bool mStopped = false;
};
} // namespace

std::optional<std::string> WorkerExecutor::execute(const TestPlan& plan, const ExecutionSettings& settings,
                                                   IRunListener& listener)
{
    return WorkerRun(mModule, plan, settings, mSettings, listener).execute();
}
} // namespace Ovelith::TestHost
