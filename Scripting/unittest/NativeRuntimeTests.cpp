#include "Diagnostics/Assert.h"
#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/Runtime/StringBasedRuntime.h"
#include "TestRuntimeStubs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

std::string errorMessage(const ResultAny& result)
{
    const Error* error = result.tryGetError();
    return error != nullptr ? error->name + ": " + error->message : "<no error>";
}

// A string runtime that only records what it was asked to run.
class RecordingStringRuntime final : public TestRuntimeStubs<StringBasedRuntime>
{
public:
    struct Call
    {
        ContextId contextId;
        std::string source;
        std::string sourceName;
        RunOption option;
    };

    std::optional<ScriptContext> createContext(ModuleBindingBundle, IDependencyLoader*, IPrinter*,
                                               const ContextConfig&) override
    {
        return std::nullopt;
    }
    void destroyContext(ContextId) override {}

    ResultAny runScript(ContextId contextId, const std::string& source, const std::string& sourceName,
                        RunOption option) override
    {
        calls.push_back({contextId, source, sourceName, option});
        return ResultAny::makeResult<int>(7);
    }

    std::vector<Call> calls;
};

struct Printer final : IPrinter
{
};
struct Loader final : IDependencyLoader
{
};

class NativeRuntimeTest : public testing::Test
{
protected:
    ScriptContext createContext(ModuleBindingBundle bundle = {}, IDependencyLoader* loader = nullptr,
                                IPrinter* printer = nullptr)
    {
        std::optional<ScriptContext> context = mRuntime->createContext(std::move(bundle), loader, printer, {});
        if (!context.has_value())
        {
            throw std::runtime_error("no context");
        }
        return std::move(*context);
    }

    ResultAny runNative(ScriptContext& context, NativeFunction function)
    {
        NativeFunctionPayload payload(std::move(function));
        return context.run(&payload);
    }

    RegistryManager mManager;
    std::shared_ptr<NativeRuntime> mRuntime = std::make_shared<NativeRuntime>(mManager);
};

TEST_F(NativeRuntimeTest, EachPayloadRunsOnlyOnItsOwnKindOfRuntime)
{
    RecordingStringRuntime stringRuntime;
    ScriptContext context = createContext();
    const ContextId id = context.getContextId();
    StringPayload text("print(1)", "main.js");
    NativeFunctionPayload function([](auto&&...) { return ResultAny::makeResult<int>(3); });

    struct Row
    {
        IPayload* payload;
        bool onNative;
        std::string expected;
    };
    const Row rows[] = {
        {&text, true, "Error: This payload type cannot be processed on a NativeRuntime"},
        {&function, false, "Error: This payload type cannot be processed on a StringBasedRuntime"},
        {nullptr, true, "Error: No payload given"},
        {nullptr, false, "Error: No Payload Provided"},
    };
    for (const Row& row : rows)
    {
        IRuntime& runtime = row.onNative ? static_cast<IRuntime&>(*mRuntime) : stringRuntime;
        EXPECT_EQ(errorMessage(runtime.run(id, row.payload, std::nullopt)), row.expected);
    }
    EXPECT_THAT(stringRuntime.calls, IsEmpty());

    // The payload that fits reaches the runtime with its strings in their order and the option untouched.
    const ResultAny ran = stringRuntime.run(ContextId{9}, &text, uint8_t{5});
    ASSERT_FALSE(ran.isError());
    EXPECT_EQ(ran.any().cast<int>(), 7);
    ASSERT_EQ(stringRuntime.calls.size(), 1u);
    EXPECT_EQ(stringRuntime.calls[0].contextId, ContextId{9});
    EXPECT_EQ(stringRuntime.calls[0].source, "print(1)");
    EXPECT_EQ(stringRuntime.calls[0].sourceName, "main.js");
    EXPECT_EQ(stringRuntime.calls[0].option, RunOption{5});

    const ResultAny native = context.run(&function);
    ASSERT_FALSE(native.isError());
    EXPECT_EQ(native.any().cast<int>(), 3);
}

TEST_F(NativeRuntimeTest, NativeFunctionSeesItsContext)
{
    Printer printer;
    Loader loader;
    ModuleBindingBundle bundle;
    bundle.moduleBindings.resize(2);
    bundle.moduleBindings[0].descriptor.name = "first";
    bundle.moduleBindings[1].descriptor.name = "second";
    ScriptContext context = createContext(bundle, &loader, &printer);

    std::vector<std::string> seen;
    const ResultAny result = runNative(context,
                                       [&](ContextId& id, WeakLifetimeScope& scope, ModuleBindingBundle& given,
                                           IDependencyLoader*& givenLoader, IPrinter*& givenPrinter)
                                       {
                                           EXPECT_EQ(id, context.getContextId());
                                           EXPECT_TRUE(scope == context.getScope());
                                           EXPECT_EQ(givenLoader, &loader);
                                           EXPECT_EQ(givenPrinter, &printer);
                                           for (const ModuleBinding& module : given.moduleBindings)
                                           {
                                               seen.push_back(module.descriptor.name);
                                           }
                                           return ResultAny::makeResult<std::string>("done");
                                       });
    ASSERT_FALSE(result.isError()) << errorMessage(result);
    EXPECT_EQ(result.any().cast<std::string>(), "done");
    EXPECT_THAT(seen, ElementsAre("first", "second"));

    // The runtime keeps its own copy of the bundle.
    bundle.moduleBindings.clear();
    seen.clear();
    runNative(context,
              [&](auto&, auto&, ModuleBindingBundle& given, auto&, auto&)
              {
                  seen.push_back(std::to_string(given.moduleBindings.size()));
                  return ResultAny();
              });
    EXPECT_THAT(seen, ElementsAre("2"));
}

TEST_F(NativeRuntimeTest, RunNativeRefusesUnknownContextsAndEmptyFunctions)
{
    ScriptContext context = createContext();
    bool called = false;
    const NativeFunction function = [&](auto&...)
    {
        called = true;
        return ResultAny();
    };

    ResultAny unknown;
    EXPECT_THAT(collectAsserts([&] { unknown = mRuntime->runNative(ContextId{200}, function); }),
                ElementsAre("This context id is invalid"));
    EXPECT_EQ(errorMessage(unknown), "Error: Invalid context id");

    // Through the payload, as a script host would reach it.
    NativeFunctionPayload payload(function);
    EXPECT_THAT(collectAsserts([&] { unknown = mRuntime->run(ContextId{0}, &payload, std::nullopt); }),
                ElementsAre("This context id is invalid"));
    EXPECT_EQ(errorMessage(unknown), "Error: Invalid context id");
    EXPECT_FALSE(called);

    EXPECT_EQ(errorMessage(mRuntime->runNative(context.getContextId(), NativeFunction())), "Error: Empty runnables");
    EXPECT_THAT(collectAsserts([&] { mRuntime->destroyContext(ContextId{200}); }),
                ElementsAre("This context id is invalid"));
}

TEST_F(NativeRuntimeTest, OperationsThatNeedALanguageFailAsValuesOrAssert)
{
    ScriptContext context = createContext();
    const ContextId id = context.getContextId();
    const ObjectHandle handle;
    entt::meta_any argument{1};
    const entt::meta_any value{2};

    const ResultAny valueResults[] = {
        mRuntime->callClosure(id, handle, &argument, 1, entt::meta_type{}, std::nullopt),
        mRuntime->resolvePromise(id, handle, value),
        mRuntime->rejectPromise(id, handle, value),
        mRuntime->getFutureResult(id, handle, entt::meta_type{}),
        mRuntime->stringifyValue(id, handle),
    };
    for (const ResultAny& result : valueResults)
    {
        EXPECT_EQ(errorMessage(result), "Error: Not implemented");
    }
    EXPECT_EQ(mRuntime->getFutureState(id, handle), FutureState::Unknown);
    EXPECT_FALSE(mRuntime->collectGarbage(id));
    EXPECT_FALSE(mRuntime->getCurrentLocation(id).has_value());
    EXPECT_EQ(mRuntime->queryExtension(1), nullptr);

    struct Transport final : IDebuggerTransport
    {
    } transport;
    auto writerState = std::make_shared<int>(0);
    std::function<void(std::string_view)> writer = [writerState](std::string_view) {};
    const std::string fileName = "profile.json";
    RuntimeStats stats{1, 2, 3};
    IDebuggerController* controller = reinterpret_cast<IDebuggerController*>(1);
    IWatchdog* watchdog = reinterpret_cast<IWatchdog*>(1);
    IWatchdog* current = reinterpret_cast<IWatchdog*>(1);

    const std::vector<std::string> asserts = collectAsserts(
        [&]
        {
            controller = mRuntime->enableDebugger(transport);
            mRuntime->disableDebugger();
            mRuntime->startProfiler();
            mRuntime->stopProfiler(std::move(writer), std::cref(fileName));
            stats = mRuntime->computeRuntimeStats();
            watchdog = mRuntime->enableWatchdog(WatchdogSettings{100});
            mRuntime->disableWatchdog();
            current = mRuntime->getWatchdog();
        });
    EXPECT_EQ(asserts, std::vector<std::string>(8, "Not implemented"));
    EXPECT_EQ(controller, nullptr);
    EXPECT_EQ(watchdog, nullptr);
    EXPECT_EQ(current, nullptr);
    EXPECT_EQ(stats.memoryUsedBytes + stats.memoryLimitBytes + stats.objectCount, 0u);
    // The profiler's writer was released, not kept.
    EXPECT_EQ(writerState.use_count(), 1);
}

TEST_F(NativeRuntimeTest, ContextsTakeTheirIdsFromTheManager)
{
    ScriptContext first = createContext();
    ScriptContext second = createContext();
    EXPECT_EQ(first.getContextId(), ContextId{1});
    EXPECT_EQ(second.getContextId(), ContextId{2});
    EXPECT_EQ(mManager.getRegistry(first.getContextId()), first.getLifetimeRegistry());
    EXPECT_EQ(first.getLifetimeRegistry()->getContextId(), first.getContextId());
    EXPECT_EQ(first.getScope().getLifetimeRegistry(), first.getLifetimeRegistry());
    EXPECT_EQ(first.getRuntime().get(), mRuntime.get());
    EXPECT_NE(mRuntime->_getContext(first.getContextId()), nullptr);
}

TEST_F(NativeRuntimeTest, ARuntimeNotHeldBySharedPointerThrowsAndLeavesNothingBehind)
{
    NativeRuntime unshared(mManager);
    EXPECT_THROW(unshared.createContext({}, nullptr, nullptr, {}), std::bad_weak_ptr);
    EXPECT_EQ(mManager.getRegistryCount(), 0);
    EXPECT_THAT(collectAsserts([&] { unshared._getContext(ContextId{1}); }), ElementsAre("This context id is invalid"));
}

TEST_F(NativeRuntimeTest, WithEveryIdTakenCreateContextAssertsAndGivesNoContext)
{
    std::vector<ScriptContext> alive;
    for (uint64_t i = 0; i < RegistryManager::MAX_NUMBER_IDS; ++i)
    {
        alive.push_back(createContext());
    }
    EXPECT_EQ(alive.back().getContextId(), ContextId{255});

    std::optional<ScriptContext> refused = ScriptContext();
    EXPECT_THAT(collectAsserts([&] { refused = mRuntime->createContext({}, nullptr, nullptr, {}); }),
                ElementsAre("No context id is left: 255 contexts are alive"));
    EXPECT_FALSE(refused.has_value());

    // One context going frees its id for the next.
    const ContextId freed = alive[41].getContextId();
    alive.erase(alive.begin() + 41);
    const ScriptContext again = createContext();
    EXPECT_EQ(again.getContextId(), freed);
    EXPECT_EQ(mManager.getRegistryCount(), 255);
}

// Writes into a log when it dies, with what it could still see of its context at that moment.
struct Witness
{
    Witness(std::vector<std::string>& log, std::string name, std::shared_ptr<NativeRuntime> runtime, ContextId id,
            WeakLifetimeScope scope)
        : mLog(&log), mName(std::move(name)), mRuntime(std::move(runtime)), mId(id), mScope(std::move(scope))
    {
    }
    Witness(Witness&& other) noexcept
        : mLog(std::exchange(other.mLog, nullptr)), mName(std::move(other.mName)), mRuntime(std::move(other.mRuntime)),
          mId(other.mId), mScope(other.mScope)
    {
    }
    Witness& operator=(Witness&&) = delete;
    ~Witness()
    {
        if (mLog == nullptr)
        {
            return;
        }
        bool contextKnown = false;
        const std::vector<std::string> asserts =
            collectAsserts([&] { contextKnown = mRuntime->_getContext(mId) != nullptr; });
        mLog->push_back(mName + (contextKnown && asserts.empty() ? " dies in its context" : " dies without context") +
                        (mScope.valid() ? ", registry alive" : ", registry gone"));
    }

    std::vector<std::string>* mLog;
    std::string mName;
    std::shared_ptr<NativeRuntime> mRuntime;
    ContextId mId;
    WeakLifetimeScope mScope;
};

TEST_F(NativeRuntimeTest, TeardownDestroysObjectsWhileTheRuntimeStillKnowsTheContext)
{
    std::vector<std::string> log;
    std::optional<ScriptContext> context = createContext();
    const ContextId id = context->getContextId();
    const WeakLifetimeScope scope = context->getScope();
    auto kept = scope.makeObject<Witness>(log, "kept", mRuntime, id, scope);
    scope.makeObject<Witness>(log, "unheld", mRuntime, id, scope).release();

    context.reset();

    EXPECT_THAT(log,
                ElementsAre("unheld dies in its context, registry alive", "kept dies in its context, registry alive"));
    EXPECT_EQ(mManager.getRegistry(id), nullptr);
    EXPECT_FALSE(scope.valid());
    EXPECT_THAT(collectAsserts([&] { mRuntime->_getContext(id); }), ElementsAre("This context id is invalid"));
}

TEST_F(NativeRuntimeTest, HandlesHeldPastTheirContextStayHarmless)
{
    std::vector<std::string> log;
    std::optional<ScriptContext> context = createContext();
    const ContextId id = context->getContextId();
    StrongTypedObjectHandle<Witness> strong =
        context->getScope().makeObject<Witness>(log, "object", mRuntime, id, context->getScope());
    StrongObjectHandle copy = strong;
    const WeakObjectHandle weak(context->getScope(), strong.getHandle());
    EXPECT_EQ(copy.getReferenceCount(), 2u);

    context.reset();
    EXPECT_THAT(log, ElementsAre("object dies in its context, registry alive"));
    EXPECT_FALSE(strong.valid());
    EXPECT_FALSE(copy.valid());
    EXPECT_FALSE(weak.valid());
    EXPECT_EQ(copy.getReferenceCount(), 0u);
    EXPECT_EQ(strong.getLifetimeRegistry(), nullptr);

    // A new context on the same id must not be reached through the old handles.
    ScriptContext next = createContext();
    ASSERT_EQ(next.getContextId(), id);
    auto other = next.getScope().makeObject<int>(5);
    EXPECT_EQ(other.getHandle().value, strong.getHandle().value);
    EXPECT_FALSE(strong.valid());
    EXPECT_FALSE(weak.valid());
    EXPECT_EQ(next.getLifetimeRegistry()->getReferenceCount(other.getHandle()), 1u);

    // Letting go of the old handles now touches nothing.
    strong = StrongTypedObjectHandle<Witness>();
    copy = StrongObjectHandle();
    EXPECT_EQ(next.getLifetimeRegistry()->getReferenceCount(other.getHandle()), 1u);
    EXPECT_EQ(*other, 5);
}

TEST_F(NativeRuntimeTest, AMovedFromContextIsEmptyAndItsDestructorDoesNothing)
{
    std::vector<std::string> log;
    std::optional<ScriptContext> source = createContext();
    const ContextId id = source->getContextId();
    source->getScope().makeObject<Witness>(log, "object", mRuntime, id, source->getScope()).release();

    ScriptContext target = std::move(*source);
    EXPECT_EQ(source->getContextId(), ContextId{});
    EXPECT_EQ(source->getRuntime(), nullptr);
    EXPECT_EQ(source->getLifetimeRegistry(), nullptr);
    EXPECT_FALSE(source->getScope().valid());
    NativeFunctionPayload payload([](auto&...) { return ResultAny(); });
    EXPECT_EQ(errorMessage(source->run(&payload)), "Error: No runtime is present");

    EXPECT_THAT(collectAsserts([&] { source.reset(); }), IsEmpty());
    EXPECT_THAT(log, IsEmpty());
    EXPECT_EQ(target.getContextId(), id);
    EXPECT_FALSE(target.run(&payload).isError());

    // Assigning over a live context ends that context first, in the same order as its destructor.
    ScriptContext other = createContext();
    const ContextId otherId = other.getContextId();
    target = std::move(other);
    EXPECT_THAT(log, ElementsAre("object dies in its context, registry alive"));
    EXPECT_EQ(mManager.getRegistry(id), nullptr);
    EXPECT_EQ(target.getContextId(), otherId);
    EXPECT_EQ(other.getContextId(), ContextId{});

    // Moving a context onto itself keeps it.
    ScriptContext& alias = target;
    target = std::move(alias);
    EXPECT_EQ(target.getContextId(), otherId);
    EXPECT_NE(target.getLifetimeRegistry(), nullptr);
}

TEST_F(NativeRuntimeTest, ANativeFunctionMayEndItsOwnContext)
{
    std::optional<ScriptContext> context = createContext();
    const ContextId id = context->getContextId();
    NativeFunctionPayload payload(
        [&](ContextId& givenId, WeakLifetimeScope& scope, auto&, auto&, auto&)
        {
            context.reset();
            // What the function was handed is its own and still safe to look at.
            return ResultAny::makeResult<bool>(givenId == id && !scope.valid());
        });
    const ResultAny result = mRuntime->run(id, &payload, std::nullopt);
    ASSERT_FALSE(result.isError()) << errorMessage(result);
    EXPECT_TRUE(result.any().cast<bool>());
    EXPECT_FALSE(context.has_value());
    EXPECT_EQ(mManager.getRegistryCount(), 0);
}
} // namespace
