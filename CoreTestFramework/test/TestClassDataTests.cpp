// TestClassData driving the framework's fixture module as a driver would: loaded, initialised, one holder
// per class.
#include "LoadModule.h"
#include "fixture/FrameworkFixture.h"

#include "Diagnostics/Assert.h"
#include "ZentaryUnitTest/TestClassHolder.h"
#include "ZentaryUnitTest/TestModule.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using Ovelith::Diagnostics::collectAsserts;
using ZentaryUnitTest::TestClassBase;
using ZentaryUnitTest::TestClassData;

namespace
{
TestModule& fixtureModule()
{
    static TestModule& sModule = FrameworkTests::loadTestModule(FRAMEWORK_FIXTURE_MODULE_PATH);
    return sModule;
}

class RecordingListener : public TestResultListener
{
public:
    void reportFailure(TestFailureReport&& report) override { messages.push_back(report.message); }
    std::vector<std::string> messages;
};

class TestClassDataTest : public testing::Test
{
protected:
    TestClassDataTest() { fixtureModule().initialize({}, &mListener); }
    ~TestClassDataTest() override
    {
        fixtureModule().cleanup();
        TestClassData::setTestGate({});
        TestClassData::setTestEventObserver({});
    }

    // A holder of the named class, as a driver makes one from the module's list.
    static std::unique_ptr<TestClassData> holderOf(const std::string& className)
    {
        for (const TestClassDescription& description : fixtureModule().getTestClasses())
        {
            if (description.name == className)
            {
                return std::make_unique<TestClassData>(TestClassDescription(description));
            }
        }
        throw std::runtime_error("no class " + className);
    }
    static std::shared_ptr<TestModule> sharedModule()
    {
        // The module object lives as long as the process; the holder only shares it.
        return std::shared_ptr<TestModule>(&fixtureModule(), [](TestModule*) {});
    }
    // The index of the case with this short name, plain or generated.
    static uint32_t indexOf(const TestClassData& data, const std::string& name)
    {
        for (uint32_t index = 0; index < data.getTestCount(); ++index)
        {
            if (data.getTestInfo(index).name == name)
            {
                return index;
            }
        }
        throw std::runtime_error("no case " + name);
    }
    static uint32_t generatorIndexOf(const TestClassData& data, const std::string& name)
    {
        for (uint32_t index = 0; index < data.getGeneratorCount(); ++index)
        {
            if (data.getGeneratorData(index).description.name.ends_with("generatorDataFor_" + name))
            {
                return index;
            }
        }
        throw std::runtime_error("no generator " + name);
    }

    RecordingListener mListener;
};

TEST_F(TestClassDataTest, HoldsOneTestDataPerCaseAndKeepsTheDescription)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    ASSERT_EQ(data->getPlainTestCount(), 2u);
    ASSERT_EQ(data->functions.size(), 2u) << "the description's cases remain";
    EXPECT_EQ(data->getGeneratedTestCount(), 0u);
    for (uint32_t index = 0; index < data->getPlainTestCount(); ++index)
    {
        const ZentaryUnitTest::TestData& test = data->getTest(index);
        EXPECT_EQ(test.description.name, data->functions[index].name);
        EXPECT_FALSE(test.isFlagged());
        EXPECT_FALSE(test.isWaiting());
    }
    EXPECT_TRUE(data->getTags().has("FrameworkFixture_GeneratedTests"));
    EXPECT_EQ(data->getTestObject(), nullptr);
}

TEST_F(TestClassDataTest, AssetsAndGeneratorsByIndex)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    ASSERT_EQ(data->getAssetCount(), 2u);
    // Registered newest first.
    EXPECT_EQ(data->getAsset(0).path, "data/extra.bin");
    EXPECT_FALSE(data->getAsset(0).required);
    EXPECT_EQ(data->getAsset(1).path, "data/table.csv");
    EXPECT_TRUE(data->getAsset(1).required);
    ASSERT_EQ(data->getGeneratorCount(), 2u);
    EXPECT_EQ(data->getGeneratorData(generatorIndexOf(*data, "Numbers")).description.file,
              data->functions.front().file);

    std::vector<std::string> asserts = collectAsserts([&] { EXPECT_EQ(data->getAsset(2).path, ""); });
    EXPECT_EQ(asserts, std::vector<std::string>{"Asset index out of range!"});
    asserts = collectAsserts([&] { EXPECT_EQ(data->getGeneratorData(2).generator, nullptr); });
    EXPECT_EQ(asserts, std::vector<std::string>{"Generator index out of range!"});
}

TEST_F(TestClassDataTest, GeneratorNeedsAnObject)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    const std::vector<std::string> asserts = collectAsserts([&] { data->runGenerator(0); });
    EXPECT_EQ(asserts, std::vector<std::string>{"Can't run a generator without an object to generate tests for!"});
    EXPECT_EQ(data->getGeneratedTestCount(), 0u);
    EXPECT_EQ(collectAsserts([&] { data->runGenerator(9); }),
              (std::vector<std::string>{"Generator index out of range!",
                                        "Can't run a generator without an object to generate tests for!"}));
}

TEST_F(TestClassDataTest, GeneratedCasesRunOnTheObjectAfterThePlainOnes)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    TestClassBase* prepared = nullptr;
    data->testGenerationInitialize([&](TestClassBase& object) { prepared = &object; });
    ASSERT_NE(data->getTestObject(), nullptr);
    EXPECT_EQ(prepared, data->getTestObject());
    EXPECT_FALSE(data->isTestGenerationFinished());

    const ZentaryUnitTest::GeneratorData& numbers = data->getGeneratorData(generatorIndexOf(*data, "Numbers"));
    data->runGenerator(generatorIndexOf(*data, "Numbers"));
    EXPECT_TRUE(data->isTestGenerationFinished());
    ASSERT_EQ(data->getGeneratedTestCount(), 3u);
    EXPECT_EQ(data->getTestCount(), 5u);
    EXPECT_TRUE(data->hasGeneratedTest("Number_1"));
    EXPECT_FALSE(data->hasGeneratedTest("Number_3"));

    const ZentaryUnitTest::TestInfo info = data->getTestInfo(3);
    EXPECT_EQ(info.name, "Number_1");
    EXPECT_EQ(info.file, numbers.description.file);
    EXPECT_EQ(info.line, numbers.description.line);
    EXPECT_TRUE(data->getTest(3).description.tags.has("generated"));

    for (const char* name : {"Number_0", "Number_1", "Number_2"})
    {
        EXPECT_TRUE(data->runTest(indexOf(*data, name))) << name;
    }
    EXPECT_EQ(mListener.messages, std::vector<std::string>{"generated failure 2"})
        << "each generated case ran as the current test; only the last fails";

    data->clearGeneratedTests();
    EXPECT_EQ(data->getTestCount(), 2u);
}

TEST_F(TestClassDataTest, GenerationNotFinishedUntilTheGeneratorSaysSo)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    data->testGenerationInitialize({});
    data->runGenerator(generatorIndexOf(*data, "Unfinished"));
    EXPECT_TRUE(data->hasGeneratedTest("Pending"));
    EXPECT_FALSE(data->isTestGenerationFinished());
    // A new round starts unfinished again, on the same object.
    TestClassBase* object = data->getTestObject();
    data->runGenerator(generatorIndexOf(*data, "Numbers"));
    EXPECT_TRUE(data->isTestGenerationFinished());
    data->testGenerationInitialize({});
    EXPECT_FALSE(data->isTestGenerationFinished());
    EXPECT_EQ(data->getTestObject(), object);
}

TEST_F(TestClassDataTest, PlainCasesRunThroughTheModule)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    TestClassBase* object = data->createTestObject(sharedModule());
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(data->createTestObject(sharedModule()), object) << "an existing object is kept";

    EXPECT_TRUE(data->runTest(indexOf(*data, "Plain")));
    EXPECT_TRUE(mListener.messages.empty()) << mListener.messages.front();
    EXPECT_FALSE(data->runTest(indexOf(*data, "FailsFatally"))) << "the module's answer for a fatal check";
    EXPECT_EQ(mListener.messages, std::vector<std::string>{"fatal in a plain case"});

    data->destroyTestObject();
    EXPECT_EQ(data->getTestObject(), nullptr);
}

TEST_F(TestClassDataTest, GateHoldsTestsBackUntilItOpens)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    data->createTestObject(sharedModule());
    // Closed when first asked, open from then on.
    int asked = 0;
    TestClassData::setTestGate([&] { return ++asked > 1; });

    ZentaryUnitTest::TestData& test = data->getTest(indexOf(*data, "FailsFatally"));
    test.beginWaiting();
    EXPECT_EQ(asked, 1);
    EXPECT_FALSE(TestClassData::testsMayRun());
    EXPECT_FALSE(test.isWaiting()) << "waiting counts only while tests may run";

    // Held back: the gate is asked again and nothing runs.
    EXPECT_TRUE(data->runTest(indexOf(*data, "FailsFatally")));
    EXPECT_EQ(asked, 2);
    EXPECT_TRUE(mListener.messages.empty());
    EXPECT_TRUE(TestClassData::testsMayRun());
    EXPECT_TRUE(test.isWaiting());

    test.endWaiting();
    EXPECT_FALSE(test.isWaiting());
    test.setFlagged(3, 4);
    EXPECT_TRUE(test.isFlagged());
    EXPECT_EQ(test.getFlaggedFirst(), 3u);
    EXPECT_EQ(test.getFlaggedSecond(), 4u);
    test.beginWaiting();
    data->resetTests();
    EXPECT_FALSE(test.isFlagged());
    EXPECT_FALSE(test.isWaiting());
    EXPECT_TRUE(TestClassData::testsMayRun());

    // An empty gate cannot be asked.
    TestClassData::setTestGate({});
    test.beginWaiting();
    EXPECT_TRUE(TestClassData::testsMayRun()) << "without a gate tests may run";
}

TEST_F(TestClassDataTest, EventsReachTheObjectAndTheObserverUnlessTheClassOptsOut)
{
    std::vector<const void*> observed;
    TestClassData::setTestEventObserver([&](const void* event) { observed.push_back(event); });
    const FrameworkFixture::Event event;

    const auto captured = holderOf("FrameworkFixture_GeneratedTests");
    captured->testGenerationInitialize({});
    captured->notifyTestEvent(&event);
    EXPECT_EQ(event.seenByObjects, 1);
    EXPECT_EQ(observed, std::vector<const void*>{&event});

    const auto uncaptured = holderOf("FrameworkFixture_UncapturedTests");
    EXPECT_EQ(uncaptured->getPlainTestCount(), 0u) << "a class of generators only is published";
    uncaptured->testGenerationInitialize({});
    uncaptured->notifyTestEvent(&event);
    EXPECT_EQ(event.seenByObjects, 2) << "the object still hears of it";
    EXPECT_EQ(observed.size(), 1u) << "the observer does not";
}

TEST_F(TestClassDataTest, SharedDataComesFromATemporaryInstance)
{
    const auto data = holderOf("FrameworkFixture_GeneratedTests");
    std::shared_ptr<void> shared;
    TestClassData::getSharedData(data->create, shared);
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(*static_cast<int*>(shared.get()), FrameworkFixture::SHARED_VALUE);
    TestClassData::getSharedDataForClass(data->create, shared);
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(*static_cast<int*>(shared.get()), FrameworkFixture::SHARED_VALUE + 1);
    EXPECT_EQ(data->getTestObject(), nullptr) << "the holder's own object is not made for it";
}
} // namespace
