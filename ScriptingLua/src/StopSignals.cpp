// Stops without a standing hook. With any hook set, Lua 5.4 sends every instruction through its trace path, so
// the hook is set only once a stop is due: the deadline thread or interrupt() marks the entry and signals the
// thread that runs it, and the handler sets the hook on the Lua thread running there. Lua allows lua_sethook
// from a signal handler of the thread that runs the state (its loops look again at backward jumps); from any
// other thread it would race with the interpreter on the call frames, which is why the signal is needed.
#include "LuaContext.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>

#include <unistd.h>
#ifdef __linux__
#include <sys/syscall.h>
#endif

namespace Scripting::Lua::internal
{
namespace
{
// ThreadSanitizer holds signals back until the thread reaches instrumented code; a loop inside the
// interpreter never does, so such builds poll with the count hook. Interrupts name their thread by its kernel
// id, which Linux has.
#if !defined(__linux__) || defined(__SANITIZE_THREAD__)
constexpr bool SIGNALS_REACH_LUA = false;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool SIGNALS_REACH_LUA = false;
#else
constexpr bool SIGNALS_REACH_LUA = true;
#endif
#else
constexpr bool SIGNALS_REACH_LUA = true;
#endif

pid_t currentThreadId()
{
#ifdef __linux__
    return static_cast<pid_t>(syscall(SYS_gettid));
#else
    return 0;
#endif
}

// tgkill checks the process too: a thread id reused by another process is never hit.
void signalThread(pid_t thread, int signal)
{
#ifdef __linux__
    syscall(SYS_tgkill, getpid(), thread, signal);
#else
    (void)thread;
    (void)signal;
#endif
}

// Live threads that have run a script, at most; a thread that finds no place polls with the count hook.
constexpr int THREAD_RECORDS = 1024;

// Where the handler finds the entries running on its thread without touching thread-local storage, which a
// shared library may allocate on first use. `innermost` is written by the owning thread only.
struct ThreadRecord
{
    std::atomic<pthread_t> owner{};
    std::atomic<LuaContext*> innermost{nullptr};
};

ThreadRecord sThreads[THREAD_RECORDS];

// What the thread found when it first ran a script: its place in the table (-1 for none, -2 before the first
// look) and its kernel id. Trivially destructible, so that an entry reads them with no guard of a thread_local
// that has a destructor.
thread_local int tRecord = -2;
thread_local pid_t tThreadId = 0;

// Gives the place back when the thread ends; touched only by the first look.
struct ThreadPlace
{
    int index = -1;

    ~ThreadPlace()
    {
        if (index >= 0)
        {
            tRecord = -1;
            sThreads[index].innermost.store(nullptr, std::memory_order_relaxed);
            sThreads[index].owner.store(pthread_t{}, std::memory_order_release);
        }
    }
};

thread_local ThreadPlace tPlace;

// A thread that blocks the signal when it first runs a script polls for good: the signal would never reach it.
[[gnu::noinline]] int lookUpThreadRecord(int signal)
{
    tRecord = -1;
    sigset_t blocked;
    sigemptyset(&blocked);
    if (pthread_sigmask(SIG_BLOCK, nullptr, &blocked) != 0 || sigismember(&blocked, signal) != 0)
    {
        return -1;
    }
    const pthread_t self = pthread_self();
    for (int index = 0; index < THREAD_RECORDS; ++index)
    {
        pthread_t free{};
        if (sThreads[index].owner.compare_exchange_strong(free, self, std::memory_order_acq_rel))
        {
            tPlace.index = index;
            tThreadId = currentThreadId();
            tRecord = index;
            break;
        }
    }
    return tRecord;
}

// Looked up once per thread.
inline int threadRecord(int signal)
{
    const int record = tRecord;
    return record != -2 ? record : lookUpThreadRecord(signal);
}

struct sigaction sReplaced[NSIG];
bool sInstalled[NSIG] = {};

void onStopSignal(int signal, siginfo_t* info, void* machineContext)
{
    const int savedErrno = errno;
    const pthread_t self = pthread_self();
    for (ThreadRecord& record : sThreads)
    {
        if (pthread_equal(record.owner.load(std::memory_order_relaxed), self) != 0)
        {
            // Every entry running on this thread, nested ones included: a stop due in an outer one is hooked now
            // and fires when its script runs again.
            for (LuaContext* context = record.innermost.load(std::memory_order_relaxed); context != nullptr;
                 context = context->outerOnThread)
            {
                lua_State* running = context->running.load(std::memory_order_relaxed);
                if (running != nullptr && stopDue(*context))
                {
                    lua_sethook(running, &budgetHook, LUA_MASKCOUNT, 1);
                }
            }
            break;
        }
    }
    const struct sigaction& replaced = sReplaced[signal];
    if ((replaced.sa_flags & SA_SIGINFO) != 0)
    {
        if (replaced.sa_sigaction != nullptr)
        {
            replaced.sa_sigaction(signal, info, machineContext);
        }
    }
    else if (replaced.sa_handler != SIG_DFL && replaced.sa_handler != SIG_IGN && replaced.sa_handler != nullptr)
    {
        replaced.sa_handler(signal);
    }
    errno = savedErrno;
}

// One thread for the whole process that signals entries whose time ran out. Entries link themselves in and out;
// it sleeps until the earliest deadline, or for good while none is registered.
class DeadlineThread
{
public:
    // False when no deadline thread can run (it could not start, or the process is exiting).
    bool add(DeadlineEntry& entry)
    {
        std::lock_guard<std::mutex> guard(mMutex);
        if (mQuit)
        {
            return false;
        }
        if (!mStarted)
        {
            if (pthread_create(&mThread, nullptr, &DeadlineThread::_main, this) != 0)
            {
                return false;
            }
            mStarted = true;
        }
        entry.previous = nullptr;
        entry.next = mHead;
        if (mHead != nullptr)
        {
            mHead->previous = &entry;
        }
        mHead = &entry;
        entry.fired = false;
        entry.linked = true;
        if (entry.deadline < mPlannedWake)
        {
            mWake->notify_one();
        }
        return true;
    }

    void remove(DeadlineEntry& entry)
    {
        std::lock_guard<std::mutex> guard(mMutex);
        if (entry.linked)
        {
            _unlink(entry);
        }
    }

    void stop()
    {
        {
            std::lock_guard<std::mutex> guard(mMutex);
            mQuit = true;
        }
        mWake->notify_one();
        if (mStarted)
        {
            pthread_join(mThread, nullptr);
            mStarted = false;
        }
    }

    // A child of fork() has only the thread that forked: no deadline thread, and no entries of other threads.
    // The lock is held across the fork so that the child gets the list whole.
    void beforeFork() { mMutex.lock(); }
    void afterForkInParent() { mMutex.unlock(); }
    void afterForkInChild()
    {
        mStarted = false;
        const pthread_t self = pthread_self();
        for (DeadlineEntry* entry = mHead; entry != nullptr;)
        {
            DeadlineEntry* next = entry->next;
            if (pthread_equal(entry->owner, self) == 0)
            {
                _unlink(*entry);
            }
            entry = next;
        }
        mPlannedWake = std::chrono::steady_clock::time_point::max();
        // The old one may count the vanished thread as waiting; it is left behind.
        mWake = new std::condition_variable();
        mMutex.unlock();
    }

private:
    static void* _main(void* self)
    {
        static_cast<DeadlineThread*>(self)->_run();
        return nullptr;
    }

    void _unlink(DeadlineEntry& entry)
    {
        (entry.previous != nullptr ? entry.previous->next : mHead) = entry.next;
        if (entry.next != nullptr)
        {
            entry.next->previous = entry.previous;
        }
        entry.previous = nullptr;
        entry.next = nullptr;
        entry.linked = false;
    }

    void _run()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mQuit)
        {
            const auto now = std::chrono::steady_clock::now();
            auto earliest = std::chrono::steady_clock::time_point::max();
            for (DeadlineEntry* entry = mHead; entry != nullptr; entry = entry->next)
            {
                if (entry->fired)
                {
                    continue;
                }
                if (entry->deadline <= now)
                {
                    // Linked means the entry runs, so its thread is alive until it takes the lock to leave.
                    entry->fired = true;
                    entry->slot->timedOut.store(entry->entry, std::memory_order_seq_cst);
                    pthread_kill(entry->owner, entry->signal);
                }
                else if (entry->deadline < earliest)
                {
                    earliest = entry->deadline;
                }
            }
            mPlannedWake = earliest;
            if (earliest == std::chrono::steady_clock::time_point::max())
            {
                mWake->wait(lock);
            }
            else
            {
                mWake->wait_until(lock, earliest);
            }
        }
    }

    std::mutex mMutex;
    std::condition_variable* mWake = new std::condition_variable();
    pthread_t mThread{};
    bool mStarted = false;
    DeadlineEntry* mHead = nullptr;
    std::chrono::steady_clock::time_point mPlannedWake = std::chrono::steady_clock::time_point::max();
    bool mQuit = false;
};

DeadlineThread* sDeadlines = nullptr;

// The thread is joined at exit; the object itself is never destroyed, so that an entry made during static
// destruction finds it stopped rather than gone, and polls instead.
DeadlineThread& deadlines()
{
    static DeadlineThread* const sThread = []
    {
        sDeadlines = new DeadlineThread();
        pthread_atfork([] { sDeadlines->beforeFork(); }, [] { sDeadlines->afterForkInParent(); },
                       [] { sDeadlines->afterForkInChild(); });
        return sDeadlines;
    }();
    struct JoinAtExit
    {
        ~JoinAtExit() { sThread->stop(); }
    };
    static JoinAtExit sJoin;
    return *sThread;
}
} // namespace

bool installStopSignal(int signal)
{
    if (!SIGNALS_REACH_LUA || signal <= 0 || signal >= NSIG)
    {
        return false;
    }
    static std::mutex sInstalling;
    std::lock_guard<std::mutex> guard(sInstalling);
    if (sInstalled[signal])
    {
        return true;
    }
    struct sigaction action = {};
    action.sa_sigaction = &onStopSignal;
    sigemptyset(&action.sa_mask);
    // System calls of native code that the signal interrupts go on as if nothing happened.
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    if (sigaction(signal, &action, &sReplaced[signal]) != 0)
    {
        return false;
    }
    sInstalled[signal] = true;
    return true;
}

namespace
{
// Both halves sit in one function with the call between them: an entry is the hottest road from native code.
[[gnu::always_inline]] inline void beginEntry(LuaContext& context, lua_State* state)
{
    InterruptSlot* slot = context.interruptSlot;
    context.running.store(state, std::memory_order_relaxed);
    context.reachable = false;
    if (context.stopSignal != 0 && slot != nullptr)
    {
        const int record = threadRecord(context.stopSignal);
        if (record >= 0)
        {
            context.reachable = true;
            context.threadRecord = record;
            context.outerOnThread = sThreads[record].innermost.load(std::memory_order_relaxed);
            slot->ownerThread.store(tThreadId, std::memory_order_relaxed);
            // The handler must see the context whole before it sees it at all.
            std::atomic_signal_fence(std::memory_order_seq_cst);
            sThreads[record].innermost.store(&context, std::memory_order_relaxed);
        }
    }
    if (slot != nullptr)
    {
        slot->lastEntry = context.entry;
        slot->running.store(context.entry, std::memory_order_release);
    }
    if (context.watchdogArmed)
    {
        context.runStart = std::chrono::steady_clock::now();
        const uint32_t timeout = context.runtime->getWatchdogSettings().timeoutMilliseconds;
        if (context.reachable && timeout != 0)
        {
            DeadlineEntry& deadline = context.deadline;
            deadline.deadline = context.runStart + std::chrono::milliseconds(timeout);
            deadline.owner = pthread_self();
            deadline.signal = context.stopSignal;
            deadline.slot = slot;
            deadline.entry = context.entry;
            if (!deadlines().add(deadline))
            {
                context.reachable = false;
            }
        }
    }
    if (state != context.hookFreeThread || context.hookInterval != 0 || (context.stoppable && !context.reachable))
    {
        syncHook(context, state);
    }
}

[[gnu::always_inline]] inline void endEntry(LuaContext& context)
{
    if (context.deadline.linked)
    {
        deadlines().remove(context.deadline);
    }
    if (InterruptSlot* slot = context.interruptSlot)
    {
        slot->running.store(0, std::memory_order_release);
        slot->ownerThread.store(0, std::memory_order_relaxed);
        // With the entry gone the handler hooks nothing more for it; before, a stop due may have hooked any
        // thread of the context.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (slot->requested.load(std::memory_order_relaxed) == context.entry ||
            slot->timedOut.load(std::memory_order_relaxed) == context.entry)
        {
            context.hookFreeThread = nullptr;
        }
    }
    if (context.threadRecord >= 0)
    {
        sThreads[context.threadRecord].innermost.store(context.outerOnThread, std::memory_order_relaxed);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        context.outerOnThread = nullptr;
        context.threadRecord = -1;
    }
    context.running.store(nullptr, std::memory_order_relaxed);
}

} // namespace

int runEntry(LuaContext& context, lua_State* state, int function, int argumentCount, int resultCount, int handler)
{
    context.traceback.clear();
    context.errorFile.clear();
    context.errorLine = -1;
    // A fresh budget, and a number that interrupts from now on refer to.
    context.instructionsUsed = 0;
    context.stopped = false;
    context.entry = ++context.entries;
    beginEntry(context, state);
    int status = lua_pcall(state, argumentCount, resultCount, handler);
    if (status == LUA_OK && !context.stopped && stopDue(context))
    {
        // Asked to stop before the script got back to an instruction: its end is a safe point too.
        chargeWork(context, state, 0);
    }
    endEntry(context);
    context.entry = 0;
    if (!context.referencesPinned && atStackBottom(context, state, lua_gettop(state)))
    {
        // The table was remade while the entry ran; the old one goes with its slot.
        pinReferences(context, state);
    }
    if (context.hookHurried)
    {
        // The pace of the hook again; coroutines take it when next resumed.
        context.hookHurried = false;
        syncHook(context, context.state);
        syncHook(context, state);
    }
    if (status == LUA_OK && context.stopped)
    {
        // Stopped inside native code that dropped the error, and ended before the next look of the hook.
        lua_settop(state, function - 1);
        lua_pushlstring(state, context.stopMessage.data(), context.stopMessage.size());
        status = LUA_ERRRUN;
    }
    return status;
}

void signalInterrupt(InterruptSlot& slot, int signal)
{
    const uint64_t running = slot.running.load(std::memory_order_acquire);
    if (running == 0)
    {
        return;
    }
    slot.requested.store(running, std::memory_order_seq_cst);
    const pid_t thread = slot.ownerThread.load(std::memory_order_relaxed);
    if (thread != 0 && signal != 0)
    {
        signalThread(thread, signal);
    }
}

void switchThread(LuaContext& context, lua_State* thread)
{
    context.running.store(thread, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    syncHook(context, thread);
}
} // namespace Scripting::Lua::internal
