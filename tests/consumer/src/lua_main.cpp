// A program on the Lua runtime: runs the script its argument holds and prints the integer it returns.
#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <cstdio>

using namespace Scripting;

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
    const ModuleDescriptor application{"consumer", quv::UUID{0x0123456789abcdefull, 0xfedcba9876543210ull},
                                       Version(1, 0, 0), false};
    ScriptContextResult made =
        engine.createScriptingContext(ContextConfig("lua", "", application), application, {}, nullptr, nullptr);
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
