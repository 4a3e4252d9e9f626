// A program on the Lua runtime: runs the script its argument holds, with a module of this program's own types
// ("@consumer/native"), and prints the integer the script returns. The types are registered here and used by the
// library's code, which is what a shared build's symbol visibility must allow.
#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <cstdio>

using namespace Scripting;

namespace
{
const quv::UUID NATIVE_UUID{0x0fedcba987654321ull, 0x123456789abcdef0ull};

struct Counter
{
    int value = 0;
    int add(int amount) { return value += amount; }
};

std::optional<ModuleBinding> describeNative(ModuleBindingBuilder& builder)
{
    ClassBindingBuilder<Counter> counter("Counter");
    counter.function("new", [] { return Counter{}; });
    counter.property<&Counter::value>("value");
    counter.method<&Counter::add>("add", ArgumentBindingBuilder<int>("amount"));
    builder.classBinding(counter.finish());
    builder.function(
        "twice", [](int value) { return 2 * value; }, ArgumentBindingBuilder<int>("value"));
    return builder.build(true, {}, RuntimeConditions{});
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: %s SCRIPT_TEXT\n", argv[0]);
        return 2;
    }
    ScriptEngine engine;
    auto runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager());
    engine.setRuntimeFactory([runtime](const ContextConfig&, const std::vector<ModuleDescriptor>&) { return runtime; });
    engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    auto native = std::make_unique<GenericModuleBindingFactory>("@consumer/native", NATIVE_UUID);
    native->addVersionedModuleBinding(
        Version(1, 0, 0),
        [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&) { return describeNative(builder); },
        CommonModuleFactory::LATEST_VERSION, {}, false);
    engine.addModuleBindingFactory(std::move(native));
    const ModuleDescriptor application{"consumer", quv::UUID{0x0123456789abcdefull, 0xfedcba9876543210ull},
                                       Version(1, 0, 0), false};
    ScriptContextResult made = engine.createScriptingContext(
        ContextConfig("lua", "", application), application,
        {ModuleDescriptor{"@consumer/native", NATIVE_UUID, Version(1, 0, 0), false}}, nullptr, nullptr);
    if (!made.context.has_value())
    {
        std::fprintf(stderr, "no context: %s\n", made.getErrorText().c_str());
        return 1;
    }
    StringPayload script(argv[1], "consumer.lua");
    const ResultAny result = made.context->run(&script);
    if (const Error* error = result.tryGetError())
    {
        std::fprintf(stderr, "%s\n", error->toString().c_str());
        return 1;
    }
    const int64_t* value = result.any().try_cast<const int64_t>();
    if (value == nullptr)
    {
        std::fprintf(stderr, "the script returned no integer\n");
        return 1;
    }
    std::printf("%lld\n", static_cast<long long>(*value));
    return 0;
}
