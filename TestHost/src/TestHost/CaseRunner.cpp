#include "TestHost/CaseRunner.h"

#include "TestHost/GeneratedCases.h"
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestClassHolder.h"
#include "ZentaryUnitTest/TestModule.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <vector>

namespace Ovelith::TestHost
{
using CoreTestFramework::TestFailureReport;
using CoreTestFramework::TestModule;
using Clock = std::chrono::steady_clock;

namespace internal
{
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
} // namespace internal

namespace
{
// What escapes a call into the module becomes a failure of the running case. Returns whether `call` returned.
template <typename Call>
bool runReportingExceptions(internal::CaseReportRouter& router, const PlannedCase& testCase, const char* stage,
                            Call&& call)
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

// Runs a call into the module that no case owns; a message naming `what` when it threw.
template <typename Call>
std::optional<std::string> runModuleCall(const char* what, Call&& call)
{
    try
    {
        call();
        return std::nullopt;
    }
    catch (const std::exception& exception)
    {
        return fmt::format("the module failed to {}: {}", what, exception.what());
    }
    catch (...)
    {
        return fmt::format("the module failed to {}: unknown exception", what);
    }
}
} // namespace

CaseRunner::CaseRunner(TestModule& module, IRunListener& listener)
    : mModule(module), mListener(listener), mRouter(std::make_unique<internal::CaseReportRouter>(listener))
{
}

CaseRunner::~CaseRunner() = default;

std::optional<std::string> CaseRunner::initialize()
{
    return runModuleCall("initialise",
                         [&] { mModule.initialize(CoreTestFramework::PlatformInitializationData{}, mRouter.get()); });
}

namespace
{
// The index in `holder` of the generated case named `name`.
std::optional<uint32_t> generatedIndexOf(const ZentaryUnitTest::TestClassData& holder, const std::string& name)
{
    for (uint32_t index = holder.getPlainTestCount(); index < holder.getTestCount(); ++index)
    {
        if (holder.getTest(index).description.name == name)
        {
            return index;
        }
    }
    return std::nullopt;
}
} // namespace

size_t CaseRunner::runClass(const PlannedClass& testClass, size_t firstCase, const std::function<bool(bool)>& stopAfter)
{
    internal::CaseReportRouter& router = *mRouter;
    // A class with generated cases runs on the object its generators ran on, which the holder keeps.
    const bool hasGenerated = std::any_of(testClass.cases.begin(), testClass.cases.end(),
                                          [](const PlannedCase& testCase) { return testCase.generated; });
    std::unique_ptr<ZentaryUnitTest::TestClassData> holder;
    std::optional<TestModule::TestClassPointer> object;
    ZentaryUnitTest::TestClassBase* instance = nullptr;
    bool created = false;
    const auto runCase = [&](const PlannedCase& testCase, ZentaryUnitTest::TestClassBase& target)
    {
        if (!testCase.generated)
        {
            runReportingExceptions(
                router, testCase, nullptr,
                [&] { mModule.runTest(target, TestModule::TestFunctionId{functionId(testClass, testCase)}); });
            return;
        }
        const std::optional<uint32_t> generated = generatedIndexOf(*holder, testCase.function);
        if (!generated)
        {
            router.reportFailure(TestFailureReport{testCase.function,
                                                   testCase.file,
                                                   std::to_string(testCase.line),
                                                   "the generators did not generate this case again",
                                                   {}});
            return;
        }
        runReportingExceptions(router, testCase, nullptr,
                               [&]
                               {
                                   try
                                   {
                                       holder->runTest(*generated);
                                   }
                                   catch (const CoreTestFramework::Assert::AssertException&)
                                   {
                                       // The check reported itself before it threw, as TestModule::runTest has it.
                                   }
                               });
    };
    for (size_t index = firstCase; index < testClass.cases.size(); ++index)
    {
        const PlannedCase& testCase = testClass.cases[index];
        mListener.onCaseStarted(testClass, testCase);
        router.begin(testClass, testCase);
        const Clock::time_point start = Clock::now();

        if (!created)
        {
            created = true;
            if (hasGenerated)
            {
                runReportingExceptions(router, testCase, "generating cases",
                                       [&] { holder = makeGeneratedClass(mModule, testClass.name); });
                instance = holder ? holder->getTestObject() : nullptr;
            }
            else
            {
                object.emplace(mModule.createTestClass(TestModule::TestClassId{testClass.name}));
                instance = object->get();
            }
        }
        if (instance == nullptr)
        {
            router.reportFailure(TestFailureReport{testCase.function,
                                                   testCase.file,
                                                   std::to_string(testCase.line),
                                                   "the module could not create the test class",
                                                   {}});
        }
        else
        {
            if (runReportingExceptions(router, testCase, "onBeforeTest", [&] { instance->onBeforeTest(); }))
            {
                runCase(testCase, *instance);
            }
            runReportingExceptions(router, testCase, "onAfterTest", [&] { instance->onAfterTest(); });
        }

        const bool stop = stopAfter(router.hasFailed());
        if (stop || index + 1 == testClass.cases.size())
        {
            object.reset();
            holder.reset();
            instance = nullptr;
        }
        const bool failed = router.end();
        const auto duration = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
        mListener.onCaseFinished(testClass, testCase, failed ? CaseOutcome::Failed : CaseOutcome::Passed, duration);
        if (stop)
        {
            return index + 1;
        }
    }
    return testClass.cases.size();
}

std::optional<std::string> CaseRunner::cleanup()
{
    if (std::optional<std::string> error = runModuleCall("clean up", [&] { mModule.cleanup(); }))
    {
        return error;
    }
    const std::vector<TestFailureReport> stray = mRouter->takeStrayReports();
    if (stray.empty())
    {
        return std::nullopt;
    }
    const TestFailureReport& first = stray.front();
    return fmt::format("{} failure report(s) arrived while no case was running, the first from {}:{}: {}", stray.size(),
                       first.file, first.line, first.message);
}
} // namespace Ovelith::TestHost
