#pragma once

#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestDescription.h"

#include <gsl/pointers>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Ovelith::CoreTestFramework
{
class TestModule;
}

namespace ZentaryUnitTest
{
// A case that a generator added at run time. It has no entry in the module: the driver runs its body.
class GeneratedTestData : public TestData
{
public:
    using Body = std::function<void(gsl::not_null<TestClassBase*>)>;

    GeneratedTestData(Ovelith::CoreTestFramework::TestFunctionDescription function, std::string displayName, Body body)
        : TestData(std::move(function)), displayName(std::move(displayName)), body(std::move(body))
    {
    }

    std::string displayName;
    Body body;
};

// Where a case stands, for a driver's reports.
struct TestInfo
{
    std::string name;
    std::string file;
    uint32_t line = 0;
};

// What a driver keeps per class on top of its description: the object under test, the cases with their run
// state, and the cases its generators added. Generation hands the object a callback into this holder, so a
// holder stays where it was made: it can be neither copied nor moved.
class TestClassData : public Ovelith::CoreTestFramework::TestClassDescription
{
public:
    using TestGate = std::function<bool()>;
    using TestEventObserver = std::function<void(const void* event)>;

    explicit TestClassData(Ovelith::CoreTestFramework::TestClassDescription&& description);
    TestClassData(const TestClassData&) = delete;
    TestClassData& operator=(const TestClassData&) = delete;

    uint32_t getAssetCount() const { return static_cast<uint32_t>(assets.size()); }
    const Ovelith::CoreTestFramework::TestAsset& getAsset(uint32_t index) const;
    uint32_t getGeneratorCount() const { return static_cast<uint32_t>(generators.size()); }
    const GeneratorData& getGeneratorData(uint32_t index) const;
    // Calls the generator on the object under test, with the generator's place and this holder.
    void runGenerator(uint32_t index);

    // Makes the object under test if there is none yet, lets `callback` prepare it, and arms it so that its
    // onTestGenerationFinished marks generation finished here.
    void testGenerationInitialize(std::function<void(TestClassBase&)> callback);
    void addGeneratedTest(const std::string& name, const char* file, uint32_t line,
                          const Ovelith::CoreTestFramework::TestTags& tags, GeneratedTestData::Body body);
    bool hasGeneratedTest(const std::string& name) const;
    void clearGeneratedTests() { mGeneratedTests.clear(); }
    bool isTestGenerationFinished() const { return mTestGenerationFinished; }

    // Indexes run through the plain cases first, then the generated ones.
    uint32_t getTestCount() const { return getPlainTestCount() + getGeneratedTestCount(); }
    uint32_t getPlainTestCount() const { return static_cast<uint32_t>(mTests.size()); }
    uint32_t getGeneratedTestCount() const { return static_cast<uint32_t>(mGeneratedTests.size()); }
    TestData& getTest(uint32_t index);
    const TestData& getTest(uint32_t index) const;
    TestInfo getTestInfo(uint32_t index) const;
    const Ovelith::CoreTestFramework::TestTags& getTags() const { return tags; }
    // Clears every case's flag and wait, and lets tests run.
    void resetTests();

    // Has the module make the object under test, unless one exists, and keeps the module with it.
    TestClassBase* createTestObject(std::shared_ptr<Ovelith::CoreTestFramework::TestModule> module);
    TestClassBase* getTestObject() const { return mTestObject.get(); }
    // Runs one case on the object. While tests may not run it only asks the gate again, and returns true.
    // The result is that of TestModule::runTest for a plain case, and true for a generated one.
    bool runTest(uint32_t index);
    void destroyTestObject();
    // Tells the object, and the process's observer unless the class opted out of profiler capture.
    void notifyTestEvent(const void* event);

    // Each builds a temporary instance with `create`, asks it, and destroys it again.
    static void getSharedData(CreateTestClassFunction create, std::shared_ptr<void>& out);
    static void getSharedDataForClass(CreateTestClassFunction create, std::shared_ptr<void>& out);

    static void setTestGate(TestGate gate) { sTestGate = std::move(gate); }
    static void setTestEventObserver(TestEventObserver observer) { sTestEventObserver = std::move(observer); }
    static bool testsMayRun() { return sTestsMayRun; }

private:
    friend class TestData;

    static inline TestGate sTestGate;
    static inline TestEventObserver sTestEventObserver;
    static inline bool sTestsMayRun = true;

    std::shared_ptr<TestClassBase> mTestObject;
    std::vector<TestData> mTests;
    std::vector<GeneratedTestData> mGeneratedTests;
    bool mTestGenerationFinished = false;
    std::shared_ptr<Ovelith::CoreTestFramework::TestModule> mTestModule;
};
} // namespace ZentaryUnitTest

// Declares a generator in a suite's class body: a member function that adds cases to the holder it is
// given, and calls onTestGenerationFinished when it is done:
//
//     ZUT_TEST_GENERATOR(Squares)
//     {
//         data.addGeneratedTest("Square_2", file, line, TestTags{"generated"}, [](auto object) { ... });
//         onTestGenerationFinished();
//     }
#define ZUT_TEST_GENERATOR(GeneratorName)                                                                              \
    static ::ZentaryUnitTest::GeneratorData generatorDataFor_##GeneratorName()                                         \
    {                                                                                                                  \
        return ::ZentaryUnitTest::describeGenerator(                                                                   \
            ::ZentaryUnitTest::TestClass<ZutSelf>::sClassName, "generatorDataFor_" #GeneratorName, __FILE__, __LINE__, \
            static_cast<::ZentaryUnitTest::GeneratorData::Generator>(&ZutSelf::GeneratorName));                        \
    }                                                                                                                  \
    static inline ::ZentaryUnitTest::GeneratorRegistration zutGeneratorRegistration_##GeneratorName{                   \
        ::ZentaryUnitTest::TestClass<ZutSelf>::sGeneratorHead, &generatorDataFor_##GeneratorName};                     \
                                                                                                                       \
public:                                                                                                                \
    void GeneratorName([[maybe_unused]] const char* file, [[maybe_unused]] uint32_t line,                              \
                       [[maybe_unused]] ::ZentaryUnitTest::TestClassData& data)

// Declares a file a suite's cases need, in its class body: ZUT_TEST_ASSET(Table, "data/table.csv", true);
#define ZUT_TEST_ASSET(AssetName, path, required)                                                                      \
    static inline ::ZentaryUnitTest::AssetRegistration zutAssetRegistration_##AssetName                                \
    {                                                                                                                  \
        ::ZentaryUnitTest::TestClass<ZutSelf>::sAssetHead, ::Ovelith::CoreTestFramework::TestAsset                     \
        {                                                                                                              \
            path, required                                                                                             \
        }                                                                                                              \
    }
