#pragma once

#include "TestHost/Execution.h"

#include <sys/types.h>

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace Ovelith::TestHost::internal
{
// The descriptor a worker talks to the host on; every other one but the standard streams is closed.
inline constexpr int WORKER_SOCKET = 3;

// What a freshly forked worker runs in place of the host: it keeps the module the host loaded, initialises it,
// runs the cases the host sends over `socket`, cleans up when the host closes its side, and ends the process.
// `host` is the forking process, whose death ends the worker too.
[[noreturn]] void runWorker(CoreTestFramework::TestModule& module, const TestPlan& plan,
                            const ExecutionSettings& settings, int socket, pid_t host);
} // namespace Ovelith::TestHost::internal
