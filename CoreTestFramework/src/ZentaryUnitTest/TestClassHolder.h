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
/// A case that a generator added at run time. It has no entry in the module: the driver runs its body.
class GeneratedTestData : public TestData
{
public:
    /** @brief The case's code, run on the object under test. */
    using Body = std::function<void(gsl::not_null<TestClassBase*>)>;

    /**
     * @brief A generated case.
     * @param function Its description; its invoke does nothing.
     * @param displayName Name a driver shows.
     * @param body The case's code.
     */
    GeneratedTestData(Ovelith::CoreTestFramework::TestFunctionDescription function, std::string displayName, Body body)
        : TestData(std::move(function)), displayName(std::move(displayName)), body(std::move(body))
    {
    }

    /** @brief Name a driver shows. */
    std::string displayName;
    /** @brief The case's code. */
    Body body;
};

/// Where a case stands, for a driver's reports.
struct TestInfo
{
    /** @brief The case's name. */
    std::string name;
    /** @brief File of the case. */
    std::string file;
    /** @brief Line of the case. */
    uint32_t line = 0;
};

/// What a driver keeps per class on top of its description: the object under test, the cases with their run
/// state, and the cases its generators added. Generation hands the object a callback into this holder, so a
/// holder stays where it was made: it can be neither copied nor moved.
class TestClassData : public Ovelith::CoreTestFramework::TestClassDescription
{
public:
    /** @brief Says whether tests may run now. */
    using TestGate = std::function<bool()>;
    /** @brief Receives the events of every class that allows profiler capture. */
    using TestEventObserver = std::function<void(const void* event)>;

    /**
     * @brief Takes the class's description over, with a TestData per plain case.
     * @param description The class.
     */
    explicit TestClassData(Ovelith::CoreTestFramework::TestClassDescription&& description);
    TestClassData(const TestClassData&) = delete;
    TestClassData& operator=(const TestClassData&) = delete;

    /** @return Number of assets. */
    uint32_t getAssetCount() const { return static_cast<uint32_t>(assets.size()); }
    /**
     * @brief One asset.
     * @param index Below getAssetCount(); another asserts and answers an empty asset.
     * @return The asset.
     */
    const Ovelith::CoreTestFramework::TestAsset& getAsset(uint32_t index) const;
    /** @return Number of generators. */
    uint32_t getGeneratorCount() const { return static_cast<uint32_t>(generators.size()); }
    /**
     * @brief One generator.
     * @param index Below getGeneratorCount(); another asserts and answers empty data.
     * @return The generator.
     */
    const GeneratorData& getGeneratorData(uint32_t index) const;
    /// Calls the generator on the object under test, with the generator's place and this holder.
    /// @param index Below getGeneratorCount().
    void runGenerator(uint32_t index);

    /// Makes the object under test if there is none yet, lets `callback` prepare it, and arms it so that its
    /// onTestGenerationFinished marks generation finished here.
    /// @param callback Prepares the object.
    void testGenerationInitialize(std::function<void(TestClassBase&)> callback);
    /**
     * @brief Adds a case; called by generators.
     * @param name The case's name.
     * @param file File of the generator.
     * @param line Line of the generator.
     * @param tags The case's tags.
     * @param body The case's code.
     */
    void addGeneratedTest(const std::string& name, const char* file, uint32_t line,
                          const Ovelith::CoreTestFramework::TestTags& tags, GeneratedTestData::Body body);
    /**
     * @brief Whether a generated case of that name exists.
     * @param name A name.
     * @return True when one does.
     */
    bool hasGeneratedTest(const std::string& name) const;
    /** @brief Drops the generated cases. */
    void clearGeneratedTests() { mGeneratedTests.clear(); }
    /**
     * @brief Whether the object called onTestGenerationFinished().
     * @return True once it did.
     */
    bool isTestGenerationFinished() const { return mTestGenerationFinished; }

    /// Indexes run through the plain cases first, then the generated ones.
    /// @return Plain and generated cases together.
    uint32_t getTestCount() const { return getPlainTestCount() + getGeneratedTestCount(); }
    /** @return Number of plain cases. */
    uint32_t getPlainTestCount() const { return static_cast<uint32_t>(mTests.size()); }
    /** @return Number of generated cases. */
    uint32_t getGeneratedTestCount() const { return static_cast<uint32_t>(mGeneratedTests.size()); }
    /**
     * @brief One case's run state.
     * @param index Below getTestCount(); another asserts and answers empty data.
     * @return The case.
     */
    TestData& getTest(uint32_t index);
    /**
     * @brief One case's run state, read-only.
     * @param index Below getTestCount(); another asserts and answers empty data.
     * @return The case.
     */
    const TestData& getTest(uint32_t index) const;
    /**
     * @brief Where a case stands.
     * @param index Below getTestCount().
     * @return Name, file and line.
     */
    TestInfo getTestInfo(uint32_t index) const;
    /**
     * @brief The class's tags.
     * @return The tags.
     */
    const Ovelith::CoreTestFramework::TestTags& getTags() const { return tags; }
    /// Clears every case's flag and wait, and lets tests run.
    void resetTests();

    /// Has the module make the object under test, unless one exists, and keeps the module with it.
    /// @param module The module of the class.
    /// @return The object, owned by the holder.
    TestClassBase* createTestObject(std::shared_ptr<Ovelith::CoreTestFramework::TestModule> module);
    /**
     * @brief The object under test.
     * @return The object, owned by the holder, or null.
     */
    TestClassBase* getTestObject() const { return mTestObject.get(); }
    /// Runs one case on the object. While tests may not run it only asks the gate again, and returns true.
    /// The result is that of TestModule::runTest for a plain case, and true for a generated one.
    /// @param index Below getTestCount().
    /// @return Whether the case ran to its end.
    bool runTest(uint32_t index);
    /** @brief Destroys the object under test. */
    void destroyTestObject();
    /// Tells the object, and the process's observer unless the class opted out of profiler capture.
    /// @param event Opaque to the framework.
    void notifyTestEvent(const void* event);

    /// Each builds a temporary instance with `create`, asks it, and destroys it again.
    /// @param create Makes the temporary instance.
    /// @param out Receives the data.
    static void getSharedData(CreateTestClassFunction create, std::shared_ptr<void>& out);
    /**
     * @brief As getSharedData(), with the class's shared data.
     * @param create Makes the temporary instance.
     * @param out Receives the data.
     */
    static void getSharedDataForClass(CreateTestClassFunction create, std::shared_ptr<void>& out);

    /**
     * @brief Sets the gate every holder asks while tests may not run.
     * @param gate The gate; empty lets tests run.
     */
    static void setTestGate(TestGate gate) { sTestGate = std::move(gate); }
    /**
     * @brief Sets the process's observer of test events.
     * @param observer The observer; empty for none.
     */
    static void setTestEventObserver(TestEventObserver observer) { sTestEventObserver = std::move(observer); }
    /**
     * @brief What the gate answered last.
     * @return Whether tests may run.
     */
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
