#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Ovelith::TestHost
{
// Plain data only, copied out of the module: an executor in another process must be able to rebuild the ids it
// hands to runTest from this alone.
struct PlannedCase
{
    // The description's name, "<class>::generateTestDataFor_<case>"; runTest knows a case by it.
    std::string function;
    // The short name people read and filter by.
    std::string name;
    std::string file;
    uint32_t line = 0;
    // The case's own tags; its class's tags apply as well.
    std::vector<std::string> tags;
    // Added by a generator of the class: it has no id in the module, and runs on the object the generators
    // ran on.
    bool generated = false;
};

struct PlannedClass
{
    std::string name;
    std::vector<std::string> tags;
    std::vector<PlannedCase> cases;
    // Which round of a repeated run these cases belong to, from 0.
    size_t round = 0;
};

// The selected cases of one module, in the order they run.
struct TestPlan
{
    // Short label of the module (its file name without extension); prefixes JUnit class names.
    std::string moduleName;
    std::string modulePath;
    std::vector<PlannedClass> classes;
    // How many rounds the run makes, 0 for rounds until one fails. A run of one round tags nothing with its
    // round.
    size_t rounds = 1;

    bool isRepeated() const { return rounds != 1; }
    size_t caseCount() const;
};

// "<class>.<case>": what people see and what --filter matches.
std::string fullName(const PlannedClass& testClass, const PlannedCase& testCase);

// "<class>.<description name>": what the module's runTest takes.
std::string functionId(const PlannedClass& testClass, const PlannedCase& testCase);
} // namespace Ovelith::TestHost
