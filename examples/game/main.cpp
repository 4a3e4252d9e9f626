// Runs a Lua script against the game module: lua_game_example SCRIPT [MODULE_VERSION]
// Or writes the module's declarations for scripts: lua_game_example --declarations DIR [MODULE_VERSION]
#include "GameModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/Declarations.h"
#include "Scripting/Lua/State.h"
#include "Scripting/Runtime/ErrorText.h"

#include "Diagnostics/TerminalText.h"

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

    // The game module keeps its own factory, with its two versions; State adds the engine, the sandboxed runtime
    // and the common module around it.
    Lua::State lua;
    lua.addModule(Game::makeGameModuleFactory(), version);
    if (lua.context() == nullptr)
    {
        Ovelith::Diagnostics::printForTerminal(stderr, "No script context:" + lua.contextFailure());
        return 1;
    }
    Result<int> health = lua.run<int>(source.str(), argv[1]);
    if (const Error* error = health.tryGetError())
    {
        printError(stderr, *error);
        return 1;
    }
    std::printf("the script returned %d\n", health.value());
    // Closing the context destroys what the script made, whatever the script still held.
    lua.reset();
    std::printf("%d entities alive after the context closed\n", Game::Entity::sAlive);
    return 0;
}
