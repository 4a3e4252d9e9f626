#pragma once

#include "ZentaryUnitTest/TestDescription.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace ZentaryUnitTest
{
class TestClassData;
}

namespace Ovelith::TestHost
{
// The cases the generators of a module add, by class name.
using GeneratedCaseMap = std::map<std::string, std::vector<CoreTestFramework::TestFunctionDescription>>;

struct GeneratedCasesResult
{
    GeneratedCaseMap cases;
    // One line saying why generation failed; the cases are then incomplete.
    std::optional<std::string> error;
};

// Runs every generator of the module, each class on an object of its own, and collects what they add. The
// module is initialised for this and cleaned up again, and only if it has a generator at all.
GeneratedCasesResult generateCases(CoreTestFramework::TestModule& module);

// A holder of the class `className` whose object the module made and whose generators ran on it: what a
// class with generated cases runs on. Whatever the generators raise passes to the caller.
std::unique_ptr<ZentaryUnitTest::TestClassData> makeGeneratedClass(CoreTestFramework::TestModule& module,
                                                                   const std::string& className);
} // namespace Ovelith::TestHost
