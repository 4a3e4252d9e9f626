#include "ZooModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/EnumBindingBuilder.h"
#include "Scripting/BindingType/InterfaceBindingBuilder.h"
#include "Scripting/Runtime/DataBuffer.h"
#include "Scripting/Runtime/Result.h"
#include "Scripting/Runtime/ScriptGenerator.h"
#include "Scripting/Runtime/ScriptPromise.h"

#include <fmt/format.h>

using namespace Scripting;

namespace LuaTest
{
namespace
{
ErrorBinding zooErrorBinding()
{
    InterfaceBindingBuilder<ZooError> fields("ZooError");
    fields.property<&ZooError::code>("code");
    InterfaceBinding shape = fields.finish();
    ErrorBinding error;
    error.name = shape.name;
    error.type = shape.type;
    error.properties = std::move(shape.properties);
    return error;
}

std::optional<ModuleBinding> describe(ModuleBindingBuilder& builder)
{
    const Version second(2, 0, 0);

    ClassBindingBuilder<Counter> counter("Counter");
    counter.constructor([](WeakLifetimeScope& scope, int start) { return scope.makeObject<Counter>(start); },
                        ArgumentBindingBuilder<int>("start").defaultValue(0));
    counter.method<&Counter::increment>("increment", ArgumentBindingBuilder<int>("by").bounds(1, 10));
    counter.method("reset", [](Counter& self) { self.value = 0; }).release(second);
    counter.property<&Counter::value>("value").bounds(0, 1000);
    counter.property<&Counter::label, Privilege::ReadOnly>("label");
    counter.function(
        "twice", [](int value) { return value * 2; }, ArgumentBindingBuilder<int>("value"));
    counter.constant("LIMIT", 1000);
    builder.classBinding(counter.finish());

    ClassBindingBuilder<Animal> animal("Animal");
    animal.method<&Animal::speak>("speak");
    animal.property<&Animal::legs>("legs");
    builder.classBinding(animal.finish());

    ClassBindingBuilder<Dog> dog("Dog");
    dog.base<Animal>();
    dog.constructor([](WeakLifetimeScope& scope) { return scope.makeObject<Dog>(); });
    dog.method<&Dog::fetch>("fetch");
    builder.classBinding(dog.finish());

    ClassBindingBuilder<Bell> bell("Bell");
    bell.constructor([](WeakLifetimeScope& scope) { return scope.makeObject<Bell>(); });
    bell.method<&Bell::ring>("ring", ArgumentBindingBuilder<int>("times").bounds(1, 5));
    builder.classBinding(bell.finish());

    ClassBindingBuilder<LoudBell> loudBell("LoudBell");
    loudBell.base<Bell>();
    loudBell.constructor([](WeakLifetimeScope& scope) { return scope.makeObject<LoudBell>(); });
    loudBell.method<&LoudBell::shout>("shout");
    builder.classBinding(loudBell.finish());

    EnumBindingBuilder<std::string, Mood> mood("Mood");
    mood.value("Happy", Mood::Happy);
    mood.value("Sad", Mood::Sad);
    mood.value("Bored", Mood::Bored).release(second);
    builder.enumBinding(mood.finish());

    EnumBindingBuilder<Level, Level> level("Level");
    level.value("Low", Level::Low);
    level.value("High", Level::High);
    builder.enumBinding(level.finish());

    InterfaceBindingBuilder<Settings> settings("Settings");
    settings.property<&Settings::volume>("volume").bounds(0, 10);
    settings.property<&Settings::title>("title");
    settings.property<&Settings::ratio>("ratio");
    settings.property<&Settings::list>("list");
    builder.interfaceBinding(settings.finish());

    builder.errorBinding(zooErrorBinding());

    builder.function(
        "sum",
        [](const std::vector<int>& values)
        {
            int total = 0;
            for (int value : values)
            {
                total += value;
            }
            return total;
        },
        ArgumentBindingBuilder<const std::vector<int>&>("values").bounds(-100, 100));
    // Containers no registration names: the bindings describe them to the runtime.
    builder.function(
        "totalValue",
        [](const std::vector<Counter>& counters)
        {
            int total = 0;
            for (const Counter& counter : counters)
            {
                total += counter.value;
            }
            return total;
        },
        ArgumentBindingBuilder<const std::vector<Counter>&>("counters"));
    builder.function(
        "countdown",
        [](int from) -> Result<std::vector<std::optional<int16_t>>>
        {
            std::vector<std::optional<int16_t>> values;
            for (int value = from; value >= 0; --value)
            {
                values.emplace_back(value % 2 == 0 ? std::optional<int16_t>(value) : std::nullopt);
            }
            return values;
        },
        ArgumentBindingBuilder<int>("from"));
    builder.function(
        "maybeDouble", [](std::optional<int> value) { return value ? std::optional<int>(*value * 2) : std::nullopt; },
        ArgumentBindingBuilder<std::optional<int>>("value"));
    builder.function(
        "pick", [](const std::string& mode) { return mode + "!"; },
        ArgumentBindingBuilder<const std::string&>("mode").validValues({"fast", "slow"}));
    builder.function(
        "scale", [](float value, float factor) { return value * factor; }, ArgumentBindingBuilder<float>("value"),
        ArgumentBindingBuilder<float>("factor").defaultValue(2.0f));
    builder.function(
        "byteEcho", [](uint8_t value) { return value; }, ArgumentBindingBuilder<uint8_t>("value"));
    // The other integer widths, each at its limits on both roads.
    builder.function(
        "echoInt8", [](int8_t value) { return value; }, ArgumentBindingBuilder<int8_t>("value"));
    builder.function(
        "echoUInt16", [](uint16_t value) { return value; }, ArgumentBindingBuilder<uint16_t>("value"));
    builder.function(
        "echoInt32", [](int32_t value) { return value; }, ArgumentBindingBuilder<int32_t>("value"));
    builder.function(
        "echoUInt32", [](uint32_t value) { return value; }, ArgumentBindingBuilder<uint32_t>("value"));
    builder.function(
        "echoInt64", [](int64_t value) { return value; }, ArgumentBindingBuilder<int64_t>("value"));
    builder.function(
        "echoUInt64", [](uint64_t value) { return value; }, ArgumentBindingBuilder<uint64_t>("value"));
    builder.function(
        "nextMood", [](Mood value) { return value == Mood::Happy ? Mood::Sad : Mood::Happy; },
        ArgumentBindingBuilder<Mood>("mood"));
    builder.function(
        "levelNumber", [](Level value) { return static_cast<int>(value); }, ArgumentBindingBuilder<Level>("level"));
    builder.function(
        "describeSettings",
        [](const Settings& value)
        {
            std::string list;
            for (int item : value.list)
            {
                list += fmt::format("{},", item);
            }
            return fmt::format("{}:{}:{}:{}", value.title, value.volume,
                               value.ratio ? fmt::format("{}", *value.ratio) : "none", list);
        },
        ArgumentBindingBuilder<const Settings&>("settings"));
    builder.function("defaultSettings", []() { return Settings{3, "loud", 0.5f, {1, 2}}; });
    builder.function(
        "legsOf", [](const Animal& value) { return value.legs; }, ArgumentBindingBuilder<const Animal&>("animal"));
    builder.function(
        "addTo",
        [](Counter& counter, int by)
        {
            counter.value += by;
            return counter.value;
        },
        ArgumentBindingBuilder<Counter&>("counter"), ArgumentBindingBuilder<int>("by"));
    builder.function(
        "counterValue", [](StrongTypedObjectHandle<Counter> handle) { return handle->value; },
        ArgumentBindingBuilder<StrongTypedObjectHandle<Counter>>("counter"));
    builder.function(
        "keepCounter", [](StrongTypedObjectHandle<Counter> handle) { sKeptCounter = std::move(handle); },
        ArgumentBindingBuilder<StrongTypedObjectHandle<Counter>>("counter"));
    builder.function("keptCounter", []() -> const StrongTypedObjectHandle<Counter>& { return sKeptCounter; });
    builder.function("weakKeptCounter", []() { return WeakTypedObjectHandle<Counter>(sKeptCounter); });
    builder.function(
        "destroy",
        [](LifetimeRegistry& registry, StrongObjectHandle handle) { registry.destroyObject(handle.getHandle()); },
        ArgumentBindingBuilder<StrongObjectHandle>("object"));
    builder.function(
        "fail",
        [](int code) -> Result<int, ZooError>
        {
            if (code != 0)
            {
                return ZooError(code);
            }
            return 7;
        },
        ArgumentBindingBuilder<int>("code"));
    builder.function(
        "callTwice",
        [](const Closure<int (*)(int)>& function, int value) -> Result<int>
        {
            Result<int> first = function(value);
            if (first.isError())
            {
                return first;
            }
            return function(first.value());
        },
        ArgumentBindingBuilder<const Closure<int (*)(int)>&>("function"), ArgumentBindingBuilder<int>("value"));
    builder.function(
        "remember", [](const ClosureAny& function) { sRemembered = function; },
        ArgumentBindingBuilder<const ClosureAny&>("function"));
    builder.function(
        "sumGenerator",
        [](GeneratorAny generator) -> Result<int>
        {
            int total = 0;
            // A bounded walk: a generator may never end.
            for (int step = 0; step < 1000; ++step)
            {
                ResultAny next = generator.next(entt::meta_any{}, Reflection::resolve<GeneratorIteratorAny>());
                if (next.isError())
                {
                    return *next.tryGetError();
                }
                auto& iterator = next.any().cast<GeneratorIteratorAny&>();
                if (iterator.done())
                {
                    break;
                }
                ResultAny value = iterator.value(Reflection::resolve<int>());
                if (value.isError())
                {
                    return *value.tryGetError();
                }
                total += value.any().cast<int>();
            }
            return total;
        },
        ArgumentBindingBuilder<GeneratorAny>("generator"));
    builder.function(
        "resolveWith",
        [](PromiseAny promise, int value) {
            return !promise.resolve(entt::meta_any{Reflection::context(), value}).isError();
        },
        ArgumentBindingBuilder<PromiseAny>("promise"), ArgumentBindingBuilder<int>("value"));
    builder.function(
        "futureState", [](const FutureAny& future) { return static_cast<int>(future.getState()); },
        ArgumentBindingBuilder<const FutureAny&>("future"));
    builder.function(
        "futureValue",
        [](FutureAny future) -> Result<int64_t>
        {
            ResultAny result = future.getResult();
            if (result.isError())
            {
                return *result.tryGetError();
            }
            return result.any().cast<int64_t>();
        },
        ArgumentBindingBuilder<FutureAny>("future"));
    builder.function(
        "bufferSum",
        [](DataBufferAny buffer)
        {
            const auto* bytes = static_cast<const unsigned char*>(buffer.data());
            int total = 0;
            for (unsigned index = 0; bytes != nullptr && index < buffer.getFirstExtent(); ++index)
            {
                total += bytes[index];
            }
            return total;
        },
        ArgumentBindingBuilder<DataBufferAny>("buffer"));
    builder.function(
        "bufferFill",
        [](DataBufferAny buffer, int value)
        {
            auto* bytes = static_cast<unsigned char*>(buffer.data());
            for (unsigned index = 0; bytes != nullptr && index < buffer.getFirstExtent(); ++index)
            {
                bytes[index] = static_cast<unsigned char>(value);
            }
        },
        ArgumentBindingBuilder<DataBufferAny>("buffer"), ArgumentBindingBuilder<int>("value").bounds(0, 255));
    builder.function("aliveCounters", []() { return Counter::sAlive.load(); });
    builder.function("throws", []() -> int { throw std::runtime_error("native failure"); });
    builder.function("needsGpu", []() { return 1; }).runtimeConditions.push_back("gpu");
    builder.function("newInTwo", []() { return 2; }).release(second);
    builder.function("oldOnly", []() { return 1; }).release(Version(1, 0, 0), RemovedInMajorVersion(2));
    builder.constant("ANSWER", 42);
    builder.object<Counter>("keeper", [](WeakLifetimeScope& scope) { return scope.makeObject<Counter>(42); });
    return builder.build(true, {}, RuntimeConditions{});
}
} // namespace

std::unique_ptr<GenericModuleBindingFactory> makeZooFactory()
{
    auto factory = std::make_unique<GenericModuleBindingFactory>(MODULE_NAME, MODULE_UUID);
    for (const Version& version : {Version(1, 0, 0), Version(2, 0, 0)})
    {
        factory->addVersionedModuleBinding(
            version,
            [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&) { return describe(builder); },
            CommonModuleFactory::LATEST_VERSION, {}, false);
    }
    return factory;
}
} // namespace LuaTest
