#pragma once

#include "TestHost/Execution.h"

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace Ovelith::TestHost
{
struct WorkerSettings
{
    // Worker processes at once.
    size_t jobs = 1;
    // How long a case may run before its worker is killed, in seconds; 0 for no limit. It bounds a worker's
    // initialisation and clean-up of the module as well.
    double timeoutSeconds = 0;
};

// Runs the cases in worker processes forked from this one, so that a case that crashes, exits or hangs fails
// alone: its worker is reaped, the case is reported with the cause, and a fresh worker takes the remaining
// cases. Work is handed out class by class; a class's cases run in order on one object in one worker. Each
// case's events reach the listener together when it ends, in the order cases end.
//
// Workers are forked rather than started afresh: they inherit the loaded module and the plan, so nothing has
// to be loaded twice or sent over, and a replacement costs a fork. This needs the host to be single-threaded
// while it runs the plan, which it is.
class WorkerExecutor final : public IExecutor
{
public:
    // The module must outlive the executor; this process never initialises it.
    WorkerExecutor(CoreTestFramework::TestModule& module, WorkerSettings settings)
        : mModule(module), mSettings(settings)
    {
    }

    std::optional<std::string> execute(const TestPlan& plan, const ExecutionSettings& settings,
                                       IRunListener& listener) override;

private:
    CoreTestFramework::TestModule& mModule;
    WorkerSettings mSettings;
};
} // namespace Ovelith::TestHost
