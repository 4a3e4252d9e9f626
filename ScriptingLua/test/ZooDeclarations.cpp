// For the TypeScript check, with the zoo module, which holds a record of every kind:
//   lua_zoo_declarations DIR MAJOR     writes its declarations and those of the common module it depends on
//   lua_zoo_declarations --run SCRIPT  runs a Lua script against its version 2.0.0, printing its error if any
#include "ZooModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/Declarations.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

using namespace Scripting;

namespace
{
int runScript(const char* path)
{
    std::ifstream file(path);
    std::stringstream source;
    source << file.rdbuf();
    ScriptEngine engine;
    auto runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager());
    engine.setRuntimeFactory([runtime](const ContextConfig&, const std::vector<ModuleDescriptor>&) { return runtime; });
    engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    engine.addModuleBindingFactory(LuaTest::makeZooFactory());
    const ModuleDescriptor requester{"zoo-script", quv::UUID{0x1234ull, 0x5678ull}, Version(1, 0, 0), false};
    const ModuleDescriptor zoo{LuaTest::MODULE_NAME, LuaTest::MODULE_UUID, Version(2, 0, 0), false};
    ScriptContextResult created =
        engine.createScriptingContext(ContextConfig("lua", "", requester), requester, {zoo}, nullptr, nullptr);
    if (!file || !created.context.has_value())
    {
        std::fprintf(stderr, "cannot run %s\n", path);
        return 1;
    }
    StringPayload payload(source.str(), path);
    const ResultAny result = created.context->run(&payload);
    // A closure the script handed to `remember` must not outlive the engine's registries.
    LuaTest::sRemembered.reset();
    if (const Error* error = result.tryGetError())
    {
        std::fprintf(stderr, "%s\n", error->toString().c_str());
        return 1;
    }
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: %s DIR MAJOR | --run SCRIPT\n", argv[0]);
        return 2;
    }
    if (std::string_view(argv[1]) == "--run")
    {
        return runScript(argv[2]);
    }
    const Version version(static_cast<uint16_t>(std::atoi(argv[2])), 0, 0);
    std::optional<ModuleBinding> zoo = LuaTest::makeZooFactory()->createModuleBinding(version, std::nullopt);
    std::optional<ModuleBinding> common =
        CommonModuleFactory().createModuleBinding(CommonModuleFactory::LATEST_VERSION, std::nullopt);
    if (!zoo.has_value() || !common.has_value())
    {
        std::fprintf(stderr, "no zoo module %s\n", version.toString().c_str());
        return 1;
    }
    const std::vector<ModuleBinding> modules{std::move(*zoo), std::move(*common)};
    const ResultAny written = Lua::writeDeclarationFiles(argv[1], modules);
    if (const Error* error = written.tryGetError())
    {
        std::fprintf(stderr, "%s\n", error->message.c_str());
        return 1;
    }
    return 0;
}
