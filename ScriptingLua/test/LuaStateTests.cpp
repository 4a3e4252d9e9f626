#include "Scripting/Lua/State.h"
#include "Scripting/Runtime/ErrorText.h"
#include "Scripting/Runtime/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
using namespace Scripting;
using testing::HasSubstr;
using testing::Not;

struct Counter
{
    explicit Counter(int start) : value(start) {}
    int bump(int by) { return value += by; }
    int value = 0;
};

int twice(int x)
{
    return 2 * x;
}

int thrice(int x)
{
    return 3 * x;
}

std::string greet(const std::string& name)
{
    return "hello " + name;
}

std::vector<std::string>* sLogged = nullptr;

void recordLog(void*, LogLevel, const char* text)
{
    sLogged->push_back(text);
}

std::string messageOf(const Error* error)
{
    return error != nullptr ? error->message : "<no error>";
}

// A State with the demo module, and the log recorded.
class LuaStateTest : public testing::Test
{
protected:
    LuaStateTest()
    {
        sLogged = &mLogged;
        setLogHandler(&recordLog, nullptr);
    }
    ~LuaStateTest() override
    {
        setLogHandler(nullptr, nullptr);
        sLogged = nullptr;
    }

    static Lua::Module& describeDemo(Lua::State& lua)
    {
        Lua::Module& demo = lua.module("demo");
        auto& counter = demo.classBinding<Counter>("Counter");
        counter.constructor<int>();
        counter.method<&Counter::bump>("bump");
        counter.property<&Counter::value>("value");
        demo.function<&twice>("twice");
        return demo;
    }

    std::vector<std::string> mLogged;
};

TEST_F(LuaStateTest, RunsAScriptAgainstAModuleMadeByNameAndReadsATypedResult)
{
    Lua::State lua;
    describeDemo(lua);
    Result<int> result = lua.run<int>("local demo = require('demo')\n"
                                      "local c = demo.Counter.new(3)\n"
                                      "c:bump(4)\n"
                                      "return demo.twice(c.value)\n");
    ASSERT_FALSE(result.isError()) << messageOf(result.tryGetError());
    EXPECT_EQ(result.value(), 14);
    EXPECT_EQ(Lua::Module::uuidFromName("demo"), lua.module("demo").getUUID());
    EXPECT_NE(Lua::Module::uuidFromName("demo"), Lua::Module::uuidFromName("demo2"));
}

struct Badge
{
    Badge(std::string owner, int level) : text(owner + ":" + std::to_string(level)) {}
    std::string text;
};

TEST_F(LuaStateTest, AConstructorFromASignatureTakesDescriptionsWithDefaults)
{
    Lua::State lua;
    auto& badge = lua.module("demo").classBinding<Badge>("Badge");
    badge.constructor<const std::string&, int>(ArgumentBindingBuilder<const std::string&>("owner"),
                                               ArgumentBindingBuilder<int>("level").defaultValue(1));
    badge.property<&Badge::text>("text");
    Result<std::string> text = lua.run<std::string>(
        "local demo = require('demo') return demo.Badge('ada').text .. ' ' .. demo.Badge('bo', 3).text");
    ASSERT_FALSE(text.isError()) << messageOf(text.tryGetError());
    EXPECT_EQ(text.value(), "ada:1 bo:3");
    EXPECT_THAT(messageOf(lua.run("require('demo').Badge()").tryGetError()),
                HasSubstr("argument 'owner' of Badge.new needs a string, got nil"));
}

struct TypedCase
{
    const char* label;
    const char* source;
    const char* errorName;
    const char* messagePart;
};

TEST_F(LuaStateTest, AResultThatDoesNotFitTheTypeAskedForIsAnErrorValue)
{
    Lua::State lua;
    const TypedCase cases[] = {
        {"a string", "return 'seven'", "InvalidArgumentError",
         "Expected type: int for the value returned by script, got string"},
        {"past the range of int", "return 3000000000", "ArgumentOutOfBoundsError", "Value: 3000000000"},
        {"nothing", "return", "InvalidArgumentError", "needs an int, got nil"},
        {"a fraction", "return 1.5", "InvalidArgumentError", "no integer value"},
        {"a script failure", "error('broken', 0)", "Error", "broken"},
        {"a syntax error", "return +", "Error", "script:1:"},
    };
    for (const TypedCase& c : cases)
    {
        Result<int> result = lua.run<int>(c.source);
        const Error* error = result.tryGetError();
        ASSERT_NE(error, nullptr) << c.label;
        EXPECT_EQ(error->name, c.errorName) << c.label << ": " << error->message;
        EXPECT_THAT(error->message, HasSubstr(c.messagePart)) << c.label;
    }
    Result<std::string> text = lua.run<std::string>("return 'seven'");
    ASSERT_FALSE(text.isError());
    EXPECT_EQ(text.value(), "seven");
    EXPECT_FALSE(lua.run("local unused = 1").isError());
}

TEST_F(LuaStateTest, CallsScriptFunctionsByNameWithTypedArgumentsAndResult)
{
    Lua::State lua;
    describeDemo(lua);
    ASSERT_FALSE(lua.run("function scale(x, by) return x * by end\n"
                         "function label(name, n) return name .. '#' .. n end\n"
                         "function fail() error('from the script') end\n"
                         "notAFunction = 5\n")
                     .isError());

    Result<int> scaled = lua.call<int>("scale", 6, 7);
    ASSERT_FALSE(scaled.isError()) << messageOf(scaled.tryGetError());
    EXPECT_EQ(scaled.value(), 42);
    Result<std::string> label = lua.call<std::string>("label", "crate", 3);
    ASSERT_FALSE(label.isError()) << messageOf(label.tryGetError());
    EXPECT_EQ(label.value(), "crate#3");

    EXPECT_THAT(messageOf(lua.call<int>("missing").tryGetError()),
                HasSubstr("The script has no function 'missing': the global is nil"));
    EXPECT_THAT(messageOf(lua.call<int>("notAFunction").tryGetError()), HasSubstr("the global is integer"));
    Result<void> failed = lua.call("fail");
    ASSERT_TRUE(failed.isError());
    EXPECT_THAT(messageOf(failed.tryGetError()), HasSubstr("from the script"));
    ASSERT_FALSE(failed.tryGetError()->getCallStack().empty());
    EXPECT_EQ(failed.tryGetError()->getCallStack().back().function, "fail");
    EXPECT_THAT(formatError(*failed.tryGetError()), testing::EndsWith("\n    at fail (script:3)"));
}

TEST_F(LuaStateTest, ReadsAndSetsGlobalsWithoutRunningScriptCode)
{
    Lua::State lua;
    ASSERT_FALSE(lua.set("limit", 21).isError());
    ASSERT_FALSE(lua.set("who", "world").isError());
    Result<int> doubled = lua.run<int>("return limit * 2");
    ASSERT_FALSE(doubled.isError()) << messageOf(doubled.tryGetError());
    EXPECT_EQ(doubled.value(), 42);

    ASSERT_FALSE(lua.run("answer = 'yes' setmetatable(_G, {__index = function() error('ran') end})").isError());
    Result<std::string> answer = lua.get<std::string>("answer");
    ASSERT_FALSE(answer.isError());
    EXPECT_EQ(answer.value(), "yes");
    Result<std::string> who = lua.get<std::string>("who");
    ASSERT_FALSE(who.isError());
    EXPECT_EQ(who.value(), "world");

    // A missing global is nil: an error for an int, nothing for an optional, and no __index ran for either.
    EXPECT_THAT(messageOf(lua.get<int>("absent").tryGetError()), HasSubstr("the global 'absent' needs an int"));
    EXPECT_THAT(messageOf(lua.get<std::string>("absent").tryGetError()), HasSubstr("needs a string, got nil"));
    Result<std::optional<int>> maybe = lua.get<std::optional<int>>("absent");
    ASSERT_FALSE(maybe.isError()) << messageOf(maybe.tryGetError());
    EXPECT_FALSE(maybe.value().has_value());

    lua.reset();
    EXPECT_TRUE(lua.get<int>("limit").isError());
}

TEST_F(LuaStateTest, ASecondVersionGrowsTheModuleWithoutRewritingIt)
{
    Lua::State lua;
    Lua::Module& demo = describeDemo(lua);
    demo.version(Version(1, 1, 0));
    demo.function<&thrice>("thrice").release(Version(1, 1, 0));
    const char* script = "local demo = require('demo') return demo.thrice ~= nil";

    Result<bool> newest = lua.run<bool>(script);
    ASSERT_FALSE(newest.isError()) << messageOf(newest.tryGetError());
    EXPECT_TRUE(newest.value());

    demo.request(Version(1, 0, 0));
    lua.reset();
    Result<bool> older = lua.run<bool>(script);
    ASSERT_FALSE(older.isError()) << messageOf(older.tryGetError());
    EXPECT_FALSE(older.value());

    demo.request(Version(2, 0, 0));
    lua.reset();
    const std::string message = messageOf(lua.run<bool>(script).tryGetError());
    EXPECT_THAT(message, HasSubstr("Missing Versioned Modules:\n    [demo - 2.0.0] requested by [application - 1.0.0]"
                                   "\ndemo exists in the versions: 1.0.0, 1.1.0"));
    EXPECT_THAT(message, Not(HasSubstr("§")));
    EXPECT_THAT(lua.contextFailure(), HasSubstr("§c"));
}

TEST_F(LuaStateTest, DescriptionStepsRunForEachVersionAndTheFactoryCarriesEveryVersion)
{
    Lua::State lua;
    Lua::Module& demo = describeDemo(lua);
    demo.version(Version(1, 1, 0)).version(Version(1, 1, 0));
    demo.describe([](ModuleBindingBuilder& builder) { builder.constant("LIMIT", 7).release(Version(1, 1, 0)); });

    Result<int> limit = lua.run<int>("return require('demo').LIMIT");
    ASSERT_FALSE(limit.isError()) << messageOf(limit.tryGetError());
    EXPECT_EQ(limit.value(), 7);

    const std::unique_ptr<GenericModuleBindingFactory> factory = demo.makeFactory();
    EXPECT_EQ(factory->getName(), "demo");
    EXPECT_EQ(factory->getUUID(), demo.getUUID());
    EXPECT_EQ(factory->getSupportedVersions(), (std::vector<Version>{Version(1, 0, 0), Version(1, 1, 0)}));
    const std::optional<ModuleBinding> older = factory->createModuleBinding(Version(1, 0, 0), std::nullopt);
    ASSERT_TRUE(older.has_value());
    EXPECT_TRUE(older->constants.empty());
    EXPECT_EQ(older->classBindings.size(), 1u);
}

TEST_F(LuaStateTest, BindingMistakesAreLoggedAndTheRestOfTheModuleWorks)
{
    {
        Lua::State lua;
        Lua::Module& demo = describeDemo(lua);
        demo.function<&thrice>("twice");
        demo.function<&greet>("greet", ArgumentBindingBuilder<int>("name"));

        Result<int> result = lua.run<int>("local demo = require('demo') return demo.Counter.new(1):bump(1)");
        ASSERT_FALSE(result.isError()) << messageOf(result.tryGetError());
        EXPECT_EQ(result.value(), 2);
        EXPECT_THAT(lua.run<int>("return require('demo').greet('x')").tryGetError(), testing::NotNull());
        EXPECT_THAT(mLogged, testing::Contains(HasSubstr(
                                 "Library misuse: A member with the name 'twice' already exists in module 'demo'")));
        EXPECT_THAT(mLogged, testing::Contains(HasSubstr("Argument binding type does not match actual argument type")));
        for (const std::string& line : mLogged)
        {
            EXPECT_THAT(line, testing::MatchesRegex("Library misuse: .* \\(failed check `.*` in .*, .*:[0-9]+\\)"));
        }
    }
    // The State gave the handler back: a test host's assert throws again.
    EXPECT_EQ(Ovelith::Diagnostics::getAssertHandler(), nullptr);
    EXPECT_THROW(OV_ASSERT(false, "after the state"), std::runtime_error);
}

TEST_F(LuaStateTest, AScriptErrorReadsMessageFirstThenOneFrameALineWithNativeFramesByName)
{
    Lua::State lua;
    describeDemo(lua);
    Result<int> result = lua.run<int>("local demo = require('demo')\n"
                                      "local function use()\n"
                                      "  local doubled = demo.twice()\n"
                                      "  return doubled\n"
                                      "end\n"
                                      "local result = use()\n"
                                      "return result\n",
                                      "use.lua");
    const Error* error = result.tryGetError();
    ASSERT_NE(error, nullptr);
    const std::string expected = "InvalidArgumentError: Invalid value passed to argument [0]. Missing or empty: "
                                 "argument [0] of demo.twice needs an int, got nil\n"
                                 "    at demo.twice (native)\n"
                                 "    at use (use.lua:3)\n"
                                 "    at <main> (use.lua:6)";
    EXPECT_EQ(formatError(*error), expected);
    ASSERT_GE(error->getCallStack().size(), 1u);
    EXPECT_EQ(error->getCallStack()[0].function, "demo.twice");
    EXPECT_EQ(error->getCallStack()[0].file, "native");
    EXPECT_EQ(error->getCallStack()[0].line, -1);
    EXPECT_EQ(error->fileName, "use.lua");
}

TEST_F(LuaStateTest, ARunawayScriptIsStoppedByTheWatchdogOfTheSettings)
{
    Lua::StateSettings settings;
    settings.watchdog = WatchdogSettings{0, 100000};
    Lua::State lua(settings);
    Result<int> result = lua.run<int>("while true do end");
    ASSERT_TRUE(result.isError());
    EXPECT_EQ(lua.getRuntime().getWatchdogSettings().instructionLimit, 100000u);
    Result<int> after = lua.run<int>("return 1");
    ASSERT_FALSE(after.isError());
    EXPECT_EQ(after.value(), 1);
}
} // namespace
