#include "TestClosureRuntime.h"

#include "Diagnostics/Assert.h"
#include "Scripting/Runtime/DataBuffer.h"
#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/Runtime/ScriptGenerator.h"
#include "Scripting/Runtime/ScriptPromise.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;

// Script objects as a runtime would keep them, one component each.
struct PromiseObject
{
    int settled = 0;
};
struct FutureObject
{
    FutureState state = FutureState::Pending;
    int value = 0;
};
struct GeneratorObject
{
    int next = 0;
    int end = 0;
};
struct IteratorObject
{
    int value = 0;
    bool done = false;
};
struct BufferObject
{
    std::vector<uint8_t> bytes;
    unsigned first = 0;
    unsigned second = 0;
};

// A native runtime whose script objects are plain components of the context's registry, and which is its
// own inspector. It counts every call, so that a test can tell that a stale value reached nothing.
class ObjectsRuntime final : public NativeRuntime, public IObjectInspector
{
public:
    explicit ObjectsRuntime(RegistryManager& manager) : NativeRuntime(manager), mManager(&manager) {}

    ResultAny callClosure(ContextId, ObjectHandle object, entt::meta_any* arguments, unsigned count,
                          const entt::meta_type& returnType, RunOption) override
    {
        ++runtimeCalls;
        lastCount = count;
        lastReturnType = returnType;
        LifetimeRegistry& registry = _registry(object);
        if (auto* generator = registry.registry.try_get<GeneratorObject>(object.value))
        {
            if (count == 1)
            {
                generator->end += arguments[0].cast<int>();
            }
            const bool done = generator->next >= generator->end;
            IteratorObject step{done ? 0 : generator->next++, done};
            return ResultAny::makeResult<StrongObjectHandle>(StrongTypedObjectHandle<IteratorObject>::toGeneric(
                registry.getScope().makeObject<IteratorObject>(step)));
        }
        return ResultAny::makeResult<int>(static_cast<int>(count));
    }
    ResultAny resolvePromise(ContextId, ObjectHandle promise, const entt::meta_any&) override
    {
        return _settle(promise);
    }
    ResultAny rejectPromise(ContextId, ObjectHandle promise, const entt::meta_any&) override
    {
        return _settle(promise);
    }
    FutureState getFutureState(ContextId, ObjectHandle future) override
    {
        ++runtimeCalls;
        return _registry(future).get<FutureObject>(future).state;
    }
    ResultAny getFutureResult(ContextId, ObjectHandle future, const entt::meta_type& type) override
    {
        ++runtimeCalls;
        lastReturnType = type;
        return ResultAny::makeResult<int>(_registry(future).get<FutureObject>(future).value);
    }

    bool isEqual(ObjectHandle a, ObjectHandle b) override
    {
        ++inspectorCalls;
        return a == b;
    }
    bool getBooleanProperty(ObjectHandle object, const char* name, bool defaultValue) override
    {
        ++inspectorCalls;
        return std::string(name) == "done" ? _registry(object).get<IteratorObject>(object).done : defaultValue;
    }
    ResultAny getProperty(ObjectHandle object, const char* name, const entt::meta_type&) override
    {
        ++inspectorCalls;
        const IteratorObject& step = _registry(object).get<IteratorObject>(object);
        if (std::string(name) != "value" || step.done)
        {
            return Error("No value");
        }
        return ResultAny::makeResult<int>(step.value);
    }
    unsigned getSecondExtent(ObjectHandle buffer) override
    {
        ++inspectorCalls;
        return _registry(buffer).get<BufferObject>(buffer).second;
    }
    unsigned getFirstExtent(ObjectHandle buffer) override
    {
        ++inspectorCalls;
        return _registry(buffer).get<BufferObject>(buffer).first;
    }
    void* getData(ObjectHandle buffer) override
    {
        ++inspectorCalls;
        std::vector<uint8_t>& bytes = _registry(buffer).get<BufferObject>(buffer).bytes;
        return bytes.empty() ? nullptr : bytes.data();
    }

    int runtimeCalls = 0;
    int inspectorCalls = 0;
    unsigned lastCount = 0;
    entt::meta_type lastReturnType;

private:
    // Only live objects may reach here: a stale value must have stopped before.
    LifetimeRegistry& _registry(ObjectHandle object)
    {
        LifetimeRegistry* registry = mManager->getRegistry(object.contextId);
        if (registry == nullptr || !registry->isValid(object))
        {
            throw std::logic_error("the runtime was asked about a dead object");
        }
        return *registry;
    }

    ResultAny _settle(ObjectHandle promise)
    {
        ++runtimeCalls;
        PromiseObject& state = _registry(promise).get<PromiseObject>(promise);
        if (state.settled++ != 0)
        {
            return Error("Promise was settled already");
        }
        return {};
    }

    RegistryManager* mManager;
};

class ScriptValueTest : public testing::Test
{
protected:
    ScriptValueTest()
    {
        std::optional<ScriptContext> context = mRuntime->createContext({}, nullptr, nullptr, {});
        if (!context.has_value())
        {
            throw std::runtime_error("no context");
        }
        mContext = std::move(*context);
    }

    WeakLifetimeScope scope() const { return mContext.getScope(); }
    ContextId id() const { return mContext.getContextId(); }
    LifetimeRegistry& registry() const { return *mContext.getLifetimeRegistry(); }

    template <typename T, typename... Args>
    StrongObjectHandle makeObject(Args&&... args) const
    {
        return StrongTypedObjectHandle<T>::toGeneric(scope().makeObject<T>(std::forward<Args>(args)...));
    }
    template <typename ClosureT = ClosureAny>
    ClosureT makeClosure() const
    {
        return ClosureT(mRuntime.get(), id(), scope(), makeObject<ClosureType>(), mRuntime.get());
    }

    RegistryManager mManager;
    std::shared_ptr<ObjectsRuntime> mRuntime = std::make_shared<ObjectsRuntime>(mManager);
    ScriptContext mContext;
};

// ---- Closures whose context, runtime or object is gone ----

TEST_F(ScriptValueTest, ClosureAfterItsContextWasDestroyedCallsNothing)
{
    const auto closure = makeClosure<Closure<int (*)(int)>>();
    Result<int> before = closure(5);
    ASSERT_NE(before.tryGet(), nullptr) << errorMessage(before);
    EXPECT_EQ(before.value(), 1) << "one argument reached the runtime";
    EXPECT_EQ(mRuntime->runtimeCalls, 1);

    mContext = ScriptContext();
    std::vector<std::string> asserts = collectAsserts(
        [&]
        {
            EXPECT_FALSE(closure.valid());
            EXPECT_EQ(errorMessage(closure(5)), ClosureAny::INVALID_CALL_MESSAGE);
            EXPECT_EQ(errorMessage(closure.call(nullptr, 0, Reflection::resolve<int>(), std::nullopt)),
                      ClosureAny::INVALID_CALL_MESSAGE);
        });
    EXPECT_TRUE(asserts.empty()) << asserts.front();
    EXPECT_EQ(mRuntime->runtimeCalls, 1) << "the runtime was not asked again";
}

TEST_F(ScriptValueTest, ClosureAfterItsRuntimeWasReleasedCallsNothing)
{
    const auto closure = makeClosure<Closure<int (*)(int)>>();
    const std::weak_ptr<ObjectsRuntime> runtime = mRuntime;
    mRuntime.reset();
    ASSERT_FALSE(runtime.expired()) << "the context keeps its runtime";
    EXPECT_TRUE(closure.valid());

    mContext = ScriptContext();
    ASSERT_TRUE(runtime.expired());
    // A call through the freed runtime would be a use after free, which the sanitizer build reports.
    EXPECT_FALSE(closure.valid());
    EXPECT_EQ(errorMessage(closure(5)), ClosureAny::INVALID_CALL_MESSAGE);
}

TEST_F(ScriptValueTest, ClosureAfterItsObjectWasDestroyedCallsNothing)
{
    const ClosureAny closure = makeClosure();
    registry().destroyObject(*closure.getHandle());
    EXPECT_TRUE(scope().valid());
    EXPECT_FALSE(closure.valid());
    EXPECT_EQ(errorMessage(closure.call(nullptr, 0, Reflection::resolve<int>(), std::nullopt)),
              ClosureAny::INVALID_CALL_MESSAGE);
    EXPECT_EQ(mRuntime->runtimeCalls, 0);
}

// ---- Closures called with the wrong arguments ----

template <typename ClosureT, typename... Args>
std::string callThroughIntRuntime(Args&&... args)
{
    TestClosureRuntime<int, int> runtime([](int value) { return value + 1; });
    const auto closure = runtime.template makeClosure<ClosureT>();
    ResultAny result = closure(std::forward<Args>(args)...);
    return result.isError() ? errorMessage(result) : "ok";
}

TEST(ClosureArgumentsTest, WrongCountsTypesAndReturnTypesAreErrorValues)
{
    using Runtime = TestClosureRuntime<int, int>;
    struct Row
    {
        const char* what;
        std::string (*call)();
        std::string expected;
    };
    const std::vector<Row> rows = {
        {"fitting", [] { return callThroughIntRuntime<Closure<int (*)(int)>>(1); }, "ok"},
        {"no argument", [] { return callThroughIntRuntime<Closure<int (*)()>>(); }, Runtime::WRONG_ARGUMENTS_MESSAGE},
        {"two arguments", [] { return callThroughIntRuntime<Closure<int (*)(int, int)>>(1, 2); },
         Runtime::WRONG_ARGUMENTS_MESSAGE},
        {"a string", [] { return callThroughIntRuntime<Closure<int (*)(std::string)>>(std::string("1")); },
         Runtime::WRONG_ARGUMENTS_MESSAGE},
        {"a double", [] { return callThroughIntRuntime<Closure<int (*)(double)>>(1.0); },
         Runtime::WRONG_ARGUMENTS_MESSAGE},
        {"a float result", [] { return callThroughIntRuntime<Closure<float (*)(int)>>(1); },
         ClosureAny::WRONG_RETURN_TYPE_MESSAGE},
        {"a dropped result", [] { return callThroughIntRuntime<Closure<void (*)(int)>>(1); }, "ok"},
    };
    for (const Row& row : rows)
    {
        std::string message;
        const std::vector<std::string> asserts = collectAsserts([&] { message = row.call(); });
        EXPECT_EQ(message, row.expected) << row.what;
        EXPECT_TRUE(asserts.empty()) << row.what << ": " << asserts.front();
    }

    TestClosureRuntime<int, int> withoutCallback;
    const auto closure = withoutCallback.makeClosure<Closure<int (*)(int)>>();
    EXPECT_EQ(errorMessage(closure(1)), Runtime::NO_CALLBACK_MESSAGE);
}

TEST(ClosureArgumentsTest, ArgumentsReachTheCalleeAsTheCallersObjects)
{
    struct CopyCounter
    {
        CopyCounter() = default;
        CopyCounter(const CopyCounter& other) : copies(other.copies + 1) {}
        CopyCounter& operator=(const CopyCounter&) = delete;
        int copies = 0;
    };
    const CopyCounter* seen = nullptr;
    TestClosureRuntime<void, const CopyCounter&> runtime([&](const CopyCounter& value) { seen = &value; });
    const auto closure = runtime.makeClosure<Closure<void (*)(const CopyCounter&)>>();
    const CopyCounter argument;
    EXPECT_FALSE(closure(argument).isError());
    EXPECT_EQ(seen, &argument);
    EXPECT_EQ(argument.copies, 0);
}

// ---- The family's shared rules ----

template <typename T>
struct Family : ScriptValueTest
{
};

// How each member is built: closures and futures take the caller's reference over, the others add one.
template <typename T>
struct MakeTaking
{
    using Type = T;
    static Type make(IRuntime* runtime, ContextId id, WeakLifetimeScope scope, StrongObjectHandle& handle,
                     IObjectInspector* inspector)
    {
        return Type(runtime, id, std::move(scope), std::move(handle), inspector);
    }
    static constexpr bool ADDS_REFERENCE = false;
};
template <typename T>
struct MakeCopying
{
    using Type = T;
    static Type make(IRuntime* runtime, ContextId id, WeakLifetimeScope scope, const StrongObjectHandle& handle,
                     IObjectInspector* inspector)
    {
        if constexpr (std::is_constructible_v<T, IRuntime*, ContextId, WeakLifetimeScope, const StrongObjectHandle&,
                                              IObjectInspector*>)
        {
            return Type(runtime, id, std::move(scope), handle, inspector);
        }
        else
        {
            return Type(runtime, id, std::move(scope), handle);
        }
    }
    static constexpr bool ADDS_REFERENCE = true;
};

using FamilyTypes =
    testing::Types<MakeTaking<ClosureAny>, MakeTaking<FutureAny>, MakeCopying<PromiseAny>, MakeCopying<GeneratorAny>,
                   MakeCopying<GeneratorIteratorAny>, MakeCopying<DataBufferAny>>;
TYPED_TEST_SUITE(Family, FamilyTypes);

TYPED_TEST(Family, ConstructionTakesOrAddsAReference)
{
    StrongObjectHandle handle = this->template makeObject<BufferObject>();
    const ObjectHandle plain = handle.getHandle();
    const auto value = TypeParam::make(this->mRuntime.get(), this->id(), this->scope(), handle, this->mRuntime.get());
    EXPECT_TRUE(value.valid());
    EXPECT_EQ(this->registry().getReferenceCount(plain), TypeParam::ADDS_REFERENCE ? 2u : 1u);
    EXPECT_EQ(handle.valid(), TypeParam::ADDS_REFERENCE) << "a taking constructor leaves the caller's handle empty";
}

TYPED_TEST(Family, CopiesAddAReferenceAndMovesHandItOn)
{
    using Value = typename TypeParam::Type;
    StrongObjectHandle handle = this->template makeObject<BufferObject>();
    const ObjectHandle plain = handle.getHandle();
    Value value = TypeParam::make(this->mRuntime.get(), this->id(), this->scope(), handle, this->mRuntime.get());
    handle = StrongObjectHandle();
    LifetimeRegistry& registry = this->registry();
    EXPECT_EQ(registry.getReferenceCount(plain), 1u) << "the value owns the one reference";

    {
        const Value copy(value);
        EXPECT_TRUE(copy.valid());
        EXPECT_EQ(copy.getContextId(), value.getContextId());
        EXPECT_EQ(registry.getReferenceCount(plain), 2u);
    }
    EXPECT_EQ(registry.getReferenceCount(plain), 1u);

    Value& self = value;
    value = self;
    EXPECT_TRUE(value.valid()) << "self-assignment keeps the object";
    EXPECT_EQ(registry.getReferenceCount(plain), 1u);

    Value target;
    target = value;
    EXPECT_EQ(registry.getReferenceCount(plain), 2u);
    target = Value();
    EXPECT_FALSE(target.valid());
    EXPECT_EQ(registry.getReferenceCount(plain), 1u) << "assigning an empty value drops the reference";

    Value moved(std::move(value));
    EXPECT_TRUE(moved.valid());
    EXPECT_FALSE(value.valid()); // the moved-from state is what is tested here
    EXPECT_EQ(value.getContextId(), ContextId{});
    EXPECT_FALSE(value.getScope().valid());
    EXPECT_EQ(registry.getReferenceCount(plain), 1u) << "a move hands the reference on";

    target = std::move(moved);
    EXPECT_TRUE(target.valid());
    EXPECT_FALSE(moved.valid());
    EXPECT_EQ(registry.getReferenceCount(plain), 1u);
}

TYPED_TEST(Family, DefaultIsInvalidAndStaleIsInvalid)
{
    EXPECT_FALSE(typename TypeParam::Type().valid());
    StrongObjectHandle handle = this->template makeObject<BufferObject>();
    const auto value = TypeParam::make(this->mRuntime.get(), this->id(), this->scope(), handle, this->mRuntime.get());
    handle = StrongObjectHandle();
    EXPECT_TRUE(value.valid());
    this->mContext = ScriptContext();
    EXPECT_FALSE(value.valid());
}

// ---- Each member's operations ----

TEST(ScriptValueDefaultsTest, InvalidValuesAnswerWithTheirTexts)
{
    PromiseAny promise;
    const entt::meta_any nothing;
    EXPECT_EQ(errorMessage(promise.resolve(nothing)), "Promise is not valid, failed to resolve.");
    EXPECT_EQ(errorMessage(promise.reject(nothing)), "Promise is not valid, failed to reject.");
    EXPECT_FALSE(promise.getHandle().has_value());

    FutureAny future;
    EXPECT_EQ(errorMessage(future.getResult()), "Future handle is not valid.");
    EXPECT_EQ(future.getState(), FutureState::Unknown);
    EXPECT_FALSE(future.isPending() || future.isFulfilled() || future.isRejected());

    GeneratorAny generator;
    EXPECT_EQ(errorMessage(generator.next(nothing, Reflection::resolve<int>())),
              "Generator is not valid, failed to iterate.");

    GeneratorIteratorAny iterator;
    EXPECT_TRUE(iterator.done());
    EXPECT_EQ(errorMessage(iterator.value(Reflection::resolve<int>())),
              "GeneratorIterator is not valid, failed to get value.");

    const DataBufferAny buffer;
    EXPECT_EQ(buffer.data(), nullptr);
    EXPECT_EQ(buffer.getFirstExtent(), 0u);
    EXPECT_EQ(buffer.getSecondExtent(), 0u);
}

TEST_F(ScriptValueTest, PromiseSettledTwiceIsForTheRuntimeToRefuse)
{
    PromiseAny promise(mRuntime.get(), id(), scope(), makeObject<PromiseObject>());
    PromiseAny sameObject(promise);
    const entt::meta_any value{Reflection::context(), 1};
    EXPECT_FALSE(promise.resolve(value).isError());
    EXPECT_EQ(errorMessage(promise.resolve(value)), "Promise was settled already");
    EXPECT_EQ(errorMessage(sameObject.reject(value)), "Promise was settled already");
    EXPECT_EQ(mRuntime->runtimeCalls, 3) << "every settlement is asked of the runtime";

    mContext = ScriptContext();
    EXPECT_EQ(errorMessage(promise.resolve(value)), PromiseAny::INVALID_RESOLVE_MESSAGE);
    EXPECT_EQ(errorMessage(promise.reject(value)), PromiseAny::INVALID_REJECT_MESSAGE);
    EXPECT_EQ(mRuntime->runtimeCalls, 3);
}

TEST_F(ScriptValueTest, GeneratorRunPastItsEndStaysDone)
{
    GeneratorAny generator(mRuntime.get(), id(), scope(), makeObject<GeneratorObject>(GeneratorObject{0, 2}));
    const entt::meta_any noArgument;
    std::vector<int> values;
    int steps = 0;
    for (; steps < 5; ++steps)
    {
        ResultAny result = generator.next(noArgument, Reflection::resolve<int>());
        ASSERT_FALSE(result.isError()) << errorMessage(result);
        EXPECT_EQ(mRuntime->lastCount, 0u) << "an empty argument is no argument";
        EXPECT_TRUE(mRuntime->lastReturnType == Reflection::resolve<int>());
        GeneratorIteratorAny step(mRuntime.get(), id(), scope(), result.any().cast<StrongObjectHandle&>(),
                                  mRuntime.get());
        if (step.done())
        {
            EXPECT_EQ(errorMessage(step.value(Reflection::resolve<int>())), "No value");
            continue;
        }
        values.push_back(step.value(Reflection::resolve<int>()).any().cast<int>());
    }
    EXPECT_EQ(values, (std::vector<int>{0, 1}));

    // An argument goes along: this runtime's generator takes it as more steps.
    const entt::meta_any more{Reflection::context(), 1};
    ResultAny result = generator.next(more, Reflection::resolve<int>());
    EXPECT_EQ(mRuntime->lastCount, 1u);
    GeneratorIteratorAny last(mRuntime.get(), id(), scope(), result.any().cast<StrongObjectHandle&>(), mRuntime.get());
    EXPECT_FALSE(last.done());
    EXPECT_EQ(last.value(Reflection::resolve<int>()).any().cast<int>(), 2);

    result = ResultAny();
    mContext = ScriptContext();
    const int runtimeCalls = mRuntime->runtimeCalls;
    const int inspectorCalls = mRuntime->inspectorCalls;
    EXPECT_EQ(errorMessage(generator.next(noArgument, Reflection::resolve<int>())), GeneratorAny::INVALID_NEXT_MESSAGE);
    EXPECT_TRUE(last.done()) << "a stale iterator counts as finished";
    EXPECT_EQ(errorMessage(last.value(Reflection::resolve<int>())), GeneratorIteratorAny::INVALID_VALUE_MESSAGE);
    EXPECT_EQ(mRuntime->runtimeCalls, runtimeCalls);
    EXPECT_EQ(mRuntime->inspectorCalls, inspectorCalls);
}

TEST_F(ScriptValueTest, IteratorWithoutInspectorIsFinished)
{
    GeneratorIteratorAny step(mRuntime.get(), id(), scope(), makeObject<IteratorObject>(IteratorObject{4, false}),
                              nullptr);
    EXPECT_TRUE(step.valid());
    EXPECT_TRUE(step.done());
    EXPECT_EQ(errorMessage(step.value(Reflection::resolve<int>())), GeneratorIteratorAny::INVALID_VALUE_MESSAGE);
    EXPECT_EQ(mRuntime->inspectorCalls, 0);
}

TEST_F(ScriptValueTest, FutureReportsTheRuntimesStateAndResult)
{
    StrongObjectHandle object = makeObject<FutureObject>(FutureObject{FutureState::Pending, 9});
    const ObjectHandle plain = object.getHandle();
    FutureAny future(mRuntime.get(), id(), scope(), std::move(object), mRuntime.get());
    struct Row
    {
        FutureState state;
        bool pending;
        bool fulfilled;
        bool rejected;
    };
    for (const Row& row :
         {Row{FutureState::Pending, true, false, false}, Row{FutureState::Fulfilled, false, true, false},
          Row{FutureState::Rejected, false, false, true}, Row{FutureState::Unknown, false, false, false}})
    {
        registry().get<FutureObject>(plain).state = row.state;
        EXPECT_EQ(future.getState(), row.state);
        EXPECT_EQ(future.isPending(), row.pending);
        EXPECT_EQ(future.isFulfilled(), row.fulfilled);
        EXPECT_EQ(future.isRejected(), row.rejected);
    }
    mRuntime->lastReturnType = Reflection::resolve<int>();
    ResultAny result = future.getResult();
    EXPECT_EQ(result.any().cast<int>(), 9);
    EXPECT_FALSE(mRuntime->lastReturnType) << "the runtime is asked without a type";

    const FutureAny copy(future);
    EXPECT_TRUE(copy == future);
    EXPECT_FALSE(copy == FutureAny());
    EXPECT_FALSE(FutureAny(mRuntime.get(), id(), scope(), StrongObjectHandle(scope(), plain, true), nullptr) == copy)
        << "without an inspector nothing is equal";

    mContext = ScriptContext();
    EXPECT_EQ(future.getState(), FutureState::Unknown);
    EXPECT_EQ(errorMessage(future.getResult()), FutureAny::INVALID_RESULT_MESSAGE);
}

TEST_F(ScriptValueTest, OnANativeRuntimeValuesReportNotImplemented)
{
    std::shared_ptr<NativeRuntime> native = std::make_shared<NativeRuntime>(mManager);
    std::optional<ScriptContext> context = native->createContext({}, nullptr, nullptr, {});
    ASSERT_TRUE(context.has_value());
    const WeakLifetimeScope nativeScope = context->getScope();
    const StrongObjectHandle object =
        StrongTypedObjectHandle<PromiseObject>::toGeneric(nativeScope.makeObject<PromiseObject>());
    const ContextId nativeId = context->getContextId();
    const entt::meta_any value{Reflection::context(), 1};

    PromiseAny promise(native.get(), nativeId, nativeScope, object);
    EXPECT_EQ(errorMessage(promise.resolve(value)), "Not implemented");
    EXPECT_EQ(errorMessage(promise.reject(value)), "Not implemented");
    FutureAny future(native.get(), nativeId, nativeScope, StrongObjectHandle(object), nullptr);
    EXPECT_EQ(future.getState(), FutureState::Unknown);
    EXPECT_EQ(errorMessage(future.getResult()), "Not implemented");
    GeneratorAny generator(native.get(), nativeId, nativeScope, object);
    EXPECT_EQ(errorMessage(generator.next(value, Reflection::resolve<int>())), "Not implemented");
    const Closure<void (*)()> closure(native.get(), nativeId, nativeScope, StrongObjectHandle(object), nullptr);
    EXPECT_EQ(errorMessage(closure()), "Not implemented");
}

TEST_F(ScriptValueTest, DataBufferOfZeroBytes)
{
    StrongObjectHandle object = makeObject<BufferObject>();
    DataBufferAny buffer(mRuntime.get(), id(), scope(), object, mRuntime.get());
    EXPECT_TRUE(buffer.valid());
    EXPECT_EQ(buffer.getFirstExtent(), 0u);
    EXPECT_EQ(buffer.getSecondExtent(), 0u);
    EXPECT_EQ(buffer.data(), nullptr);
    EXPECT_EQ(std::as_const(buffer).data(), nullptr);
}

TEST_F(ScriptValueTest, DataBufferReadsExtentsOnceAndDataEachTime)
{
    StrongObjectHandle object = makeObject<BufferObject>(BufferObject{std::vector<uint8_t>(6), 2, 3});
    BufferObject& state = registry().get<BufferObject>(object.getHandle());
    DataBufferAny buffer(mRuntime.get(), id(), scope(), object, mRuntime.get());
    EXPECT_EQ(buffer.getFirstExtent(), 2u);
    EXPECT_EQ(buffer.getSecondExtent(), 3u);
    EXPECT_EQ(buffer.data(), state.bytes.data());

    state.bytes.assign(12, 1);
    state.first = 4;
    EXPECT_EQ(buffer.getFirstExtent(), 2u) << "extents are read at construction only";
    EXPECT_EQ(buffer.data(), state.bytes.data()) << "the data is asked anew";

    const DataBufferAny withoutInspector(mRuntime.get(), id(), scope(), object, nullptr);
    EXPECT_TRUE(object.valid());
    EXPECT_FALSE(withoutInspector.valid());
    EXPECT_EQ(withoutInspector.data(), nullptr);
    EXPECT_EQ(withoutInspector.getFirstExtent(), 0u);

    object = StrongObjectHandle();
    mContext = ScriptContext();
    const int inspectorCalls = mRuntime->inspectorCalls;
    EXPECT_EQ(buffer.data(), nullptr);
    EXPECT_EQ(buffer.getFirstExtent(), 0u);
    EXPECT_EQ(mRuntime->inspectorCalls, inspectorCalls);
}
} // namespace
