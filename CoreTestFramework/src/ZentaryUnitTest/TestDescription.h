#pragma once

#include "ZentaryUnitTest/TestTags.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ZentaryUnitTest
{
class TestClassBase;
class TestClassData;
} // namespace ZentaryUnitTest

namespace Ovelith::CoreTestFramework
{
struct TestFunctionDescription;

using TestInvokeFunction = void (*)(ZentaryUnitTest::TestClassBase& object, const TestFunctionDescription& description,
                                    const std::string& parameter);

// One case, as the module publishes it.
struct TestFunctionDescription
{
    // The qualified name of the case's registration stub: "<class>::generateTestDataFor_<case>".
    std::string name;
    std::string file;
    uint32_t line = 0;
    TestTags tags;
    std::string parameter;
    TestInvokeFunction invoke = nullptr;
};

struct TestAsset
{
    std::string path;
    bool required = false;
};
} // namespace Ovelith::CoreTestFramework

namespace ZentaryUnitTest
{
// A generator of cases: a description, the state flags a case has, the generating member function and
// one word for the generator's own use.
struct GeneratorData
{
    using Generator = void (TestClassBase::*)(const char* file, uint32_t line, TestClassData& data);

    Ovelith::CoreTestFramework::TestFunctionDescription description;
    bool flagged = false;
    bool waiting = false;
    bool reserved = false;
    uint64_t flaggedFirst = 0;
    uint64_t flaggedSecond = 0;
    Generator generator = nullptr;
    uintptr_t userData = 0;
};

using ClassCleanupFunction = void (*)(TestClassBase*);
using ClassSetupFunction = void (*)(TestClassBase*, ClassCleanupFunction);
using CreateTestClassFunction = void (*)(std::unique_ptr<TestClassBase>& out);
} // namespace ZentaryUnitTest

namespace Ovelith::CoreTestFramework
{
// One suite class, as the module publishes it.
struct TestClassDescription
{
    ZentaryUnitTest::ClassSetupFunction classSetup = nullptr;
    ZentaryUnitTest::ClassCleanupFunction classCleanup = nullptr;
    ZentaryUnitTest::CreateTestClassFunction create = nullptr;
    std::string name;
    TestTags tags;
    std::vector<TestFunctionDescription> functions;
    std::vector<ZentaryUnitTest::GeneratorData> generators;
    std::vector<TestAsset> assets;
};

// The short name of a case: what follows "generateTestDataFor_" in its description's name.
std::string getTestName(const std::string& descriptionName);
} // namespace Ovelith::CoreTestFramework
