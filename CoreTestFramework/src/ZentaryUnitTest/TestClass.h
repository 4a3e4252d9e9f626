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
// The base of every suite class.
class TestClassBase
{
public:
    explicit TestClassBase(ClassCleanupFunction classCleanup = nullptr) noexcept : mClassCleanup(classCleanup) {}
    TestClassBase(const TestClassBase&) = delete;
    TestClassBase& operator=(const TestClassBase&) = delete;

    virtual ~TestClassBase() noexcept;
    virtual void onTestGenerationFinished();
    virtual void onBeforeTest() {}
    virtual void onTestEvent(const void* /*event*/) {}
    virtual void onAfterTest() {}
    virtual std::shared_ptr<void> createSharedData() { return nullptr; }
    virtual std::shared_ptr<void> createSharedDataForClass() { return nullptr; }

    gsl::not_null<AbstractTestClientInterface*> getTestInterface();
    gsl::not_null<const AbstractTestClientInterface*> getTestInterface() const;
    void setTestInterface(AbstractTestClientInterface* testInterface) { mTestInterface = testInterface; }

    FunctionalTestHelpers::ClientHelperCollection* getClientHelperCollection();
    const FunctionalTestHelpers::ClientHelperCollection* getClientHelperCollection() const;
    void setClientHelperCollection(std::shared_ptr<FunctionalTestHelpers::ClientHelperCollection> collection);

    ClassCleanupFunction takeClassCleanup();
    void setTestGenerationCallback(std::function<void()> callback) { mTestGenerationCallback = std::move(callback); }

    TestData* mCurrentTest = nullptr;

private:
    AbstractTestClientInterface* mTestInterface = nullptr;
    std::shared_ptr<FunctionalTestHelpers::ClientHelperCollection> mClientHelperCollection;
    std::vector<std::shared_ptr<void>> mSharedObjects;
    ClassCleanupFunction mClassCleanup = nullptr;
    std::function<void()> mTestGenerationCallback;
};

// Registration nodes: statics linked into lists by their constructors, newest first, without allocating.
struct TestFunctionRegistration
{
    using GenerateFunction = std::vector<Ovelith::CoreTestFramework::TestFunctionDescription> (*)();

    TestFunctionRegistration(TestFunctionRegistration*& head, GenerateFunction generate) noexcept
        : next(head), generateTestData(generate)
    {
        head = this;
    }

    TestFunctionRegistration* next;
    GenerateFunction generateTestData;
};

struct GeneratorRegistration
{
    using GenerateFunction = GeneratorData (*)();

    GeneratorRegistration(GeneratorRegistration*& head, GenerateFunction generate) noexcept
        : next(head), generate(generate)
    {
        head = this;
    }

    GeneratorRegistration* next;
    GenerateFunction generate;
};

struct AssetRegistration
{
    AssetRegistration(AssetRegistration*& head, Ovelith::CoreTestFramework::TestAsset asset)
        : next(head), asset(std::move(asset))
    {
        head = this;
    }

    AssetRegistration* next;
    Ovelith::CoreTestFramework::TestAsset asset;
};

struct TestClassRegistration
{
    using RegisterFunction = Ovelith::CoreTestFramework::TestClassDescription (*)(Ovelith::CoreTestFramework::TestTags);

    TestClassRegistration(RegisterFunction registerClass, Ovelith::CoreTestFramework::TestTags tags)
        : next(sHead), registerClass(registerClass), tags(std::move(tags))
    {
        sHead = this;
    }

    TestClassRegistration* next;
    RegisterFunction registerClass;
    Ovelith::CoreTestFramework::TestTags tags;

    // The process's list, constant-initialised so that every static initialiser may link into it.
    static constinit inline TestClassRegistration* sHead = nullptr;
};

// Builds a class's description from its registration lists.
Ovelith::CoreTestFramework::TestClassDescription
describeTestClass(ClassSetupFunction classSetup, ClassCleanupFunction classCleanup, CreateTestClassFunction create,
                  Ovelith::CoreTestFramework::TestTags&& tags, std::string name, const TestFunctionRegistration* cases,
                  const GeneratorRegistration* generators, const AssetRegistration* assets);

// The one description a plain case's generateTestDataFor_ stub returns.
std::vector<Ovelith::CoreTestFramework::TestFunctionDescription>
describeTestCase(const char* className, const char* stubName, const char* file, uint32_t line,
                 Ovelith::CoreTestFramework::TestInvokeFunction invoke);

// The data a generator's registration stub returns.
GeneratorData describeGenerator(const char* className, const char* stubName, const char* file, uint32_t line,
                                GeneratorData::Generator generator);

// Carries the per-class registration lists of suite `T`.
template <typename T>
class TestClass : public TestClassBase
{
public:
    using ZutSelf = T;

    TestClass() : TestClassBase(sClassCleanup)
    {
        // Runs before the suite's own constructors, on a partly built object.
        if (sClassSetup)
        {
            sClassSetup(this, sClassCleanup);
        }
    }

    static Ovelith::CoreTestFramework::TestClassDescription registerClass(const char* name,
                                                                          Ovelith::CoreTestFramework::TestTags tags)
    {
        sClassName = name;
        return describeTestClass(sClassSetup, sClassCleanup, &create, std::move(tags), name, sCaseHead, sGeneratorHead,
                                 sAssetHead);
    }

    static void create(std::unique_ptr<TestClassBase>& out) { out.reset(new T()); }

    static constinit inline TestFunctionRegistration* sCaseHead = nullptr;
    static constinit inline GeneratorRegistration* sGeneratorHead = nullptr;
    static constinit inline AssetRegistration* sAssetHead = nullptr;
    static constinit inline ClassSetupFunction sClassSetup = nullptr;
    static constinit inline ClassCleanupFunction sClassCleanup = nullptr;
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
