#include "GameModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <string>

using namespace Scripting;

namespace LuaTest
{
namespace
{
// Pieces that random snippets are made of: values of every Lua type, bound and unbound names, and statements
// that call, read and write through the bindings.
constexpr std::array VALUES{"1",
                            "1001",
                            "-1",
                            "-5",
                            "0",
                            "2^40",
                            "1.5",
                            "0/0",
                            "math.huge",
                            "-math.huge",
                            "math.mininteger",
                            "'x'",
                            "''",
                            "nil",
                            "true",
                            "{}",
                            "{1, 2, 3}",
                            "{x = 1, y = 'a'}",
                            "{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{{}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}}",
                            "function() end",
                            "function(...) return ... end",
                            "function() error('cb') end",
                            "function(h) e:damage(1) end",
                            "e",
                            "v",
                            "game.Vec3.new(1, 2, 3)",
                            "game.Team.Red",
                            "'Purple'",
                            "Promise.new()",
                            "Buffer.new(2)",
                            "coroutine.create(function() end)",
                            "setmetatable({}, {__index = function() error('meta') end})",
                            "game",
                            "game.Entity",
                            "string.rep('z', 100)"};

constexpr std::array CALLEES{"game.Entity",
                             "game.Entity.new",
                             "game.Vec3.new",
                             "game.distance",
                             "game.livingEntities",
                             "e.damage",
                             "e:damage",
                             "e.onDamaged",
                             "e:onDamaged",
                             "e:moveBy",
                             "e:heal",
                             "v:add",
                             "v:scaled",
                             "v:length",
                             "v:dot",
                             "v.length",
                             "game.Vec3",
                             "game.Entity.heal",
                             "require",
                             "tostring",
                             "e.name",
                             "print"};

constexpr std::array PROPERTIES{"health", "name", "team", "position", "x", "nothing", "damage", "__gc"};

std::string pick(std::mt19937& random, const auto& pieces)
{
    return pieces[std::uniform_int_distribution<size_t>(0, pieces.size() - 1)(random)];
}

std::string statement(std::mt19937& random)
{
    const auto value = [&random] { return pick(random, VALUES); };
    switch (std::uniform_int_distribution<int>(0, 7)(random))
    {
    case 0:
    case 1:
    case 2:
    {
        std::string call = pick(random, CALLEES) + "(";
        const int count = std::uniform_int_distribution<int>(0, 4)(random);
        for (int index = 0; index < count; ++index)
        {
            call += (index > 0 ? ", " : "") + value();
        }
        return call + ")";
    }
    case 3:
        return (random() % 2 ? "e." : "v.") + pick(random, PROPERTIES) + " = " + value();
    case 4:
        return "local _ = " + std::string(random() % 2 ? "e." : "v.") + pick(random, PROPERTIES);
    case 5:
        return "e = game.Entity.new(" + value() + ", " + value() + ")";
    case 6:
        return "collectgarbage()";
    default:
        return "v = " + value();
    }
}

// Random scripts against the example module: none may crash, leak or leave the context unusable.
TEST(LuaFuzzTest, RandomSnippetsAgainstTheExampleModule)
{
    const int aliveBefore = Game::Entity::sAlive;
    {
        ScriptEngine engine;
        Lua::LuaRuntimeSettings settings;
        settings.memoryLimitBytes = 8u * 1024u * 1024u;
        settings.printHandler = [](ContextId, std::string_view) {};
        auto runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager(), std::move(settings));
        runtime->enableWatchdog(WatchdogSettings{0, 200000});
        engine.setRuntimeFactory([runtime](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                 { return runtime; });
        engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        engine.addModuleBindingFactory(Game::makeGameModuleFactory());
        const ModuleDescriptor requester{"fuzz", quv::UUID{1, 2}, Version(1, 0, 0), false};
        const ModuleDescriptor game{Game::MODULE_NAME, Game::MODULE_UUID, Version(1, 0, 0), false};
        ScriptContextResult created =
            engine.createScriptingContext(ContextConfig("lua", "", requester), requester, {game}, nullptr, nullptr);
        ASSERT_TRUE(created.context.has_value()) << created.getErrorText();
        ScriptContext& context = *created.context;

        std::mt19937 random(20240613u);
        int failures = 0;
        std::map<std::string, int> errorNames;
        constexpr int SNIPPETS = 3000;
        for (int index = 0; index < SNIPPETS; ++index)
        {
            std::string source = "local game = require('@example/game') local e = game.Entity.new('a') local v = "
                                 "game.Vec3.new(1, 2, 3)\n";
            const int statements = std::uniform_int_distribution<int>(1, 6)(random);
            for (int count = 0; count < statements; ++count)
            {
                source += statement(random) + "\n";
            }
            StringPayload payload(source, "fuzz.lua");
            const ResultAny result = context.run(&payload);
            if (const Error* error = result.tryGetError())
            {
                ++failures;
                ++errorNames[error->name];
                ASSERT_FALSE(error->message.empty()) << source;
            }
            if (index % 100 == 0)
            {
                StringPayload probe("return 1 + 1", "probe.lua");
                const ResultAny alive = context.run(&probe);
                ASSERT_FALSE(alive.isError()) << "after:\n" << source;
            }
        }
        // Garbage: random bytes as source text.
        for (int index = 0; index < 200; ++index)
        {
            std::string source(std::uniform_int_distribution<size_t>(0, 64)(random), ' ');
            for (char& character : source)
            {
                character = static_cast<char>(std::uniform_int_distribution<int>(1, 255)(random));
            }
            StringPayload payload(source, "bytes.lua");
            (void)context.run(&payload);
        }
        EXPECT_GT(failures, SNIPPETS / 10) << "the snippets should hit the error paths";
        EXPECT_LT(failures, SNIPPETS) << "the snippets should also succeed";
        for (const char* name :
             {"Error", "InvalidArgumentError", "ArgumentOutOfBoundsError", "PropertyOutOfBoundsError"})
        {
            EXPECT_GT(errorNames[name], 0) << "no snippet ended in " << name;
        }
    }
    EXPECT_EQ(Game::Entity::sAlive, aliveBefore) << "every entity dies with its context";
}
} // namespace
} // namespace LuaTest
