// Every way into script code runs on the entry's budget; work inside library functions counts too.
#include "GameModule.h"
#include "LuaTestSupport.h"

#include "Scripting/Runtime/Error.h"

#include <lua.hpp>

#include <chrono>
#include <string>
#include <vector>

using namespace Scripting;
using namespace LuaTest;
using namespace std::chrono_literals;

namespace
{
constexpr uint32_t BUDGET_MS = 100;
// Far above any stop latency, far below "hangs": the guard turns a regression into a failure.
constexpr auto GUARD = 20s;

struct Runaway
{
    const char* name;
    const char* script;
};

class LuaBudgetTest : public LuaEngineTest, public ::testing::WithParamInterface<Runaway>
{
};

const Runaway RUNAWAYS[] = {
    // Message handlers run before the stack unwinds, also for the watchdog's own error.
    {"HandlerLoopsAfterStop", "xpcall(function() while true do end end, function() while true do end end)"},
    {"HandlerLoopsAfterError", "xpcall(function() error('x') end, function() while true do end end)"},
    {"HandlerRunsLong", "xpcall(function() error('x') end, function() for i = 1, 3e8 do end end)"},
    {"NestedHandlers",
     "xpcall(function() xpcall(function() while true do end end, function() while true do end end) end, "
     "function() while true do end end)"},
    {"PcallInLoop", "while true do pcall(function() while true do end end) end"},
    {"ErrorInClose", "do local x <close> = setmetatable({}, {__close = function() while true do end end}) "
                     "while true do end end"},
    // Work inside one library call.
    {"PatternBacktracking", "return string.rep('a', 20000):find('.-.-.-.-b')"},
    {"PatternMatch", "return string.rep('a', 20000):match('(.-)(.-)(.-)(.-)b')"},
    {"PatternGsub", "return (string.rep('a', 5000):gsub('.-.-.-b', 'x'))"},
    {"PatternGmatch", "for w in string.rep('a', 5000):gmatch('.-.-.-b') do end"},
    {"PlainFindLongNeedle", "local s = string.rep('a', 4e6) return s:find(string.rep('a', 1e5) .. 'b', 1, true)"},
    {"TableMoveHugeRange", "table.move({}, 1, 1e12, 2)"},
    {"TableInsertHugeLength", "table.insert(setmetatable({}, {__len = function() return 1e12 end}), 1, 0)"},
    {"TableRemoveHugeLength", "table.remove(setmetatable({}, {__len = function() return 1e12 end}), 1)"},
    {"TableConcatNativeIndex", "return #table.concat(setmetatable({}, {__index = type}), '', 1, 1e12)"},
    {"TableUnpackNativeIndex", "for i = 1, 1e9 do table.unpack(setmetatable({}, {__index = type}), 1, 9e5) end"},
    {"TableSortNativeOrder", "table.sort(setmetatable({}, {__len = function() return 2^31 - 2 end}), rawequal)"},
    {"RepeatEmptyString", "while true do string.rep('', 1e15) end"},
    {"LoadLargeText", "while true do load(string.rep('local a = 1 ', 1e6)) end"},
    {"CollectInLoop", "local t = {} for i = 1, 2e5 do t[i] = {} end while true do collectgarbage() end"},
    {"Utf8Walks", "local s = string.rep('\\u{7FF}', 1e6) while true do utf8.len(s) end"},
    // Other entries.
    {"Coroutine", "coroutine.wrap(function() while true do end end)()"},
    {"NativeCallback", "return require('@test/zoo').callTwice(function(v) while true do end end, 1)"},
    {"NativeCallbackSwallowed",
     "local zoo = require('@test/zoo') while true do pcall(zoo.callTwice, function(v) while true do end end, 1) end"},
    {"PromiseContinuation", "local p = Promise.new() p:next(function() while true do end end) "
                            "require('@test/zoo').resolveWith(p, 1)"},
    {"GeneratorStep", "return require('@test/zoo').sumGenerator(function() while true do end end)"},
};

TEST_P(LuaBudgetTest, StopsWithTheWatchdogsErrorAndKeepsTheContext)
{
    const Runaway& runaway = GetParam();
    mRuntime->enableWatchdog(WatchdogSettings{BUDGET_MS, 0});
    context();
    runGuarded(runaway.name, GUARD,
               [&]
               {
                   const ResultAny result = run(runaway.script);
                   const Error* error = result.tryGetError();
                   ASSERT_NE(error, nullptr) << runaway.script;
                   EXPECT_EQ(error->name, "WatchdogError") << error->message;
                   EXPECT_EQ(error->message, "Script stopped by the watchdog: ran longer than 100 ms");
                   EXPECT_EQ(integer(run("return 40 + 2")), 42);
               });
}

INSTANTIATE_TEST_SUITE_P(Runaways, LuaBudgetTest, ::testing::ValuesIn(RUNAWAYS),
                         [](const ::testing::TestParamInfo<Runaway>& info) { return info.param.name; });

using LuaEntryTest = LuaEngineTest;

TEST_F(LuaEntryTest, AScriptStoppedInACallbackEndsWhereTheNativeCallReturns)
{
    // The entity ignores a failing listener and returns as usual: the script must end at its next instruction,
    // not run on to the next look of the hook; and the hook looks at its usual pace again afterwards.
    mEngine.addModuleBindingFactory(Game::makeGameModuleFactory());
    const ModuleDescriptor game{Game::MODULE_NAME, Game::MODULE_UUID, Version(1, 1, 0), false};
    ScriptContextResult made =
        mEngine.createScriptingContext(ContextConfig("lua", "", REQUESTER), REQUESTER, {game}, nullptr, nullptr);
    ASSERT_TRUE(made.context.has_value()) << made.getErrorText();
    mRuntime->enableWatchdog(WatchdogSettings{0, 200000});
    StringPayload script(R"(
        local e = require('@example/game').Entity.new('a')
        e:onDamaged(function() while true do end end)
        e:onDamaged(function() end)
        e:damage(1)
        for i = 1, 1e9 do after = i end
    )",
                         "stop.lua");
    EXPECT_EQ(errorText(made.context->run(&script)), "Script stopped by the watchdog: more than 200000 instructions");
    StringPayload probe("return after == nil and 1 or 0", "probe.lua");
    EXPECT_EQ(integer(made.context->run(&probe)), 1) << "the script ran on after the native call returned";
    EXPECT_EQ(lua_gethookcount(mRuntime->getLuaState(made.context->getContextId())), 1000);
}

TEST_F(LuaEntryTest, CoroutineMadeBeforeTheWatchdogIsStopped)
{
    ASSERT_FALSE(run("co = coroutine.create(function() while true do end end) "
                     "wrapped = coroutine.wrap(function() while true do end end)")
                     .isError());
    mRuntime->enableWatchdog(WatchdogSettings{BUDGET_MS, 0});
    runGuarded("coroutine made before the watchdog", GUARD,
               [&]
               {
                   EXPECT_EQ(errorText(run("return coroutine.resume(co)")),
                             "Script stopped by the watchdog: ran longer than 100 ms");
                   EXPECT_EQ(errorText(run("return wrapped()")),
                             "Script stopped by the watchdog: ran longer than 100 ms");
               });
}

TEST_F(LuaEntryTest, CoroutineMadeUnhookedIsStoppedOnceTheWatchdogIsOn)
{
    Lua::LuaRuntimeSettings settings;
    settings.interruptible = false;
    configure(settings);
    ASSERT_FALSE(run("co = coroutine.create(function() while true do end end)").isError());
    ASSERT_EQ(lua_gethook(mRuntime->getLuaState(context().getContextId())), nullptr) << "no hook without a need";
    mRuntime->enableWatchdog(WatchdogSettings{BUDGET_MS, 0});
    runGuarded("unhooked coroutine", GUARD,
               [&]
               {
                   EXPECT_EQ(errorText(run("return coroutine.resume(co)")),
                             "Script stopped by the watchdog: ran longer than 100 ms");
               });
}

TEST_F(LuaEntryTest, SmallInstructionBudgetReachesCoroutinesMadeEarlier)
{
    ASSERT_FALSE(run("co = coroutine.create(function() for i = 1, 5000 do end return 'done' end)").isError());
    mRuntime->enableWatchdog(WatchdogSettings{0, 500});
    EXPECT_EQ(errorText(run("return coroutine.resume(co)")),
              "Script stopped by the watchdog: more than 500 instructions");
}

TEST_F(LuaEntryTest, ClosureHeldByNativeCodeRunsOnABudgetOfItsOwn)
{
    ASSERT_FALSE(
        run("require('@test/zoo').remember(function(n) if n > 0 then while true do end end return 5 end)").isError());
    ASSERT_TRUE(sRemembered.has_value());
    mRuntime->enableWatchdog(WatchdogSettings{BUDGET_MS, 0});
    runGuarded("closure called by native code", GUARD,
               [&]
               {
                   entt::meta_any arguments[] = {entt::meta_any{Reflection::context(), 1}};
                   const ResultAny stopped = sRemembered->call(arguments, 1, Reflection::resolve<int>(), std::nullopt);
                   EXPECT_EQ(errorText(stopped), "Script stopped by the watchdog: ran longer than 100 ms");
                   arguments[0] = entt::meta_any{Reflection::context(), 0};
                   const ResultAny fine = sRemembered->call(arguments, 1, Reflection::resolve<int>(), std::nullopt);
                   ASSERT_FALSE(fine.isError()) << errorText(fine);
                   EXPECT_EQ(fine.any().cast<int>(), 5);
               });
    sRemembered.reset();
}

TEST_F(LuaEntryTest, StopNamesTheLineThatWasRunning)
{
    mRuntime->enableWatchdog(WatchdogSettings{0, 100000});
    const ResultAny result = run("local ok = pcall(function()\n"
                                 "  local n = 0\n"
                                 "  while true do n = n + 1 end\n"
                                 "end)\n"
                                 "return ok\n",
                                 "loop.lua");
    const Error* error = result.tryGetError();
    ASSERT_NE(error, nullptr);
    ASSERT_TRUE(error->stack.has_value());
    EXPECT_EQ(error->stack->substr(0, error->stack->find('\n')), "    at <anonymous> (loop.lua:3)");
    EXPECT_EQ(error->fileName, "loop.lua");
}

TEST_F(LuaEntryTest, ScriptsStillCatchOrdinaryErrorsAndYieldAcrossPcall)
{
    mRuntime->enableWatchdog(WatchdogSettings{BUDGET_MS, 0});
    EXPECT_EQ(text(run("local ok, e = pcall(error, 'boom', 0) return tostring(ok) .. ' ' .. e")), "false boom");
    EXPECT_EQ(text(run("local ok, e = xpcall(function() error('boom', 0) end, function(m) return 'handled ' .. m end) "
                       "return tostring(ok) .. ' ' .. e")),
              "false handled boom");
    EXPECT_EQ(integer(run("return select('#', pcall(function() return 1, 2, 3 end))")), 4);
    // A coroutine may yield from inside pcall and xpcall.
    EXPECT_EQ(text(run("local co = coroutine.wrap(function() "
                       "  pcall(function() coroutine.yield('a') end) "
                       "  xpcall(function() coroutine.yield('b') end, print) return 'c' end) "
                       "return co() .. co() .. co()")),
              "abc");
    EXPECT_EQ(text(run("local co = coroutine.create(function() error('inner', 0) end) "
                       "local ok, e = coroutine.resume(co) "
                       "return tostring(ok) .. ' ' .. e .. ' ' .. coroutine.status(co) .. ' ' .. "
                       "select(2, coroutine.resume(co))")),
              "false inner dead cannot resume dead coroutine");
    EXPECT_EQ(text(run("local ok, e = pcall(coroutine.wrap(function() error('w') end)) return e")), "test.lua:1: w");
}

using LuaLimitTest = LuaEngineTest;

TEST_F(LuaLimitTest, LimitsAreErrorValuesAndTheContextStaysUsable)
{
    Lua::LuaRuntimeSettings settings;
    settings.memoryLimitBytes = 8u * 1024u * 1024u;
    settings.maxCoroutines = 500;
    configure(settings);
    context();
    const struct
    {
        const char* script;
        const char* message;
    } cases[] = {
        {"return string.rep('x', 1e8)", "Memory limit exceeded"},
        {"return string.rep('x', 1e5, string.rep('y', 1e3))", "Memory limit exceeded"},
        {"local t = {} for i = 1, 2e4 do t[i] = string.rep('z', 1000) end return table.concat(t)",
         "Memory limit exceeded"},
        {"local t = {} for i = 1, 2e4 do t[i] = string.rep('z', 1000) .. i end return #t", "Memory limit exceeded"},
        {"return (string.rep('a', 4e6):gsub('a', 'bbb'))", "Memory limit exceeded"},
        {"local a = string.rep('x', 3e6) return string.format('%s%s%s', a, a, a)", "Memory limit exceeded"},
        {"local t = {} for i = 1, 600 do t[i] = coroutine.create(print) end", "Coroutine limit exceeded"},
        {"local t = {} for i = 1, 600 do t[i] = coroutine.wrap(print) end", "Coroutine limit exceeded"},
        {"local zoo = require('@test/zoo') local function f(v) return zoo.callTwice(f, v) end return f(1)",
         "stack overflow"},
        {"local function nest() return coroutine.wrap(nest)() end local ok, e = pcall(nest) error(e:sub(-40), 0)",
         "C stack overflow"},
        {"local t = setmetatable({}, {__tostring = function(s) return tostring(s) end}) return tostring(t)",
         "stack overflow"},
        {"local t = setmetatable({}, {__index = function(s, k) return s[k] end}) return t.x", "stack overflow"},
        {"return string.find(string.rep('a', 300), string.rep('(a?)', 33))", "too many captures"},
        {"return string.rep('a', 300):find(string.rep('a?', 300) .. 'b')", "pattern too complex"},
    };
    const uint64_t before = mRuntime->computeContextStats(context().getContextId())->memoryUsedBytes;
    for (const auto& entry : cases)
    {
        runGuarded(entry.script, GUARD,
                   [&]
                   {
                       const ResultAny result = run(entry.script);
                       EXPECT_NE(errorText(result).find(entry.message), std::string::npos)
                           << entry.script << " gave " << errorText(result);
                       EXPECT_EQ(integer(run("return 40 + 2")), 42) << "after " << entry.script;
                   });
    }
    // What the scripts made and dropped is given back.
    run("collectgarbage()");
    const uint64_t after = mRuntime->computeContextStats(context().getContextId())->memoryUsedBytes;
    EXPECT_LT(after, before + 64u * 1024u);
    // Coroutines the collector took count no more.
    EXPECT_FALSE(run("local t = {} for i = 1, 400 do t[i] = coroutine.create(print) end").isError());
}

TEST_F(LuaLimitTest, ScriptValuesNativeCodeHoldsAreCapped)
{
    Lua::LuaRuntimeSettings settings;
    settings.maxScriptReferences = 1;
    configure(settings);
    context();
    ASSERT_FALSE(run("require('@test/zoo').remember(function() return 1 end)").isError());
    // Native code still holds the first function while the second is handed over.
    const ResultAny refused = run("local ok, e = pcall(require('@test/zoo').remember, function() return 2 end) "
                                  "return e.message");
    EXPECT_NE(text(refused).find("Script value limit exceeded: native code may hold 1 script values"),
              std::string::npos)
        << text(refused);
    sRemembered.reset();
    EXPECT_FALSE(run("require('@test/zoo').remember(function() return 3 end)").isError())
        << "a value native code let go of no longer counts";
    sRemembered.reset();
}
} // namespace
