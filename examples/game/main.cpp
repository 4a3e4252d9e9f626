// Runs a Lua script against the game module: lua_game_example SCRIPT [MODULE_VERSION]
#include "GameModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/Runtime/ErrorText.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include "Diagnostics/TerminalText.h"

#include <cstdio>
#include <fstream>
#include <sstream>

using namespace Scripting;

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::fprintf(stderr, "usage: %s SCRIPT [MODULE_VERSION]\n", argv[0]);
        return 2;
    }
    std::ifstream file(argv[1]);
    std::stringstream source;
    source << file.rdbuf();
    if (!file)
    {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return 2;
    }
    unsigned major = 1;
    unsigned minor = 1;
    unsigned patch = 0;
    if (argc > 2 && std::sscanf(argv[2], "%u.%u.%u", &major, &minor, &patch) != 3)
    {
        std::fprintf(stderr, "not a version: %s\n", argv[2]);
        return 2;
    }
    const Version version(static_cast<uint16_t>(major), static_cast<uint16_t>(minor), static_cast<uint16_t>(patch));

    ScriptEngine engine;
    auto runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager());
    engine.setRuntimeFactory([runtime](const ContextConfig&, const std::vector<ModuleDescriptor>&) { return runtime; });
    engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    engine.addModuleBindingFactory(Game::makeGameModuleFactory());

    const ModuleDescriptor application{"game-example", quv::UUID{0x1111222233334444ull, 0x5555666677778888ull},
                                       Version(1, 0, 0), false};
    const ModuleDescriptor game{Game::MODULE_NAME, Game::MODULE_UUID, version, false};
    ScriptContextResult created =
        engine.createScriptingContext(ContextConfig("lua", "", application), application, {game}, nullptr, nullptr);
    if (!created.context.has_value())
    {
        Ovelith::Diagnostics::printForTerminal(stderr, "No script context:" + engine.getFailureText(created));
        return 1;
    }

    StringPayload payload(source.str(), argv[1]);
    const ResultAny result = created.context->run(&payload);
    if (const Error* error = result.tryGetError())
    {
        printError(stderr, *error);
        return 1;
    }
    const int64_t* health = result.any().try_cast<const int64_t>();
    std::printf("the script returned %lld\n", health != nullptr ? static_cast<long long>(*health) : -1LL);
    // Closing the context destroys what the script made, whatever the script still held.
    created.context.reset();
    std::printf("%d entities alive after the context closed\n", Game::Entity::sAlive);
    return 0;
}
