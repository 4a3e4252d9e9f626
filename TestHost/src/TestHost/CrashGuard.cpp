#include "TestHost/CrashGuard.h"

#include "TestHost/FileReporter.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace Ovelith::TestHost
{
namespace
{
std::atomic<CrashGuard*> sGuard{nullptr};
volatile sig_atomic_t sHandling = 0;

constexpr int CRASH_SIGNALS[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS};
constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

// Large enough for the handler when the stack overflowed, which is why it has a stack of its own.
constexpr size_t ALTERNATE_STACK_SIZE = 64 * 1024;

// Text assembled in place, for a signal handler.
class FixedText
{
public:
    FixedText& operator<<(std::string_view text)
    {
        const size_t part = std::min(text.size(), sizeof(mText) - mUsed);
        std::memcpy(mText + mUsed, text.data(), part);
        mUsed += part;
        return *this;
    }
    std::string_view view() const { return std::string_view(mText, mUsed); }

private:
    char mText[512];
    size_t mUsed = 0;
};

bool isCrash(int signal)
{
    for (int crash : CRASH_SIGNALS)
    {
        if (crash == signal)
        {
            return true;
        }
    }
    return false;
}
} // namespace

CrashGuard::CrashGuard(std::vector<FileReporter*> reports, std::string program, int errorDescriptor)
    : mReports(std::move(reports)), mProgram(std::move(program)), mErrorDescriptor(errorDescriptor)
{
    mRunning.reserve(256);
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) != 0)
    {
        mAlternateStack.resize(ALTERNATE_STACK_SIZE);
        stack_t stack{};
        stack.ss_sp = mAlternateStack.data();
        stack.ss_size = mAlternateStack.size();
        mOwnsAlternateStack = sigaltstack(&stack, nullptr) == 0;
    }
    sGuard.store(this);
    static const bool sExitHandler = std::atexit(&CrashGuard::_onExit) == 0;
    (void)sExitHandler;

    struct sigaction action
    {
    };
    action.sa_handler = &CrashGuard::_onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_ONSTACK | SA_RESETHAND;
    const auto install = [&](int signal)
    {
        struct sigaction previous
        {
        };
        if (sigaction(signal, &action, &previous) == 0)
        {
            mPrevious.emplace_back(signal, previous);
        }
    };
    for (int signal : CRASH_SIGNALS)
    {
        install(signal);
    }
    for (int signal : STOP_SIGNALS)
    {
        install(signal);
    }
}

CrashGuard::~CrashGuard()
{
    disarm();
    for (const auto& [signal, previous] : mPrevious)
    {
        sigaction(signal, &previous, nullptr);
    }
    if (mOwnsAlternateStack)
    {
        stack_t stack{};
        stack.ss_flags = SS_DISABLE;
        sigaltstack(&stack, nullptr);
    }
}

void CrashGuard::onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase)
{
    mRunning = fullName(testClass, testCase);
}

void CrashGuard::onCaseFinished(const PlannedClass& /*testClass*/, const PlannedCase& /*testCase*/,
                                CaseOutcome /*outcome*/, std::chrono::nanoseconds /*duration*/)
{
    mRunning.clear();
}

void CrashGuard::disarm()
{
    mArmed = false;
    CrashGuard* self = this;
    sGuard.compare_exchange_strong(self, nullptr);
}

void CrashGuard::_goingDown(const char* causePrefix, const char* signalName) noexcept
{
    if (!mArmed)
    {
        return;
    }
    mArmed = false;
    FixedText cause;
    cause << causePrefix;
    if (signalName != nullptr)
    {
        cause << "SIG" << signalName;
    }
    for (FileReporter* report : mReports)
    {
        report->commitNow(cause.view());
    }

    FixedText message;
    message << "\n" << mProgram << ": ";
    if (mRunning.empty())
    {
        message << "the run " << cause.view() << " between cases";
    }
    else
    {
        message << mRunning << " " << cause.view();
    }
    message << (mReports.empty() ? "." : "; the reports hold what ran until then.");
    if (!mRunning.empty())
    {
        message << " With --isolate a case that ends the process fails alone and the run goes on.";
    }
    message << "\n";
    const std::string_view text = message.view();
    if (::write(mErrorDescriptor, text.data(), text.size()) < 0)
    {
        // Nothing is left to tell it to.
    }
}

void CrashGuard::_onSignal(int signal)
{
    if (sHandling == 0)
    {
        sHandling = 1;
        if (CrashGuard* guard = sGuard.load())
        {
            guard->_goingDown(isCrash(signal) ? "crashed with " : "was interrupted by ", sigabbrev_np(signal));
        }
    }
    // The handler was reset as it ran: raised again, the signal ends the process as it would have once this
    // returns, whether it came from a fault or from kill.
    raise(signal);
}

void CrashGuard::_onExit()
{
    if (CrashGuard* guard = sGuard.load())
    {
        guard->_goingDown("called exit", nullptr);
    }
}
} // namespace Ovelith::TestHost
