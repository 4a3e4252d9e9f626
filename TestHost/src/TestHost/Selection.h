#pragma once

#include "TestHost/GeneratedCases.h"
#include "TestHost/TestPlan.h"

#include <optional>
#include <string>
#include <vector>

namespace Ovelith::CoreTestFramework
{
struct TestClassDescription;
}

namespace Ovelith::TestHost
{
// Which cases of a module to run. A case's tags are its own plus its class's.
struct Selection
{
    // A case runs if it holds any of these; "all" selects every case. Empty: every case except the hidden ones
    // (those of "suite:perf"), which come in only where a positive filter pattern names them.
    std::vector<std::string> includeTags;
    // A case holding any of these never runs.
    std::vector<std::string> excludeTags;
    // GoogleTest-style pattern over "<class>.<case>".
    std::optional<std::string> filter;
    // The module publishes classes, and cases within a class, newest registration first. Unless this is set,
    // the plan turns both around, so that cases run in the order they were declared.
    bool moduleOrder = false;
};

inline constexpr const char* PERF_SUITE_TAG = "suite:perf";
inline constexpr const char* ALL_TAG = "all";

// The selected cases in declaration order (or the module's, on request), each class's generated cases after its
// plain ones; classes without a selected case are left out.
std::vector<PlannedClass> selectCases(const std::vector<CoreTestFramework::TestClassDescription>& classes,
                                      const Selection& selection, const GeneratedCaseMap& generated = {});
} // namespace Ovelith::TestHost
