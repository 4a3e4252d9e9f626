#pragma once

#include "ZentaryUnitTest/TestDescription.h"

#include <gsl/pointers>

#include <functional>
#include <memory>
#include <string>
#include <vector>

class AbstractTestClientInterface;
namespace FunctionalTestHelpers
{
class ClientHelperCollection;
}

namespace ZentaryUnitTest
{
/// The base of every suite class.
/// Its hooks are empty; a driver may call them, a host need not.
class TestClassBase
{
public:
    /**
     * @brief Keeps the cleanup its class setup registered.
     * @param classCleanup Handed out once by takeClassCleanup().
     */
    explicit TestClassBase(ClassCleanupFunction classCleanup = nullptr) noexcept : mClassCleanup(classCleanup) {}
    TestClassBase(const TestClassBase&) = delete;
    TestClassBase& operator=(const TestClassBase&) = delete;

    /** @brief Virtual, as objects are deleted through this base. */
    virtual ~TestClassBase() noexcept;
    /** @brief Tells the driver that the generators are done; asserts when no callback was set. */
    virtual void onTestGenerationFinished();
    /** @brief Before each case, when a driver calls it. */
    virtual void onBeforeTest() {}
    /** @brief An opaque event of the driver's. */
    virtual void onTestEvent(const void* /*event*/) {}
    /** @brief After each case, when a driver calls it. */
    virtual void onAfterTest() {}
    /**
     * @brief Data shared between the objects of a run; none by default.
     * @return The data, or null.
     */
    virtual std::shared_ptr<void> createSharedData() { return nullptr; }
    /**
     * @brief Data shared between the objects of a class; none by default.
     * @return The data, or null.
     */
    virtual std::shared_ptr<void> createSharedDataForClass() { return nullptr; }

    /**
     * @brief The driver's client interface; asserts when none was set.
     * @return The interface, not owned.
     */
    gsl::not_null<AbstractTestClientInterface*> getTestInterface();
    /**
     * @brief The driver's client interface, read-only; asserts when none was set.
     * @return The interface, not owned.
     */
    gsl::not_null<const AbstractTestClientInterface*> getTestInterface() const;
    /**
     * @brief Sets the driver's client interface.
     * @param testInterface Not owned.
     */
    void setTestInterface(AbstractTestClientInterface* testInterface) { mTestInterface = testInterface; }

    /**
     * @brief The driver's helpers; asserts when none were set.
     * @return The helpers, or null after the assert.
     */
    FunctionalTestHelpers::ClientHelperCollection* getClientHelperCollection();
    /**
     * @brief The driver's helpers, read-only; asserts when none were set.
     * @return The helpers, or null after the assert.
     */
    const FunctionalTestHelpers::ClientHelperCollection* getClientHelperCollection() const;
    /**
     * @brief Sets the driver's helpers, shared.
     * @param collection The helpers.
     */
    void setClientHelperCollection(std::shared_ptr<FunctionalTestHelpers::ClientHelperCollection> collection);

    /**
     * @brief Hands out the class cleanup once.
     * @return The cleanup; null on later calls.
     */
    ClassCleanupFunction takeClassCleanup();
    /**
     * @brief What onTestGenerationFinished() calls.
     * @param callback The driver's callback.
     */
    void setTestGenerationCallback(std::function<void()> callback) { mTestGenerationCallback = std::move(callback); }

    /** @brief The running case's data, set by the driver; not owned. */
    TestData* mCurrentTest = nullptr;

private:
    AbstractTestClientInterface* mTestInterface = nullptr;
    std::shared_ptr<FunctionalTestHelpers::ClientHelperCollection> mClientHelperCollection;
    std::vector<std::shared_ptr<void>> mSharedObjects;
    ClassCleanupFunction mClassCleanup = nullptr;
    std::function<void()> mTestGenerationCallback;
};

/// Registration nodes: statics linked into lists by their constructors, newest first, without allocating.
struct TestFunctionRegistration
{
    /** @brief Returns the case's description. */
    using GenerateFunction = std::vector<Ovelith::CoreTestFramework::TestFunctionDescription> (*)();

    /**
     * @brief Links itself in front of a list.
     * @param head The list's head, set to this node.
     * @param generate Describes the case.
     */
    TestFunctionRegistration(TestFunctionRegistration*& head, GenerateFunction generate) noexcept
        : next(head), generateTestData(generate)
    {
        head = this;
    }

    /** @brief The node registered before, or null. */
    TestFunctionRegistration* next;
    /** @brief Describes the case. */
    GenerateFunction generateTestData;
};

/** @brief A registered generator of cases, in a list like TestFunctionRegistration's. */
struct GeneratorRegistration
{
    /** @brief Returns the generator's data. */
    using GenerateFunction = GeneratorData (*)();

    /**
     * @brief Links itself in front of a list.
     * @param head The list's head, set to this node.
     * @param generate Describes the generator.
     */
    GeneratorRegistration(GeneratorRegistration*& head, GenerateFunction generate) noexcept
        : next(head), generate(generate)
    {
        head = this;
    }

    /** @brief The node registered before, or null. */
    GeneratorRegistration* next;
    /** @brief Describes the generator. */
    GenerateFunction generate;
};

/** @brief A registered asset, in a list like TestFunctionRegistration's. */
struct AssetRegistration
{
    /**
     * @brief Links itself in front of a list.
     * @param head The list's head, set to this node.
     * @param asset The asset.
     */
    AssetRegistration(AssetRegistration*& head, Ovelith::CoreTestFramework::TestAsset asset)
        : next(head), asset(std::move(asset))
    {
        head = this;
    }

    /** @brief The node registered before, or null. */
    AssetRegistration* next;
    /** @brief The asset. */
    Ovelith::CoreTestFramework::TestAsset asset;
};

/** @brief A registered class, in the process's list. */
struct TestClassRegistration
{
    /** @brief Describes the class, given its tags. */
    using RegisterFunction = Ovelith::CoreTestFramework::TestClassDescription (*)(Ovelith::CoreTestFramework::TestTags);

    /**
     * @brief Links itself in front of sHead.
     * @param registerClass Describes the class.
     * @param tags The class's tags.
     */
    TestClassRegistration(RegisterFunction registerClass, Ovelith::CoreTestFramework::TestTags tags)
        : next(sHead), registerClass(registerClass), tags(std::move(tags))
    {
        sHead = this;
    }

    /** @brief The class registered before, or null. */
    TestClassRegistration* next;
    /** @brief Describes the class. */
    RegisterFunction registerClass;
    /** @brief The class's tags. */
    Ovelith::CoreTestFramework::TestTags tags;

    /// The process's list, constant-initialised so that every static initialiser may link into it.
    static constinit inline TestClassRegistration* sHead = nullptr;
};

/// Builds a class's description from its registration lists.
/// @param classSetup Starts the class's run.
/// @param classCleanup Ends it.
/// @param create Makes an object.
/// @param tags The class's tags.
/// @param name The class's name.
/// @param cases Head of its case list.
/// @param generators Head of its generator list.
/// @param assets Head of its asset list.
/// @return The description.
Ovelith::CoreTestFramework::TestClassDescription
describeTestClass(ClassSetupFunction classSetup, ClassCleanupFunction classCleanup, CreateTestClassFunction create,
                  Ovelith::CoreTestFramework::TestTags&& tags, std::string name, const TestFunctionRegistration* cases,
                  const GeneratorRegistration* generators, const AssetRegistration* assets);

/// The one description a plain case's generateTestDataFor_ stub returns.
/// @param className The class's name.
/// @param stubName Name of the stub, "generateTestDataFor_<case>".
/// @param file File of the case.
/// @param line Line of the case.
/// @param invoke Runs the case.
/// @return A vector of that one description.
std::vector<Ovelith::CoreTestFramework::TestFunctionDescription>
describeTestCase(const char* className, const char* stubName, const char* file, uint32_t line,
                 Ovelith::CoreTestFramework::TestInvokeFunction invoke);

/// The data a generator's registration stub returns.
/// @param className The class's name.
/// @param stubName Name of the stub.
/// @param file File of the generator.
/// @param line Line of the generator.
/// @param generator The generating member function.
/// @return The data.
GeneratorData describeGenerator(const char* className, const char* stubName, const char* file, uint32_t line,
                                GeneratorData::Generator generator);

/// Carries the per-class registration lists of suite `T`.
/// @tparam T The suite class.
template <typename T>
class TestClass : public TestClassBase
{
public:
    /** @brief The suite class, for the case macros. */
    using ZutSelf = T;

    /** @brief Runs the class setup, if one is registered, on the new object. */
    TestClass() : TestClassBase(sClassCleanup)
    {
        // Runs before the suite's own constructors, on a partly built object.
        if (sClassSetup)
        {
            sClassSetup(this, sClassCleanup);
        }
    }

    /**
     * @brief Describes the class from its lists; called through its registration.
     * @param name The class's name.
     * @param tags The class's tags.
     * @return The description.
     */
    static Ovelith::CoreTestFramework::TestClassDescription registerClass(const char* name,
                                                                          Ovelith::CoreTestFramework::TestTags tags)
    {
        sClassName = name;
        return describeTestClass(sClassSetup, sClassCleanup, &create, std::move(tags), name, sCaseHead, sGeneratorHead,
                                 sAssetHead);
    }

    /**
     * @brief Makes an object of the suite.
     * @param out Receives it.
     */
    static void create(std::unique_ptr<TestClassBase>& out) { out.reset(new T()); }

    /** @brief The class's cases, newest first. */
    static constinit inline TestFunctionRegistration* sCaseHead = nullptr;
    /** @brief The class's generators, newest first. */
    static constinit inline GeneratorRegistration* sGeneratorHead = nullptr;
    /** @brief The class's assets, newest first. */
    static constinit inline AssetRegistration* sAssetHead = nullptr;
    /** @brief The class setup, if any. */
    static constinit inline ClassSetupFunction sClassSetup = nullptr;
    /** @brief The class cleanup, if any. */
    static constinit inline ClassCleanupFunction sClassCleanup = nullptr;
    /** @brief The class's name, once registered. */
    static constinit inline const char* sClassName = nullptr;
};
} // namespace ZentaryUnitTest

// Declares suite `ClassName` with an empty base `ClassName##Base`; further arguments are extra tags such as
// "suite:perf". The class follows as plain C++:
//
//     ZUT_TEST_CLASS(Scripting_VersionTest);
//     class Scripting_VersionTest final : public Scripting_VersionTestBase
//     {
//         ZUT_TEST(Construction)
//         {
//             Assert::IsTrue(...);
//         }
//     };
#define ZUT_TEST_CLASS(ClassName, ...)                                                                                 \
    ZUT_REGISTER_TEST_CLASS(ClassName __VA_OPT__(, ) __VA_ARGS__);                                                     \
    struct ClassName##Base : ::ZentaryUnitTest::TestClass<ClassName>                                                   \
    {                                                                                                                  \
    }

// Registers suite `ClassName` whose base, with fixture state, the suite writes itself:
//
//     ZUT_REGISTER_TEST_CLASS(Scripting_XTests);
//     struct Scripting_XTestsBase : ZentaryUnitTest::TestClass<Scripting_XTests> { ...fixture... };
//     class Scripting_XTests final : public Scripting_XTestsBase { ...cases... };
#define ZUT_REGISTER_TEST_CLASS(ClassName, ...)                                                                        \
    class ClassName;                                                                                                   \
    static ::Ovelith::CoreTestFramework::TestClassDescription zutRegisterClass_##ClassName(                            \
        ::Ovelith::CoreTestFramework::TestTags tags)                                                                   \
    {                                                                                                                  \
        return ::ZentaryUnitTest::TestClass<ClassName>::registerClass(#ClassName, std::move(tags));                    \
    }                                                                                                                  \
    static ::ZentaryUnitTest::TestClassRegistration zutClassRegistration_##ClassName(                                  \
        &zutRegisterClass_##ClassName,                                                                                 \
        ::Ovelith::CoreTestFramework::TestTags({#ClassName, "unit_test" __VA_OPT__(, ) __VA_ARGS__}))

// Declares a case: a member function without arguments, and its registration stub.
#define ZUT_TEST(CaseName)                                                                                             \
    static std::vector<::Ovelith::CoreTestFramework::TestFunctionDescription> generateTestDataFor_##CaseName()         \
    {                                                                                                                  \
        return ::ZentaryUnitTest::describeTestCase(                                                                    \
            ::ZentaryUnitTest::TestClass<ZutSelf>::sClassName, "generateTestDataFor_" #CaseName, __FILE__, __LINE__,   \
            [](::ZentaryUnitTest::TestClassBase& object, const ::Ovelith::CoreTestFramework::TestFunctionDescription&, \
               const std::string&) { static_cast<ZutSelf&>(object).CaseName(); });                                     \
    }                                                                                                                  \
    static inline ::ZentaryUnitTest::TestFunctionRegistration zutCaseRegistration_##CaseName{                          \
        ::ZentaryUnitTest::TestClass<ZutSelf>::sCaseHead, &generateTestDataFor_##CaseName};                            \
                                                                                                                       \
public:                                                                                                                \
    void CaseName()
