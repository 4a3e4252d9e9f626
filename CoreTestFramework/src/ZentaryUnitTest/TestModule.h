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
/// Handed through to the module's initialisation functions; the module reads nothing of it.
struct PlatformInitializationData
{
};

/// The one object a test module hands to its host through getTestModule2.
/// Hosts call initialize() before running cases and cleanup() after; both count, so several hosts of one process
/// can share the module.
class TestModule
{
public:
    /** @brief Names a class. */
    struct TestClassId
    {
        /** @brief The class's name. */
        std::string name;
    };
    /** @brief Names a case. */
    struct TestFunctionId
    {
        /// "<class name>.<function name>"
        std::string name;
    };

    /// Adds a function to the chain that the first initialize runs, after those registered before it.
    /// A static object of this type registers at load time.
    struct RegisterInitializationFunction
    {
        /**
         * @brief Registers the function.
         * @param function Runs with the host's data.
         */
        explicit RegisterInitializationFunction(std::function<void(const PlatformInitializationData&)> function);
    };
    /// Adds a function to the chain that the last cleanup runs, before those registered before it.
    /// A static object of this type registers at load time.
    struct RegisterCleanupFunction
    {
        /**
         * @brief Registers the function.
         * @param function Runs at the last cleanup.
         */
        explicit RegisterCleanupFunction(std::function<void()> function);
    };

    /** @brief Owns an object of a test class; deletes it in the module that made it. */
    using TestClassPointer = std::unique_ptr<ZentaryUnitTest::TestClassBase, void (*)(ZentaryUnitTest::TestClassBase*)>;

    /// Builds the module from a class registration list, by default the process's.
    TestModule();
    /**
     * @brief Builds the module from a list of class registrations.
     * @param registrations Head of the list; the module reads it during construction.
     */
    explicit TestModule(ZentaryUnitTest::TestClassRegistration* registrations);
    TestModule(const TestModule&) = delete;
    TestModule& operator=(const TestModule&) = delete;

    /** @brief Virtual, as hosts see the module through this type. */
    virtual ~TestModule();
    /**
     * @brief The classes, in the order the module publishes them.
     * @return The descriptions, owned by the module.
     */
    virtual const std::vector<TestClassDescription>& getTestClasses() const;
    /**
     * @brief The module's name.
     * @return The name.
     */
    virtual const std::string& getModuleName() const;
    /**
     * @brief On the first call: runs the registered initialisation functions and sets the listener; later calls only
     * count.
     * @param data Handed to the initialisation functions.
     * @param listener Receives every failure until the last cleanup; not owned.
     */
    virtual void initialize(const PlatformInitializationData& data, TestResultListener* listener);
    /** @brief On the call that balances the first initialize(): clears the listener and runs the cleanup functions. */
    virtual void cleanup();
    /**
     * @brief Makes an object of a class.
     * @param id The class.
     * @return The object; empty, after an assert, for an unknown class.
     */
    virtual TestClassPointer createTestClass(const TestClassId& id) const noexcept;
    /// False only when a fatal check ended the case; failures are known from the listener's reports.
    /// @param object An object of the case's class, made by createTestClass().
    /// @param id The case.
    /// @return Whether the case ran to its end; an unknown case asserts and answers true.
    virtual bool runTest(ZentaryUnitTest::TestClassBase& object, const TestFunctionId& id) const;

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

/// Gives a class the default suite tag its kind implies, unless it or one of its cases has a suite already.
/// Classes tagged "unit_test" or "srv_test" get "suite:pull_request", those tagged "fn_test" "suite:extended".
/// @param description The class.
void applyDefaultSuite(TestClassDescription& description);
} // namespace Ovelith::CoreTestFramework

extern "C"
{
    /// The module's only export. Returns the process's one TestModule; the caller never frees it.
    __attribute__((visibility("default"))) Ovelith::CoreTestFramework::TestModule* getTestModule2();
    /** @brief Type of getTestModule2, for hosts that look it up. */
    using GetTestModule2Function = Ovelith::CoreTestFramework::TestModule* (*)();
}
