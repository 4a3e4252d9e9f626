#include "ZentaryUnitTest/TestClass.h"

#include "Diagnostics/Assert.h"
#include "ZentaryUnitTest/TestModule.h"

#include <utility>

namespace ZentaryUnitTest
{
TestClassBase::~TestClassBase() noexcept
{
    if (mClassCleanup)
    {
        mClassCleanup(this);
    }
}

void TestClassBase::onTestGenerationFinished()
{
    if (!mTestGenerationCallback)
    {
        OV_ASSERT(false, "Test generation callback wasn't set up on the test class.");
        return;
    }
    mTestGenerationCallback();
}

gsl::not_null<AbstractTestClientInterface*> TestClassBase::getTestInterface()
{
    OV_ASSERT(mTestInterface != nullptr, "The test interface should not be null");
    return mTestInterface;
}

gsl::not_null<const AbstractTestClientInterface*> TestClassBase::getTestInterface() const
{
    OV_ASSERT(mTestInterface != nullptr, "The test interface should not be null");
    return mTestInterface;
}

FunctionalTestHelpers::ClientHelperCollection* TestClassBase::getClientHelperCollection()
{
    OV_ASSERT(mClientHelperCollection != nullptr, "The collection should not be null");
    return mClientHelperCollection.get();
}

const FunctionalTestHelpers::ClientHelperCollection* TestClassBase::getClientHelperCollection() const
{
    OV_ASSERT(mClientHelperCollection != nullptr, "The collection should not be null");
    return mClientHelperCollection.get();
}

void TestClassBase::setClientHelperCollection(std::shared_ptr<FunctionalTestHelpers::ClientHelperCollection> collection)
{
    mClientHelperCollection = std::move(collection);
}

ClassCleanupFunction TestClassBase::takeClassCleanup()
{
    return std::exchange(mClassCleanup, nullptr);
}

Ovelith::CoreTestFramework::TestClassDescription
describeTestClass(ClassSetupFunction classSetup, ClassCleanupFunction classCleanup, CreateTestClassFunction create,
                  Ovelith::CoreTestFramework::TestTags&& tags, std::string name, const TestFunctionRegistration* cases,
                  const GeneratorRegistration* generators, const AssetRegistration* assets)
{
    using namespace Ovelith::CoreTestFramework;
    TestClassDescription description{classSetup, classCleanup, create, std::move(name), std::move(tags), {}, {}, {}};
    for (const TestFunctionRegistration* node = cases; node != nullptr; node = node->next)
    {
        if (node->generateTestData == nullptr)
        {
            continue;
        }
        for (TestFunctionDescription& function : node->generateTestData())
        {
            function.tags.insert(TestTags({getTestName(function.name).c_str()}));
            description.functions.push_back(std::move(function));
        }
    }
    for (const GeneratorRegistration* node = generators; node != nullptr; node = node->next)
    {
        if (node->generate != nullptr)
        {
            description.generators.push_back(node->generate());
        }
    }
    for (const AssetRegistration* node = assets; node != nullptr; node = node->next)
    {
        description.assets.push_back(node->asset);
    }
    applyDefaultSuite(description);
    return description;
}

std::vector<Ovelith::CoreTestFramework::TestFunctionDescription>
describeTestCase(const char* className, const char* stubName, const char* file, uint32_t line,
                 Ovelith::CoreTestFramework::TestInvokeFunction invoke)
{
    std::vector<Ovelith::CoreTestFramework::TestFunctionDescription> descriptions(1);
    auto& description = descriptions.front();
    description.name = std::string(className) + "::" + stubName;
    description.file = file;
    description.line = line;
    description.invoke = invoke;
    return descriptions;
}

GeneratorData describeGenerator(const char* className, const char* stubName, const char* file, uint32_t line,
                                GeneratorData::Generator generator)
{
    GeneratorData data;
    data.description.name = std::string(className) + "::" + stubName;
    data.description.file = file;
    data.description.line = line;
    data.generator = generator;
    return data;
}
} // namespace ZentaryUnitTest
