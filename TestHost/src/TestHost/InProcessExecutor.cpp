#include "TestHost/InProcessExecutor.h"

#include "TestHost/CaseRunner.h"

namespace Ovelith::TestHost
{
std::optional<std::string> InProcessExecutor::execute(const TestPlan& plan, const ExecutionSettings& settings,
                                                      IRunListener& listener)
{
    CaseRunner runner(mModule, listener);
    if (std::optional<std::string> error = runner.initialize())
    {
        return error;
    }
    bool stopped = false;
    size_t failures = 0;
    for (const PlannedClass& testClass : plan.classes)
    {
        size_t next = 0;
        if (!stopped)
        {
            next = runner.runClass(testClass, 0,
                                   [&](bool failed)
                                   {
                                       failures += failed ? 1 : 0;
                                       stopped = settings.maxFailures > 0 && failures >= settings.maxFailures;
                                       return stopped;
                                   });
        }
        for (; next < testClass.cases.size(); ++next)
        {
            listener.onCaseFinished(testClass, testClass.cases[next], CaseOutcome::Skipped,
                                    std::chrono::nanoseconds{0});
        }
    }
    return runner.cleanup();
}
} // namespace Ovelith::TestHost
