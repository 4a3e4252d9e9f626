#include "TestClosureRuntime.h"

#include "Scripting/Runtime/ScriptClosure.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <entt/meta/template.hpp>

#include <optional>
#include <string>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
class TestClosureAny : public ClosureAny
{
public:
    using ClosureAny::ClosureAny;
};

// A closure of `runtime` over a new closure object, in context 0 and without an inspector.
template <typename Runtime>
TestClosureAny makeTestClosureAny(Runtime& runtime)
{
    return runtime.template makeClosure<TestClosureAny>();
}
} // namespace

ZUT_TEST_CLASS(Scripting_ScriptClosureTests);
class Scripting_ScriptClosureTests final : public Scripting_ScriptClosureTestsBase
{
    ZUT_TEST(ClosureAny_DefaultConstructedIsInvalid)
    {
        const ClosureAny closure;
        Assert::IsFalse(closure.valid());
        Assert::IsFalse(closure.getHandle().has_value());
    }

    ZUT_TEST(ScriptClosure_DefaultConstructedCallReturnsError)
    {
        const ClosureAny closure;
        Assert::IsFalse(closure.valid());
        const ResultAny result = closure.call(nullptr, 0, Reflection::resolve<void>(), std::nullopt);
        Assert::IsTrue(result.isError(), true);
        Assert::AreEqual(errorMessage(result), std::string("Script Closure is not valid, failed to call function."));
    }

    ZUT_TEST(ScriptClosure_ReturnsVoidIsEmpty)
    {
        int calls = 0;
        TestClosureRuntime<void> runtime([&] { ++calls; });
        const TestClosureAny closure = makeTestClosureAny(runtime);
        Assert::IsTrue(closure.valid(), true);
        const ResultAny result = closure.call(nullptr, 0, Reflection::resolve<void>(), std::nullopt);
        Assert::IsFalse(result.isError(), false, "{}", errorMessage(result));
        Assert::IsFalse(static_cast<bool>(result.any()), false, "a void call gives an empty value");
        Assert::AreEqual(calls, 1);
    }

    ZUT_TEST(ScriptClosure_ReturnsIntIsInt)
    {
        int calls = 0;
        TestClosureRuntime<int> runtime(
            [&]
            {
                ++calls;
                return 1;
            });
        const TestClosureAny closure = makeTestClosureAny(runtime);
        Assert::IsTrue(closure.valid(), true);
        const ResultAny result = closure.call(nullptr, 0, Reflection::resolve<int>(), std::nullopt);
        Assert::IsFalse(result.isError(), true, "{}", errorMessage(result));
        Assert::IsTrue(result.any().type() == Reflection::resolve<int>(), true);
        Assert::AreEqual(result.any().cast<int>(), 1);
        Assert::AreEqual(calls, 1);
    }

    ZUT_TEST(ScriptClosure_TakesIntAndReturnsInt)
    {
        int calls = 0;
        TestClosureRuntime<int, int> runtime(
            [&](int value)
            {
                ++calls;
                return value;
            });
        const TestClosureAny closure = makeTestClosureAny(runtime);
        Assert::IsTrue(closure.valid(), true);
        entt::meta_any argument{Reflection::context(), 2};
        const ResultAny result = closure.call(&argument, 1, Reflection::resolve<int>(), std::nullopt);
        Assert::IsFalse(result.isError(), true, "{}", errorMessage(result));
        Assert::IsTrue(result.any().type() == Reflection::resolve<int>(), true);
        Assert::AreEqual(result.any().cast<int>(), 2);
        Assert::AreEqual(calls, 1);
    }

    ZUT_TEST(TypedScriptClosure_ReturnsVoidIsEmpty)
    {
        int calls = 0;
        TestClosureRuntime<void> runtime([&] { ++calls; });
        const auto closure = runtime.makeClosure<Closure<void (*)()>>();
        Assert::IsTrue(closure.valid(), true);
        const Result<void> result = closure();
        Assert::IsFalse(result.isError(), false, "{}", errorMessage(result));
        Assert::AreEqual(calls, 1);
    }

    ZUT_TEST(TypedScriptClosure_ReturnsIntIsInt)
    {
        int calls = 0;
        TestClosureRuntime<int> runtime(
            [&]
            {
                ++calls;
                return 1;
            });
        const auto closure = runtime.makeClosure<Closure<int (*)()>>();
        Assert::IsTrue(closure.valid(), true);
        Result<int> result = closure();
        Assert::IsTrue(result.tryGet() != nullptr, true, "{}", errorMessage(result));
        Assert::AreEqual(result.value(), 1);
        Assert::AreEqual(calls, 1);
    }

    ZUT_TEST(TypedScriptClosure_TakesIntAndReturnsInt)
    {
        int calls = 0;
        TestClosureRuntime<int, int> runtime(
            [&](int value)
            {
                ++calls;
                return value;
            });
        const auto closure = runtime.makeClosure<Closure<int (*)(int)>>();
        Assert::IsTrue(closure.valid(), true);
        Result<int> result = closure(2);
        Assert::IsTrue(result.tryGet() != nullptr, true, "{}", errorMessage(result));
        Assert::AreEqual(result.value(), 2);
        Assert::AreEqual(calls, 1);
    }

    ZUT_TEST(TypedScriptClosure_ReferenceArgIsAReference)
    {
        TestClosureRuntime<void, int&> runtime([](int& value) { value = 3; });
        const auto closure = runtime.makeClosure<Closure<void (*)(int&)>>();
        int value = 0;
        const Result<void> result = closure(value);
        Assert::IsFalse(result.isError(), false, "{}", errorMessage(result));
        Assert::AreEqual(value, 3, false, "the callee wrote through the reference");
    }

    ZUT_TEST(TypedScriptClosure_ReflectionConstructIsAssignable)
    {
        using IntClosure = Closure<int (*)(int)>;
        // Made first, so that it outlives the closure that the any will hold.
        TestClosureRuntime<int, int> runtime([](int value) { return value * 2; });
        const entt::meta_type type = Reflection::resolve<IntClosure>();
        Assert::IsTrue(type.is_template_specialization(), false, "the closure type names its template");
        Assert::IsTrue(type.template_type() == Reflection::resolve<entt::meta_class_template_tag<Closure>>());
        Assert::IsTrue(type.template_arg(0) == Reflection::resolve<int (*)(int)>());

        entt::meta_any any = type.construct();
        Assert::IsTrue(static_cast<bool>(any), true, "a default closure can be made through reflection");
        Assert::IsTrue(any.type() == type, true);
        Assert::IsFalse(any.cast<const IntClosure&>().valid());

        const IntClosure closure = runtime.makeClosure<IntClosure>();
        Assert::IsTrue(any.assign(closure), true, "a valid closure can be assigned into the any");
        IntClosure* held = any.try_cast<IntClosure>();
        Assert::IsTrue(held != nullptr, true);
        Assert::IsTrue(held->valid(), true);
        Result<int> result = (*held)(21);
        Assert::IsTrue(result.tryGet() != nullptr, true, "{}", errorMessage(result));
        Assert::AreEqual(result.value(), 42);
    }

    ZUT_TEST(TypedScriptClosure_ProvideObjectInspector_CompareClosures)
    {
        struct TestObjectInspector : IObjectInspector
        {
            bool isEqual(ObjectHandle a, ObjectHandle b) override
            {
                ++calls;
                lastLeft = a;
                lastRight = b;
                return equal;
            }
            bool getBooleanProperty(ObjectHandle, const char*, bool defaultValue) override { return defaultValue; }
            ResultAny getProperty(ObjectHandle, const char*, const entt::meta_type&) override { return {}; }
            unsigned getSecondExtent(ObjectHandle) override { return 0; }
            unsigned getFirstExtent(ObjectHandle) override { return 0; }
            void* getData(ObjectHandle) override { return nullptr; }

            bool equal = false;
            int calls = 0;
            ObjectHandle lastLeft;
            ObjectHandle lastRight;
        };
        using IntClosure = Closure<int (*)(int)>;
        TestObjectInspector inspector;
        TestClosureRuntime<int, int> runtime([](int value) { return value; });
        const IntClosure first = runtime.makeClosure<IntClosure>(&inspector);
        const IntClosure second = runtime.makeClosure<IntClosure>(&inspector);

        for (const bool equal : {true, false})
        {
            inspector.equal = equal;
            Assert::AreEqual(first == second, equal, false, "first == second, inspector says {}", equal);
            Assert::AreEqual(second == first, equal, false, "second == first, inspector says {}", equal);
        }
        // The other closure's handle comes first.
        inspector.calls = 0;
        (void)(first == second);
        Assert::AreEqual(inspector.calls, 1);
        Assert::AreEqual(inspector.lastLeft, *second.getHandle());
        Assert::AreEqual(inspector.lastRight, *first.getHandle());

        inspector.equal = true;
        inspector.calls = 0;
        const IntClosure withoutInspector = runtime.makeClosure<IntClosure>();
        Assert::IsTrue(withoutInspector.valid());
        Assert::IsFalse(withoutInspector == first, false, "no inspector: not equal to another closure");
        Assert::IsFalse(withoutInspector == withoutInspector, false, "no inspector: not equal to itself");
        const IntClosure defaultClosure;
        Assert::IsFalse(defaultClosure == first, false, "no handle on the left");
        Assert::IsFalse(first == defaultClosure, false, "no handle on the right");
        Assert::AreEqual(inspector.calls, 0, false, "the inspector is not asked about closures it cannot compare");

        // Handles that went stale with their registry compare false, whatever the inspector would say.
        runtime.getRegistry().destroyLifetimeScope(false);
        Assert::IsFalse(first.valid(), true);
        Assert::IsFalse(first == second, false, "stale handles");
        Assert::AreEqual(inspector.calls, 0);
    }
};
