#include "TestHost/GeneratedCases.h"

#include "ZentaryUnitTest/TestClassHolder.h"
#include "ZentaryUnitTest/TestModule.h"
#include "ZentaryUnitTest/TestResult.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

namespace Ovelith::TestHost
{
using CoreTestFramework::TestClassDescription;
using CoreTestFramework::TestModule;

namespace
{
class CollectingListener final : public CoreTestFramework::TestResultListener
{
public:
    void reportFailure(CoreTestFramework::TestFailureReport&& report) override { reports.push_back(std::move(report)); }
    std::vector<CoreTestFramework::TestFailureReport> reports;
};

bool hasGenerators(const TestClassDescription& description)
{
    return !description.generators.empty();
}
} // namespace

std::unique_ptr<ZentaryUnitTest::TestClassData> makeGeneratedClass(TestModule& module, const std::string& className)
{
    const std::vector<TestClassDescription>& classes = module.getTestClasses();
    const auto description = std::find_if(classes.begin(), classes.end(),
                                          [&](const TestClassDescription& entry) { return entry.name == className; });
    if (description == classes.end())
    {
        return nullptr;
    }
    auto holder = std::make_unique<ZentaryUnitTest::TestClassData>(TestClassDescription(*description));
    // The module outlives every run; the holder only shares it.
    holder->createTestObject(std::shared_ptr<TestModule>(&module, [](TestModule*) {}));
    if (holder->getTestObject() == nullptr)
    {
        return nullptr;
    }
    holder->testGenerationInitialize({});
    for (uint32_t index = 0; index < holder->getGeneratorCount(); ++index)
    {
        holder->runGenerator(index);
    }
    return holder;
}

GeneratedCasesResult generateCases(TestModule& module)
{
    GeneratedCasesResult result;
    const std::vector<TestClassDescription>& classes = module.getTestClasses();
    if (std::none_of(classes.begin(), classes.end(), hasGenerators))
    {
        return result;
    }
    CollectingListener listener;
    try
    {
        module.initialize(CoreTestFramework::PlatformInitializationData{}, &listener);
    }
    catch (const std::exception& exception)
    {
        result.error = fmt::format("the module failed to initialise for its generators: {}", exception.what());
        return result;
    }
    for (const TestClassDescription& description : classes)
    {
        if (!hasGenerators(description) || result.error)
        {
            continue;
        }
        try
        {
            std::unique_ptr<ZentaryUnitTest::TestClassData> holder = makeGeneratedClass(module, description.name);
            if (!holder)
            {
                result.error = fmt::format("the module could not create {} to generate its cases", description.name);
            }
            else if (!holder->isTestGenerationFinished())
            {
                result.error = fmt::format("the generators of {} did not finish", description.name);
            }
            else
            {
                std::vector<CoreTestFramework::TestFunctionDescription>& generated = result.cases[description.name];
                for (uint32_t index = holder->getPlainTestCount(); index < holder->getTestCount(); ++index)
                {
                    generated.push_back(holder->getTest(index).description);
                }
            }
        }
        catch (const std::exception& exception)
        {
            result.error = fmt::format("a generator of {} failed: {}", description.name, exception.what());
        }
        catch (...)
        {
            result.error = fmt::format("a generator of {} failed: unknown exception", description.name);
        }
        if (!result.error && !listener.reports.empty())
        {
            const CoreTestFramework::TestFailureReport& report = listener.reports.front();
            result.error = fmt::format("a generator of {} reported {}:{}: {}", description.name, report.file,
                                       report.line, report.message);
        }
    }
    try
    {
        module.cleanup();
    }
    catch (const std::exception& exception)
    {
        result.error = fmt::format("the module failed to clean up after its generators: {}", exception.what());
    }
    return result;
}
} // namespace Ovelith::TestHost
