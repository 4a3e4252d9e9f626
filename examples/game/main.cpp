// Runs a Lua script against the game module: lua_game_example SCRIPT [MODULE_VERSION]
#include "GameModule.h"

#include "Scripting/Lua/State.h"
#include "Scripting/Runtime/ErrorText.h"

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
