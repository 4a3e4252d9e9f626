#include "TestHost/InProcessExecutor.h"

#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestModule.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

#include <exception>
#include <mutex>
#include <optional>

namespace Ovelith::TestHost
{
namespace
{
using CoreTestFramework::TestFailureReport;
using CoreTestFramework::TestModule;
using Clock = std::chrono::steady_clock;

// The listener the module reports to. It hands each report to the run's listener as a report of the case that
// is running, and remembers whether that case failed.
class CaseReportRouter final : public CoreTestFramework::TestResultListener
{
public:
    explicit CaseReportRouter(IRunListener& listener) : mListener(listener) {}

    void begin(const PlannedClass& testClass, const PlannedCase& testCase)
    {
        std::lock_guard lock(mMutex);
        mClass = &testClass;
        mCase = &testCase;
        mFailed = false;
    }

    // Returns whether the case failed.
    bool end()
    {
        std::lock_guard lock(mMutex);
        mClass = nullptr;
        mCase = nullptr;
        return mFailed;
    }

    bool hasFailed() const
    {
        std::lock_guard lock(mMutex);
        return mFailed;
    }

    // A case may start threads, and a check on any of them reports here.
    void reportFailure(TestFailureReport&& report) override
    {
        std::lock_guard lock(mMutex);
        if (mCase == nullptr)
        {
            mStrayReports.push_back(std::move(report));
            return;
        }
        mFailed = true;
        mListener.onCaseReport(*mClass, *mCase, report);
    }

    std::vector<TestFailureReport> takeStrayReports()
    {
        std::lock_guard lock(mMutex);
        return std::move(mStrayReports);
    }

private:
    IRunListener& mListener;
    mutable std::mutex mMutex;
    const PlannedClass* mClass = nullptr;
    const PlannedCase* mCase = nullptr;
    bool mFailed = false;
    std::vector<TestFailureReport> mStrayReports;
};

// What escapes a call into the module becomes a failure of the running case. Returns whether `call` returned.
template <typename Call>
bool runReportingExceptions(CaseReportRouter& router, const PlannedCase& testCase, const char* stage, Call&& call)
{
    std::optional<std::string> escaped;
    try
    {
        call();
        return true;
    }
    catch (const std::exception& exception)
    {
        escaped = exception.what();
    }
    catch (...)
    {
        escaped = "unknown exception";
    }
    std::string message = stage == nullptr ? std::move(*escaped) : fmt::format("{}: {}", stage, *escaped);
    router.reportFailure(
        TestFailureReport{testCase.function, testCase.file, std::to_string(testCase.line), std::move(message), {}});
    return false;
}

std::optional<std::string> describeStrayReports(const std::vector<TestFailureReport>& reports)
{
    if (reports.empty())
    {
        return std::nullopt;
    }
    const TestFailureReport& first = reports.front();
    return fmt::format("{} failure report(s) arrived while no case was running, the first from {}:{}: {}",
                       reports.size(), first.file, first.line, first.message);
}
} // namespace

std::optional<std::string> InProcessExecutor::execute(const TestPlan& plan, const ExecutionSettings& settings,
                                                      IRunListener& listener)
{
    CaseReportRouter router(listener);
    try
    {
        mModule.initialize(CoreTestFramework::PlatformInitializationData{}, &router);
    }
    catch (const std::exception& exception)
    {
        return fmt::format("the module failed to initialise: {}", exception.what());
    }
    catch (...)
    {
        return std::string("the module failed to initialise: unknown exception");
    }

    bool stopped = false;
    for (const PlannedClass& testClass : plan.classes)
    {
        std::optional<TestModule::TestClassPointer> object;
        for (size_t index = 0; index < testClass.cases.size(); ++index)
        {
            const PlannedCase& testCase = testClass.cases[index];
            if (stopped)
            {
                listener.onCaseFinished(testClass, testCase, CaseOutcome::Skipped, std::chrono::nanoseconds{0});
                continue;
            }

            listener.onCaseStarted(testClass, testCase);
            router.begin(testClass, testCase);
            const Clock::time_point start = Clock::now();

            // The object is made within its first case and deleted within its last, so that whatever its
            // construction or destruction reports belongs to a case.
            if (!object)
            {
                object.emplace(mModule.createTestClass(TestModule::TestClassId{testClass.name}));
            }
            if (*object == nullptr)
            {
                router.reportFailure(TestFailureReport{testCase.function,
                                                       testCase.file,
                                                       std::to_string(testCase.line),
                                                       "the module could not create the test class",
                                                       {}});
            }
            else
            {
                ZentaryUnitTest::TestClassBase& instance = **object;
                if (runReportingExceptions(router, testCase, "onBeforeTest", [&] { instance.onBeforeTest(); }))
                {
                    runReportingExceptions(
                        router, testCase, nullptr,
                        [&]
                        { mModule.runTest(instance, TestModule::TestFunctionId{functionId(testClass, testCase)}); });
                }
                runReportingExceptions(router, testCase, "onAfterTest", [&] { instance.onAfterTest(); });
            }

            stopped = settings.failFast && router.hasFailed();
            if (stopped || index + 1 == testClass.cases.size())
            {
                object.reset();
            }
            const bool failed = router.end();
            const auto duration = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
            listener.onCaseFinished(testClass, testCase, failed ? CaseOutcome::Failed : CaseOutcome::Passed, duration);
        }
    }

    try
    {
        mModule.cleanup();
    }
    catch (const std::exception& exception)
    {
        return fmt::format("the module failed to clean up: {}", exception.what());
    }
    catch (...)
    {
        return std::string("the module failed to clean up: unknown exception");
    }
    return describeStrayReports(router.takeStrayReports());
}
} // namespace Ovelith::TestHost
