#pragma once

#include "ZentaryUnitTest/TestTags.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
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
// A case with the run state a driver keeps for it: whether the driver flagged it (with two words of its own)
// and whether it is waiting for the driver's gate.
class TestData
{
public:
    TestData() = default;
    explicit TestData(Ovelith::CoreTestFramework::TestFunctionDescription function) : description(std::move(function))
    {
    }

    bool isFlagged() const { return mFlagged; }
    void setFlagged(const uint64_t& first, const uint64_t& second);
    // Lets every test run again.
    void clearFlagged();
    uint64_t getFlaggedFirst() const { return mFlaggedFirst; }
    uint64_t getFlaggedSecond() const { return mFlaggedSecond; }

    // Waiting counts only while tests may not run.
    bool isWaiting() const;
    // Asks the gate whether tests may run on; with no gate they may.
    void beginWaiting();
    void endWaiting();

    Ovelith::CoreTestFramework::TestFunctionDescription description;

private:
    friend class TestClassData;

    bool mFlagged = false;
    bool mWaiting = false;
    // Kept for the layout drivers know; nothing here reads it.
    [[maybe_unused]] bool mReserved = false;
    uint64_t mFlaggedFirst = 0;
    uint64_t mFlaggedSecond = 0;
};

// A generator of cases: its description and state, the generating member function and one word for the
// generator's own use.
struct GeneratorData : TestData
{
    using Generator = void (TestClassBase::*)(const char* file, uint32_t line, TestClassData& data);

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
