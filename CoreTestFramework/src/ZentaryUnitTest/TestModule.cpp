#include "ZentaryUnitTest/TestModule.h"

#include "Diagnostics/Assert.h"
#include "Hash/Fnv1a.h"
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <fmt/format.h>

#include <map>
#include <mutex>

#if SCRIPTING_HAVE_FAKEIT
#include <fakeit.hpp>
#endif

namespace Ovelith::CoreTestFramework
{
namespace
{
TestResultListener* sTestResultListener = nullptr;

std::function<void(const PlatformInitializationData&)>& moduleInitialize()
{
    static std::function<void(const PlatformInitializationData&)> sInitialize = [](const PlatformInitializationData&) {
    };
    return sInitialize;
}

std::function<void()>& moduleCleanup()
{
    static std::function<void()> sCleanup = [] {};
    return sCleanup;
}

void deleteTestClass(ZentaryUnitTest::TestClassBase* object)
{
    delete object;
}

std::string computeModuleName(const std::vector<TestClassDescription>& classes)
{
    if (classes.empty())
    {
        return "Empty";
    }
    uint64_t hash = 0;
    for (const TestClassDescription& description : classes)
    {
        hash ^= Hash::fnv1a64(description.name);
    }
    return classes.front().name + std::to_string(hash);
}

void reportException(const TestFunctionDescription& description, std::string message)
{
    getTestResultListener()->reportFailure(TestFailureReport{
        description.name, description.file, std::to_string(description.line), std::move(message), {}});
}
} // namespace

TestResultListener* getTestResultListener()
{
    return sTestResultListener;
}

void setTestResultListener(TestResultListener* listener)
{
    sTestResultListener = listener;
}

std::string getTestName(const std::string& descriptionName)
{
    static constexpr std::string_view STUB_PREFIX = "generateTestDataFor_";
    const size_t position = descriptionName.find(STUB_PREFIX);
    return position == std::string::npos ? descriptionName : descriptionName.substr(position + STUB_PREFIX.size());
}

void applyDefaultSuite(TestClassDescription& description)
{
    if (description.tags.hasSuiteTag())
    {
        return;
    }
    const char* suite = nullptr;
    if (description.tags.has("unit_test") || description.tags.has("srv_test"))
    {
        suite = "suite:pull_request";
    }
    else if (description.tags.has("fn_test"))
    {
        suite = "suite:extended";
    }
    if (suite == nullptr)
    {
        return;
    }
    const TestTags defaultTags{suite};
    const bool anyCaseHasSuite = std::any_of(description.functions.begin(), description.functions.end(),
                                             [](const TestFunctionDescription& f) { return f.tags.hasSuiteTag(); });
    if (!anyCaseHasSuite)
    {
        description.tags.insert(defaultTags);
        return;
    }
    for (TestFunctionDescription& function : description.functions)
    {
        if (!function.tags.hasSuiteTag())
        {
            function.tags.insert(defaultTags);
        }
    }
}

struct TestModule::Impl
{
    std::vector<TestClassDescription> mTestClasses;
    std::string mModuleName;
    std::map<std::string, ZentaryUnitTest::CreateTestClassFunction> mCreateTestClassFunctions;
    std::map<std::string, TestFunctionDescription> mTestFunctionDescriptions;
    uint64_t mUseCount = 0;
    std::mutex mMutex;
};

TestModule::RegisterInitializationFunction::RegisterInitializationFunction(
    std::function<void(const PlatformInitializationData&)> function)
{
    auto& chain = moduleInitialize();
    chain = [previous = std::move(chain), added = std::move(function)](const PlatformInitializationData& data)
    {
        previous(data);
        added(data);
    };
}

TestModule::RegisterCleanupFunction::RegisterCleanupFunction(std::function<void()> function)
{
    auto& chain = moduleCleanup();
    chain = [previous = std::move(chain), added = std::move(function)]
    {
        added();
        previous();
    };
}

TestModule::TestModule() : TestModule(ZentaryUnitTest::TestClassRegistration::sHead) {}

TestModule::TestModule(ZentaryUnitTest::TestClassRegistration* registrations) : mImpl(std::make_unique<Impl>())
{
    for (const auto* node = registrations; node != nullptr; node = node->next)
    {
        TestClassDescription description = node->registerClass(node->tags);
        applyDefaultSuite(description);
        if (description.functions.empty() && description.generators.empty())
        {
            continue;
        }
        mImpl->mTestClasses.push_back(std::move(description));
    }
    mImpl->mModuleName = computeModuleName(mImpl->mTestClasses);
    for (const TestClassDescription& description : mImpl->mTestClasses)
    {
        mImpl->mCreateTestClassFunctions.emplace(description.name, description.create);
        for (const TestFunctionDescription& function : description.functions)
        {
            mImpl->mTestFunctionDescriptions.emplace(description.name + "." + function.name, function);
        }
    }
}

TestModule::~TestModule() = default;

const std::vector<TestClassDescription>& TestModule::getTestClasses() const
{
    return mImpl->mTestClasses;
}

const std::string& TestModule::getModuleName() const
{
    return mImpl->mModuleName;
}

void TestModule::initialize(const PlatformInitializationData& data, TestResultListener* listener)
{
    std::lock_guard lock(mImpl->mMutex);
    if (mImpl->mUseCount++ != 0)
    {
        return;
    }
    moduleInitialize()(data);
    setTestResultListener(listener);
}

void TestModule::cleanup()
{
    std::lock_guard lock(mImpl->mMutex);
    // No guard against a surplus cleanup: the count wraps and nothing else happens.
    if (mImpl->mUseCount-- != 1)
    {
        return;
    }
    setTestResultListener(nullptr);
    moduleCleanup()();
}

TestModule::TestClassPointer TestModule::createTestClass(const TestClassId& id) const noexcept
{
    const auto it = mImpl->mCreateTestClassFunctions.find(id.name);
    // The finished text goes in as the format, as every pre-formatted assert message does.
    OV_ASSERT(it != mImpl->mCreateTestClassFunctions.end(), fmt::format("Test class {} not found.", id.name).c_str());
    if (it == mImpl->mCreateTestClassFunctions.end())
    {
        return {nullptr, &deleteTestClass};
    }
    std::unique_ptr<ZentaryUnitTest::TestClassBase> object;
    it->second(object);
    return {object.release(), &deleteTestClass};
}

bool TestModule::runTest(ZentaryUnitTest::TestClassBase& object, const TestFunctionId& id) const
{
    const auto it = mImpl->mTestFunctionDescriptions.find(id.name);
    OV_ASSERT(it != mImpl->mTestFunctionDescriptions.end(),
              fmt::format("Test function {} not found.", id.name).c_str());
    if (it == mImpl->mTestFunctionDescriptions.end())
    {
        return true;
    }
    const TestFunctionDescription& description = it->second;
    try
    {
        description.invoke(object, description, description.parameter);
    }
    catch (const Assert::AssertException&)
    {
        // The check reported itself before it threw.
        return false;
    }
#if SCRIPTING_HAVE_FAKEIT
    catch (const fakeit::FakeitException& exception)
    {
        reportException(description, exception.what());
        return true;
    }
#endif
    catch (const std::exception& exception)
    {
        reportException(description, exception.what());
        return true;
    }
    return true;
}
} // namespace Ovelith::CoreTestFramework
