#pragma once

#include "ZentaryUnitTest/TestDescription.h"
#include "ZentaryUnitTest/TestResult.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ZentaryUnitTest
{
struct TestClassRegistration;
}

namespace Ovelith::CoreTestFramework
{
// Handed through to the module's initialisation functions; the module reads nothing of it.
struct PlatformInitializationData
{
};

// The one object a test module hands to its host through getTestModule2.
class TestModule
{
public:
    struct TestClassId
    {
        std::string name;
    };
    struct TestFunctionId
    {
        // "<class name>.<function name>"
        std::string name;
    };

    // Adds a function to the chain that the first initialize runs, after those registered before it.
    struct RegisterInitializationFunction
    {
        explicit RegisterInitializationFunction(std::function<void(const PlatformInitializationData&)> function);
    };
    // Adds a function to the chain that the last cleanup runs, before those registered before it.
    struct RegisterCleanupFunction
    {
        explicit RegisterCleanupFunction(std::function<void()> function);
    };

    using TestClassPointer = std::unique_ptr<ZentaryUnitTest::TestClassBase, void (*)(ZentaryUnitTest::TestClassBase*)>;

    // Builds the module from a class registration list, by default the process's.
    TestModule();
    explicit TestModule(ZentaryUnitTest::TestClassRegistration* registrations);
    TestModule(const TestModule&) = delete;
    TestModule& operator=(const TestModule&) = delete;

    virtual ~TestModule();
    virtual const std::vector<TestClassDescription>& getTestClasses() const;
    virtual const std::string& getModuleName() const;
    virtual void initialize(const PlatformInitializationData& data, TestResultListener* listener);
    virtual void cleanup();
    virtual TestClassPointer createTestClass(const TestClassId& id) const noexcept;
    // False only when a fatal check ended the case; failures are known from the listener's reports.
    virtual bool runTest(ZentaryUnitTest::TestClassBase& object, const TestFunctionId& id) const;

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

// Gives a class the default suite tag its kind implies, unless it or one of its cases has a suite already.
void applyDefaultSuite(TestClassDescription& description);
} // namespace Ovelith::CoreTestFramework

extern "C"
{
    // The module's only export. Returns the process's one TestModule; the caller never frees it.
    __attribute__((visibility("default"))) Ovelith::CoreTestFramework::TestModule* getTestModule2();
    using GetTestModule2Function = Ovelith::CoreTestFramework::TestModule* (*)();
}
