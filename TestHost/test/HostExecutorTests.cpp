#include "TestHost/InProcessExecutor.h"
#include "TestHost/WorkerExecutor.h"

#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestModule.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <functional>
#include <map>
#include <stdexcept>

using namespace Ovelith::TestHost;
using Ovelith::CoreTestFramework::PlatformInitializationData;
using Ovelith::CoreTestFramework::TestFailureReport;
using Ovelith::CoreTestFramework::TestModule;
using Ovelith::CoreTestFramework::TestResultListener;

namespace
{
using Log = std::vector<std::string>;

// How a scripted piece of a case behaves.
enum class Behaviour
{
    Pass,
    Report,
    ReportAndReturnFalse,
    ReturnFalse,
    ThrowStandard,
    ThrowUnknown,
    // As the module does when a case throws: a report from within its handler, naming the case's stub.
    ReportInHandler,
    // A report naming the stub, outside any handler.
    ReportAsStub,
};

const std::string STUB = "A::generateTestDataFor_two";

void act(Behaviour behaviour, TestResultListener* listener, const std::string& what)
{
    switch (behaviour)
    {
    case Behaviour::Pass:
    case Behaviour::ReturnFalse:
        return;
    case Behaviour::Report:
    case Behaviour::ReportAndReturnFalse:
        listener->reportFailure(TestFailureReport{"check", "case.cpp", "7", what + " failed", std::nullopt});
        return;
    case Behaviour::ThrowStandard:
        throw std::runtime_error(what + " threw");
    case Behaviour::ThrowUnknown:
        throw 42;
    case Behaviour::ReportInHandler:
        try
        {
            throw std::logic_error("caught");
        }
        catch (const std::exception& exception)
        {
            listener->reportFailure(TestFailureReport{STUB, "case.cpp", "7", exception.what(), std::nullopt});
        }
        return;
    case Behaviour::ReportAsStub:
        listener->reportFailure(TestFailureReport{STUB, "case.cpp", "7", "as the stub", std::nullopt});
        return;
    }
}

class FakeObject final : public ZentaryUnitTest::TestClassBase
{
public:
    FakeObject(std::string name, Log& log, std::function<void()> onDestroy)
        : mName(std::move(name)), mLog(log), mOnDestroy(std::move(onDestroy))
    {
    }
    ~FakeObject() noexcept override
    {
        mLog.push_back("delete " + mName);
        if (mOnDestroy)
        {
            mOnDestroy();
        }
    }
    void onBeforeTest() override
    {
        mLog.push_back("before");
        act(mBefore, mListener, "before");
    }
    void onAfterTest() override
    {
        mLog.push_back("after");
        act(mAfter, nullptr, "after");
    }

    Behaviour mBefore = Behaviour::Pass;
    Behaviour mAfter = Behaviour::Pass;
    TestResultListener* mListener = nullptr;

private:
    std::string mName;
    Log& mLog;
    std::function<void()> mOnDestroy;
};

// A module driven by a script: it logs every call the host makes, in one timeline with the run's events.
class FakeModule final : public TestModule
{
public:
    explicit FakeModule(Log& log) : TestModule(nullptr), mLog(log) {}

    void initialize(const PlatformInitializationData&, TestResultListener* listener) override
    {
        mLog.push_back(listener ? "initialize" : "initialize without listener");
        mListener = listener;
        if (mInitializeThrows)
        {
            throw std::runtime_error("no platform");
        }
        if (mReportWhileIdle)
        {
            listener->reportFailure(TestFailureReport{"idle", "idle.cpp", "3", "stray", std::nullopt});
        }
    }
    void cleanup() override
    {
        mLog.push_back("cleanup");
        if (mCleanupThrows)
        {
            throw 1;
        }
    }
    TestClassPointer createTestClass(const TestClassId& id) const noexcept override
    {
        mLog.push_back("create " + id.name);
        if (id.name == mUncreatable)
        {
            return {nullptr, &destroy};
        }
        std::function<void()> onDestroy;
        if (id.name == mReportOnDestroy)
        {
            onDestroy = [this] {
                mListener->reportFailure(TestFailureReport{"~", "d.cpp", "1", "destructor", std::nullopt});
            };
        }
        auto* object = new FakeObject(id.name, mLog, std::move(onDestroy));
        object->mBefore = mBefore;
        object->mAfter = mAfter;
        object->mListener = mListener;
        return {object, &destroy};
    }
    bool runTest(ZentaryUnitTest::TestClassBase&, const TestFunctionId& id) const override
    {
        mLog.push_back("run " + id.name);
        const auto it = mScript.find(id.name);
        const Behaviour behaviour = it == mScript.end() ? Behaviour::Pass : it->second;
        act(behaviour, mListener, id.name);
        return behaviour != Behaviour::ReturnFalse && behaviour != Behaviour::ReportAndReturnFalse;
    }

    std::map<std::string, Behaviour> mScript;
    Behaviour mBefore = Behaviour::Pass;
    Behaviour mAfter = Behaviour::Pass;
    std::string mUncreatable;
    std::string mReportOnDestroy;
    bool mInitializeThrows = false;
    bool mCleanupThrows = false;
    bool mReportWhileIdle = false;

private:
    static void destroy(ZentaryUnitTest::TestClassBase* object) { delete object; }

    Log& mLog;
    TestResultListener* mListener = nullptr;
};

class RecordingRunListener final : public IRunListener
{
public:
    explicit RecordingRunListener(Log& log) : mLog(log) {}

    void onCaseStarted(const PlannedClass& testClass, const PlannedCase& testCase) override
    {
        mLog.push_back("started " + fullName(testClass, testCase));
    }
    void onCaseReport(const PlannedClass& testClass, const PlannedCase& testCase,
                      const TestFailureReport& report) override
    {
        mLog.push_back("report " + fullName(testClass, testCase) + ": " + report.message);
        messages[fullName(testClass, testCase)].push_back(report.message);
        functions[fullName(testClass, testCase)].push_back(report.function);
    }
    void onCaseFinished(const PlannedClass& testClass, const PlannedCase& testCase, CaseOutcome outcome,
                        std::chrono::nanoseconds duration) override
    {
        static const char* const NAMES[] = {"passed", "failed", "skipped"};
        mLog.push_back(std::string(NAMES[static_cast<int>(outcome)]) + " " + fullName(testClass, testCase));
        outcomes[fullName(testClass, testCase)] = outcome;
        EXPECT_GE(duration.count(), 0);
    }

    void reset()
    {
        outcomes.clear();
        messages.clear();
        functions.clear();
    }

    std::map<std::string, CaseOutcome> outcomes;
    std::map<std::string, std::vector<std::string>> messages;
    std::map<std::string, std::vector<std::string>> functions;

private:
    Log& mLog;
};

PlannedCase plannedCase(const std::string& className, const std::string& name)
{
    return PlannedCase{className + "::generateTestDataFor_" + name, name, "/src/" + className + ".cpp", 12, {}};
}

TestPlan samplePlan()
{
    return TestPlan{"Fake",
                    "/fake.so",
                    {{"A", {"a"}, {plannedCase("A", "one"), plannedCase("A", "two"), plannedCase("A", "three")}},
                     {"B", {"b"}, {plannedCase("B", "only")}}}};
}

class HostExecutorTest : public ::testing::Test
{
protected:
    std::optional<std::string> run(size_t maxFailures = 0)
    {
        InProcessExecutor executor(mModule);
        return executor.execute(mPlan, ExecutionSettings{maxFailures}, mListener);
    }

    std::optional<std::string> runInWorkers(size_t jobs, size_t maxFailures = 0)
    {
        mListener.reset();
        WorkerExecutor executor(mModule, WorkerSettings{jobs, 0});
        std::optional<std::string> error = executor.execute(mPlan, ExecutionSettings{maxFailures}, mListener);
        // Every worker was reaped: none is left running or as a zombie.
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
        return error;
    }

    Log mLog;
    FakeModule mModule{mLog};
    RecordingRunListener mListener{mLog};
    TestPlan mPlan = samplePlan();
};
} // namespace

TEST_F(HostExecutorTest, DrivesTheModuleInTheRequiredOrder)
{
    EXPECT_EQ(run(), std::nullopt);
    // One line per case; the class's object is made in its first case and deleted in its last.
    // clang-format off
    const Log expected = {
        "initialize",
        "started A.one", "create A", "before", "run A.A::generateTestDataFor_one", "after", "passed A.one",
        "started A.two", "before", "run A.A::generateTestDataFor_two", "after", "passed A.two",
        "started A.three", "before", "run A.A::generateTestDataFor_three", "after", "delete A", "passed A.three",
        "started B.only", "create B", "before", "run B.B::generateTestDataFor_only", "after", "delete B", "passed B.only",
        "cleanup",
    };
    // clang-format on
    EXPECT_EQ(mLog, expected);
}

TEST_F(HostExecutorTest, ReportsDecideTheOutcomeNotTheReturnValue)
{
    struct Row
    {
        const char* label;
        Behaviour run;
        Behaviour before;
        Behaviour after;
        CaseOutcome outcome;
        std::vector<std::string> messages;
        bool runCalled;
    };
    const std::string id = "A.A::generateTestDataFor_two";
    using B = Behaviour;
    using O = CaseOutcome;
    // clang-format off
    const std::vector<Row> rows = {
        {"passes",                                   B::Pass,                 B::Pass,          B::Pass,         O::Passed, {}, true},
        {"false alone is no failure",                B::ReturnFalse,          B::Pass,          B::Pass,         O::Passed, {}, true},
        {"a report fails",                           B::Report,               B::Pass,          B::Pass,         O::Failed, {id + " failed"}, true},
        {"a fatal check fails",                      B::ReportAndReturnFalse, B::Pass,          B::Pass,         O::Failed, {id + " failed"}, true},
        {"an escaped exception fails with its text", B::ThrowStandard,        B::Pass,          B::Pass,         O::Failed, {"uncaught exception (std::runtime_error): " + id + " threw"}, true},
        {"anything else escaping fails",             B::ThrowUnknown,         B::Pass,          B::Pass,         O::Failed, {"uncaught exception (int)"}, true},
        {"the module's report of an exception",      B::ReportInHandler,      B::Pass,          B::Pass,         O::Failed, {"uncaught exception (std::logic_error): caught"}, true},
        {"the stub's name alone is no exception",    B::ReportAsStub,         B::Pass,          B::Pass,         O::Failed, {"as the stub"}, true},
        {"a throwing onBeforeTest skips the body",   B::Pass,                 B::ThrowStandard, B::Pass,         O::Failed, {"onBeforeTest: uncaught exception (std::runtime_error): before threw"}, false},
        {"a throwing onAfterTest fails",             B::Pass,                 B::Pass,          B::ThrowUnknown, O::Failed, {"onAfterTest: uncaught exception (int)"}, true},
    };
    // clang-format on
    for (const Row& row : rows)
    {
        mLog.clear();
        mListener.reset();
        mModule.mScript = {{id, row.run}};
        mModule.mBefore = row.before;
        mModule.mAfter = row.after;
        EXPECT_EQ(run(), std::nullopt) << row.label;

        EXPECT_EQ(mListener.outcomes["A.two"], row.outcome) << row.label;
        EXPECT_EQ(mListener.messages["A.two"], row.messages) << row.label;
        // What a check reports names its function; every other failure is named by the case, as a check in
        // the case's body would be.
        const bool check = row.run == Behaviour::Report || row.run == Behaviour::ReportAndReturnFalse;
        EXPECT_EQ(mListener.functions["A.two"], std::vector<std::string>(row.messages.size(), check ? "check" : "two"))
            << row.label;
        // The hooks are the same for every case; the body's behaviour belongs to one case only.
        if (row.before == Behaviour::Pass && row.after == Behaviour::Pass)
        {
            EXPECT_EQ(mListener.outcomes["A.one"], CaseOutcome::Passed) << row.label;
            EXPECT_EQ(mListener.outcomes["B.only"], CaseOutcome::Passed) << row.label;
        }
        const bool runCalled = std::find(mLog.begin(), mLog.end(), "run " + id) != mLog.end();
        EXPECT_EQ(runCalled, row.runCalled) << row.label;
        EXPECT_EQ(std::count(mLog.begin(), mLog.end(), "after"), 4) << row.label;
    }
}

TEST_F(HostExecutorTest, ClassLevelProblemsBelongToACase)
{
    mModule.mUncreatable = "B";
    mModule.mReportOnDestroy = "A";
    EXPECT_EQ(run(), std::nullopt);
    EXPECT_EQ(mListener.outcomes["A.one"], CaseOutcome::Passed);
    // What the destructor reports arrives within the class's last case.
    EXPECT_EQ(mListener.messages["A.three"], std::vector<std::string>{"destructor"});
    EXPECT_EQ(mListener.messages["B.only"], std::vector<std::string>{"the module could not create the test class"});
    EXPECT_EQ(mListener.outcomes["B.only"], CaseOutcome::Failed);
    EXPECT_EQ(std::count(mLog.begin(), mLog.end(), "before"), 3);
}

TEST_F(HostExecutorTest, ModuleFailuresAreReturnedInProcessAndFromWorkers)
{
    // 0 jobs: in this process.
    for (size_t jobs : {0, 1, 2})
    {
        const auto runWith = [&] { return jobs == 0 ? run() : runInWorkers(jobs); };
        mModule.mInitializeThrows = true;
        EXPECT_EQ(runWith(), "the module failed to initialise: no platform") << jobs;
        // Workers report what they never ran as skipped.
        EXPECT_EQ(mListener.outcomes.size(), jobs == 0 ? 0u : 4u) << jobs;

        mModule.mInitializeThrows = false;
        mModule.mCleanupThrows = true;
        mListener.reset();
        EXPECT_EQ(runWith(), "the module failed to clean up: unknown exception") << jobs;
        EXPECT_EQ(mListener.outcomes["B.only"], CaseOutcome::Passed) << jobs;

        mModule.mCleanupThrows = false;
        mModule.mReportWhileIdle = true;
        EXPECT_EQ(runWith(), "1 failure report(s) arrived while no case was running, the first from idle.cpp:3: stray")
            << jobs;
        EXPECT_EQ(mListener.outcomes["A.one"], CaseOutcome::Passed) << jobs;
        mModule.mReportWhileIdle = false;
        mListener.reset();
    }
}

TEST_F(HostExecutorTest, MaxFailuresStopsInProcessAndInWorkers)
{
    mModule.mScript = {{"A.A::generateTestDataFor_one", Behaviour::Report},
                       {"A.A::generateTestDataFor_two", Behaviour::Report},
                       {"A.A::generateTestDataFor_three", Behaviour::Report}};
    // 0 jobs: in this process.
    for (size_t jobs : {0, 1, 2})
    {
        for (const size_t limit : {1, 2, 4})
        {
            mListener.reset();
            EXPECT_EQ(jobs == 0 ? run(limit) : runInWorkers(jobs, limit), std::nullopt);
            const auto count = [&](CaseOutcome outcome)
            {
                return std::count_if(mListener.outcomes.begin(), mListener.outcomes.end(),
                                     [&](const auto& entry) { return entry.second == outcome; });
            };
            // A's three cases fail one after the other in one object; the limit ends the run after as many. A
            // worker ends its class after a failure that reaches a limit of one by itself; a higher limit is
            // counted by the host, and a case the worker began before the host's word to stop still ends.
            const long failed = static_cast<long>(std::min<size_t>(limit, 3));
            const bool exact = jobs == 0 || limit == 1;
            EXPECT_EQ(mListener.outcomes.size(), 4u);
            if (exact)
            {
                EXPECT_EQ(count(CaseOutcome::Failed), failed) << jobs << " " << limit;
            }
            else
            {
                EXPECT_GE(count(CaseOutcome::Failed), failed) << jobs << " " << limit;
            }
            if (limit > 3)
            {
                EXPECT_EQ(count(CaseOutcome::Skipped), 0) << jobs << " " << limit;
            }
            else if (exact && jobs < 2)
            {
                // B waits behind A and never starts.
                EXPECT_EQ(count(CaseOutcome::Skipped), 4 - count(CaseOutcome::Failed)) << jobs << " " << limit;
            }
        }
    }
}

TEST_F(HostExecutorTest, WorkersReportWhatTheProcessItselfReports)
{
    mModule.mScript = {{"A.A::generateTestDataFor_two", Behaviour::Report},
                       {"B.B::generateTestDataFor_only", Behaviour::ThrowStandard}};
    mModule.mReportOnDestroy = "A";
    EXPECT_EQ(run(), std::nullopt);
    const auto outcomes = mListener.outcomes;
    const auto messages = mListener.messages;
    ASSERT_EQ(messages.size(), 3u);
    for (size_t jobs : {1, 2})
    {
        EXPECT_EQ(runInWorkers(jobs), std::nullopt) << jobs;
        EXPECT_EQ(mListener.outcomes, outcomes) << jobs;
        EXPECT_EQ(mListener.messages, messages) << jobs;
    }
}
