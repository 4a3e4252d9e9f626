#pragma once

#include "TestHost/Execution.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace Ovelith::TestHost
{
namespace internal
{
class CaseReportRouter;
}

// The failure text of an exception that ended a case: "uncaught exception (<type>): <what>", each part where
// known.
std::string describeException(const std::optional<std::string>& type, const std::optional<std::string>& what);

// Runs cases of a module in the calling process and tells a listener what happens: the part the in-process
// executor and a worker process share.
class CaseRunner
{
public:
    // Both must outlive the runner.
    CaseRunner(CoreTestFramework::TestModule& module, IRunListener& listener);
    ~CaseRunner();
    CaseRunner(const CaseRunner&) = delete;
    CaseRunner& operator=(const CaseRunner&) = delete;

    // Initialises the module with the runner as its listener; a message when that threw.
    std::optional<std::string> initialize();

    // Runs the cases of `testClass` from `firstCase` on, in order, on one object made within the first case and
    // deleted within the last that runs, so that whatever its construction or destruction reports belongs to a
    // case. After each case `stopAfter(failed)` may end the class early. Returns the index after the last case
    // that ran.
    size_t runClass(const PlannedClass& testClass, size_t firstCase, const std::function<bool(bool)>& stopAfter);

    // Cleans the module up; a message when that threw or when reports arrived while no case was running.
    std::optional<std::string> cleanup();

private:
    CoreTestFramework::TestModule& mModule;
    IRunListener& mListener;
    std::unique_ptr<internal::CaseReportRouter> mRouter;
};
} // namespace Ovelith::TestHost
