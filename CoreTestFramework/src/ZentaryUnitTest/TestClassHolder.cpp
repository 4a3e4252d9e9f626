#include "ZentaryUnitTest/TestClassHolder.h"

#include "Diagnostics/Assert.h"
#include "ZentaryUnitTest/TestModule.h"

#include <algorithm>
#include <utility>

namespace ZentaryUnitTest
{
namespace
{
// What a swallowed range assert answers with, instead of reading past the end.
const Ovelith::CoreTestFramework::TestAsset EMPTY_ASSET;
const GeneratorData EMPTY_GENERATOR;
} // namespace

void TestData::setFlagged(const uint64_t& first, const uint64_t& second)
{
    mFlagged = true;
    mFlaggedFirst = first;
    mFlaggedSecond = second;
}

void TestData::clearFlagged()
{
    mFlagged = false;
    TestClassData::sTestsMayRun = true;
}

bool TestData::isWaiting() const
{
    return mWaiting && TestClassData::sTestsMayRun;
}

void TestData::beginWaiting()
{
    mWaiting = true;
    TestClassData::sTestsMayRun = TestClassData::sTestGate ? TestClassData::sTestGate() : true;
}

void TestData::endWaiting()
{
    mWaiting = false;
    TestClassData::sTestsMayRun = true;
}

TestClassData::TestClassData(Ovelith::CoreTestFramework::TestClassDescription&& description)
    : TestClassDescription(std::move(description))
{
    mTests.reserve(functions.size());
    for (const Ovelith::CoreTestFramework::TestFunctionDescription& function : functions)
    {
        mTests.emplace_back(function);
    }
}

const Ovelith::CoreTestFramework::TestAsset& TestClassData::getAsset(uint32_t index) const
{
    OV_ASSERT(index < getAssetCount(), "Asset index out of range!");
    return index < getAssetCount() ? assets[index] : EMPTY_ASSET;
}

const GeneratorData& TestClassData::getGeneratorData(uint32_t index) const
{
    OV_ASSERT(index < getGeneratorCount(), "Generator index out of range!");
    return index < getGeneratorCount() ? generators[index] : EMPTY_GENERATOR;
}

void TestClassData::runGenerator(uint32_t index)
{
    OV_ASSERT(index < getGeneratorCount(), "Generator index out of range!");
    OV_ASSERT(mTestObject, "Can't run a generator without an object to generate tests for!");
    if (index >= getGeneratorCount() || !mTestObject || generators[index].generator == nullptr)
    {
        return;
    }
    const GeneratorData& generator = generators[index];
    (mTestObject.get()->*generator.generator)(generator.description.file.c_str(), generator.description.line, *this);
}

void TestClassData::testGenerationInitialize(std::function<void(TestClassBase&)> callback)
{
    mTestGenerationFinished = false;
    if (!mTestObject && create != nullptr)
    {
        std::unique_ptr<TestClassBase> object;
        create(object);
        mTestObject = std::move(object);
    }
    OV_ASSERT(mTestObject, "Can't generate tests without an object to generate them for!");
    if (!mTestObject)
    {
        return;
    }
    if (callback)
    {
        callback(*mTestObject);
    }
    mTestObject->setTestGenerationCallback([this] { mTestGenerationFinished = true; });
}

void TestClassData::addGeneratedTest(const std::string& name, const char* file, uint32_t line,
                                     const Ovelith::CoreTestFramework::TestTags& testTags, GeneratedTestData::Body body)
{
    Ovelith::CoreTestFramework::TestFunctionDescription function;
    function.name = name;
    function.file = file;
    function.line = line;
    function.invoke = [](TestClassBase&, const Ovelith::CoreTestFramework::TestFunctionDescription&,
                         const std::string&) {};
    function.tags.insert(testTags);
    mGeneratedTests.emplace_back(std::move(function), name, std::move(body));
}

bool TestClassData::hasGeneratedTest(const std::string& name) const
{
    return std::any_of(mGeneratedTests.begin(), mGeneratedTests.end(),
                       [&](const GeneratedTestData& test) { return test.description.name == name; });
}

TestData& TestClassData::getTest(uint32_t index)
{
    return const_cast<TestData&>(std::as_const(*this).getTest(index));
}

const TestData& TestClassData::getTest(uint32_t index) const
{
    OV_ASSERT(index < getTestCount(), "Test index out of range!");
    if (index < getPlainTestCount())
    {
        return mTests[index];
    }
    index -= getPlainTestCount();
    return index < getGeneratedTestCount() ? mGeneratedTests[index] : static_cast<const TestData&>(EMPTY_GENERATOR);
}

TestInfo TestClassData::getTestInfo(uint32_t index) const
{
    const Ovelith::CoreTestFramework::TestFunctionDescription& function = getTest(index).description;
    return TestInfo{Ovelith::CoreTestFramework::getTestName(function.name), function.file, function.line};
}

void TestClassData::resetTests()
{
    for (TestData& test : mTests)
    {
        test.mFlagged = false;
        test.mWaiting = false;
    }
    for (GeneratedTestData& test : mGeneratedTests)
    {
        test.mFlagged = false;
        test.mWaiting = false;
    }
    sTestsMayRun = true;
}

TestClassBase* TestClassData::createTestObject(std::shared_ptr<Ovelith::CoreTestFramework::TestModule> module)
{
    mTestModule = std::move(module);
    if (!mTestObject && mTestModule)
    {
        Ovelith::CoreTestFramework::TestModule::TestClassPointer object = mTestModule->createTestClass({name});
        auto* deleter = object.get_deleter();
        mTestObject = std::shared_ptr<TestClassBase>(object.release(), deleter);
    }
    return mTestObject.get();
}

bool TestClassData::runTest(uint32_t index)
{
    if (!sTestsMayRun)
    {
        sTestsMayRun = sTestGate();
        return true;
    }
    OV_ASSERT(index < getTestCount(), "Test index out of range!");
    if (index < getPlainTestCount())
    {
        OV_ASSERT(mTestObject && mTestModule, "Can't run a test without an object and its module!");
        if (!mTestObject || !mTestModule)
        {
            return false;
        }
        TestData& test = mTests[index];
        mTestObject->mCurrentTest = &test;
        return mTestModule->runTest(*mTestObject, {name + "." + test.description.name});
    }
    index -= getPlainTestCount();
    if (index >= getGeneratedTestCount())
    {
        return false;
    }
    GeneratedTestData& test = mGeneratedTests[index];
    TestClassBase* object = mTestObject.get();
    if (object != nullptr)
    {
        object->mCurrentTest = &test;
    }
    // A null object ends the process here, as gsl::not_null does.
    test.body(gsl::not_null<TestClassBase*>(object));
    return true;
}

void TestClassData::destroyTestObject()
{
    mTestObject.reset();
    mTestModule.reset();
}

void TestClassData::notifyTestEvent(const void* event)
{
    if (mTestObject)
    {
        mTestObject->onTestEvent(event);
    }
    if (sTestEventObserver && !tags.has("setting:no_profiler_capture"))
    {
        sTestEventObserver(event);
    }
}

void TestClassData::getSharedData(CreateTestClassFunction create, std::shared_ptr<void>& out)
{
    std::unique_ptr<TestClassBase> instance;
    if (create != nullptr)
    {
        create(instance);
    }
    out = instance ? instance->createSharedData() : nullptr;
}

void TestClassData::getSharedDataForClass(CreateTestClassFunction create, std::shared_ptr<void>& out)
{
    std::unique_ptr<TestClassBase> instance;
    if (create != nullptr)
    {
        create(instance);
    }
    out = instance ? instance->createSharedDataForClass() : nullptr;
}
} // namespace ZentaryUnitTest
