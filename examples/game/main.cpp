// Runs a Lua script against the game module: lua_game_example SCRIPT [MODULE_VERSION]
// Or writes the module's declarations for scripts: lua_game_example --declarations DIR [MODULE_VERSION]
#include "GameModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/Declarations.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string_view>

using namespace Scripting;

namespace
{
// The game module at `version` and the common module version it depends on, as a context would hold them.
int writeDeclarations(const char* directory, const Version& version)
{
    auto game = Game::makeGameModuleFactory();
    CommonModuleFactory common;
    const std::vector<ModuleDependency> dependencies = game->getDependencies(version);
    std::optional<ModuleBinding> gameBinding = game->createModuleBinding(version, std::nullopt);
    std::optional<ModuleBinding> commonBinding =
        dependencies.empty() || dependencies.front().versions.empty()
            ? std::nullopt
            : common.createModuleBinding(dependencies.front().versions.front(), std::nullopt);
    if (!gameBinding.has_value() || !commonBinding.has_value())
    {
        std::fprintf(stderr, "no module version %s\n", version.toString().c_str());
        return 1;
    }
    const std::vector<ModuleBinding> modules{std::move(*gameBinding), std::move(*commonBinding)};
    const ResultAny written = Lua::writeDeclarationFiles(directory, modules);
    if (const Error* error = written.tryGetError())
    {
        std::fprintf(stderr, "%s\n", error->message.c_str());
        return 1;
    }
    std::printf("declarations of %s %s written to %s\n", Game::MODULE_NAME.c_str(), version.toString().c_str(),
                directory);
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    const bool declarations = argc > 1 && std::string_view(argv[1]) == "--declarations";
    if (argc < 2 || (declarations && argc < 3))
    {
        std::fprintf(stderr, "usage: %s SCRIPT [MODULE_VERSION]\n       %s --declarations DIR [MODULE_VERSION]\n",
                     argv[0], argv[0]);
        return 2;
    }
    const int versionArgument = declarations ? 3 : 2;
    unsigned major = 1;
    unsigned minor = 1;
    unsigned patch = 0;
    if (argc > versionArgument && std::sscanf(argv[versionArgument], "%u.%u.%u", &major, &minor, &patch) != 3)
    {
        std::fprintf(stderr, "not a version: %s\n", argv[versionArgument]);
        return 2;
    }
    const Version version(static_cast<uint16_t>(major), static_cast<uint16_t>(minor), static_cast<uint16_t>(patch));
    if (declarations)
    {
        return writeDeclarations(argv[2], version);
    }
    std::ifstream file(argv[1]);
    std::stringstream source;
    source << file.rdbuf();
    if (!file)
    {
        std::fprintf(stderr, "cannot read %s\n", argv[1]);
        return 2;
    }

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
        std::fprintf(stderr, "no context:%s\n", created.getErrorText().c_str());
        return 1;
    }

    StringPayload payload(source.str(), argv[1]);
    const ResultAny result = created.context->run(&payload);
    if (const Error* error = result.tryGetError())
    {
        std::fprintf(stderr, "%s\n", error->toString().c_str());
        return 1;
    }
    const int64_t* health = result.any().try_cast<const int64_t>();
    std::printf("the script returned %lld\n", health != nullptr ? static_cast<long long>(*health) : -1LL);
    // Closing the context destroys what the script made, whatever the script still held.
    created.context.reset();
    std::printf("%d entities alive after the context closed\n", Game::Entity::sAlive);
    return 0;
}
