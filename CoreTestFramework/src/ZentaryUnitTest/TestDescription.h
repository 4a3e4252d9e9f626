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

/** @brief Runs one case on an object of its class. */
using TestInvokeFunction = void (*)(ZentaryUnitTest::TestClassBase& object, const TestFunctionDescription& description,
                                    const std::string& parameter);

/// One case, as the module publishes it.
struct TestFunctionDescription
{
    /// The qualified name of the case's registration stub: "<class>::generateTestDataFor_<case>".
    std::string name;
    /** @brief File of the case. */
    std::string file;
    /** @brief Line of the case. */
    uint32_t line = 0;
    /** @brief The case's own tags. */
    TestTags tags;
    /** @brief Passed to invoke. */
    std::string parameter;
    /** @brief Runs the case. */
    TestInvokeFunction invoke = nullptr;
};

/** @brief A file a class's cases need. */
struct TestAsset
{
    /** @brief Path of the file, as the class names it. */
    std::string path;
    /** @brief Whether the cases cannot run without it. */
    bool required = false;
};
} // namespace Ovelith::CoreTestFramework

namespace ZentaryUnitTest
{
/// A case with the run state a driver keeps for it: whether the driver flagged it (with two words of its own)
/// and whether it is waiting for the driver's gate.
class TestData
{
public:
    /** @brief A case with no description. */
    TestData() = default;
    /**
     * @brief A case, not flagged, not waiting.
     * @param function Its description.
     */
    explicit TestData(Ovelith::CoreTestFramework::TestFunctionDescription function) : description(std::move(function))
    {
    }

    /**
     * @brief Whether the driver flagged the case.
     * @return True when flagged.
     */
    bool isFlagged() const { return mFlagged; }
    /**
     * @brief Flags the case with two words of the driver's.
     * @param first First word.
     * @param second Second word.
     */
    void setFlagged(const uint64_t& first, const uint64_t& second);
    /// Lets every test run again.
    void clearFlagged();
    /** @return First word of the flag. */
    uint64_t getFlaggedFirst() const { return mFlaggedFirst; }
    /** @return Second word of the flag. */
    uint64_t getFlaggedSecond() const { return mFlaggedSecond; }

    /// Waiting counts only while tests may not run.
    /// @return True while waiting and the gate holds tests back.
    bool isWaiting() const;
    /// Asks the gate whether tests may run on; with no gate they may.
    void beginWaiting();
    /** @brief Stops waiting. */
    void endWaiting();

    /** @brief The case. */
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

/// A generator of cases: its description and state, the generating member function and one word for the
/// generator's own use.
struct GeneratorData : TestData
{
    /** @brief The member function that generates cases. */
    using Generator = void (TestClassBase::*)(const char* file, uint32_t line, TestClassData& data);

    /** @brief The generating member function. */
    Generator generator = nullptr;
    /** @brief Free for the generator. */
    uintptr_t userData = 0;
};

/** @brief Ends a class's run on its object. */
using ClassCleanupFunction = void (*)(TestClassBase*);
/** @brief Starts a class's run on its object, with the cleanup it will get. */
using ClassSetupFunction = void (*)(TestClassBase*, ClassCleanupFunction);
/** @brief Makes an object of a test class. */
using CreateTestClassFunction = void (*)(std::unique_ptr<TestClassBase>& out);
} // namespace ZentaryUnitTest

namespace Ovelith::CoreTestFramework
{
/// One suite class, as the module publishes it.
struct TestClassDescription
{
    /** @brief Starts the class's run. */
    ZentaryUnitTest::ClassSetupFunction classSetup = nullptr;
    /** @brief Ends the class's run. */
    ZentaryUnitTest::ClassCleanupFunction classCleanup = nullptr;
    /** @brief Makes an object of the class. */
    ZentaryUnitTest::CreateTestClassFunction create = nullptr;
    /** @brief The class's name. */
    std::string name;
    /** @brief The class's tags, its name among them. */
    TestTags tags;
    /** @brief The plain cases. */
    std::vector<TestFunctionDescription> functions;
    /** @brief The generators of cases. */
    std::vector<ZentaryUnitTest::GeneratorData> generators;
    /** @brief The files the cases need. */
    std::vector<TestAsset> assets;
};

/// The short name of a case: what follows "generateTestDataFor_" in its description's name.
/// @param descriptionName A TestFunctionDescription's name.
/// @return The case's name.
std::string getTestName(const std::string& descriptionName);
} // namespace Ovelith::CoreTestFramework
