#pragma once

#include "TestHost/Execution.h"

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace Ovelith::TestHost
{
// Runs every case in this process, one object per class, in the order of the plan. A crash or a hang of a case
// is the host's crash or hang; WorkerExecutor is the one that survives them.
class InProcessExecutor final : public IExecutor
{
public:
    // The module must outlive the executor.
    explicit InProcessExecutor(CoreTestFramework::TestModule& module) : mModule(module) {}

    std::optional<std::string> execute(const TestPlan& plan, const ExecutionSettings& settings,
                                       IRunListener& listener) override;

private:
    CoreTestFramework::TestModule& mModule;
};
} // namespace Ovelith::TestHost
