#include "LuaTestSupport.h"

#include <gmock/gmock.h>

using namespace Scripting;
using ::testing::HasSubstr;

namespace LuaTest
{
namespace
{
using LuaSandboxTest = LuaEngineTest;

struct Probe
{
    const char* name;
    const char* expression;
};

class LuaBlockedTest : public LuaEngineTest, public ::testing::WithParamInterface<Probe>
{
};

// Each of these would reach files, processes, the environment or the interpreter's internals.
TEST_P(LuaBlockedTest, IsAbsent)
{
    const ResultAny result = run(std::string("return ") + GetParam().expression + " == nil and 1 or 0");
    ASSERT_FALSE(result.isError()) << errorText(result);
    EXPECT_EQ(integer(result), 1) << GetParam().expression << " is reachable";
}

INSTANTIATE_TEST_SUITE_P(Sandbox, LuaBlockedTest,
                         ::testing::Values(Probe{"io", "io"}, Probe{"package", "package"}, Probe{"debug", "debug"},
                                           Probe{"dofile", "dofile"}, Probe{"loadfile", "loadfile"},
                                           Probe{"osExecute", "os.execute"}, Probe{"osGetenv", "os.getenv"},
                                           Probe{"osRemove", "os.remove"}, Probe{"osRename", "os.rename"},
                                           Probe{"osExit", "os.exit"}, Probe{"osTmpname", "os.tmpname"},
                                           Probe{"osDate", "os.date"}, Probe{"stringDump", "string.dump"}),
                         [](const ::testing::TestParamInfo<Probe>& info) { return info.param.name; });

TEST_F(LuaSandboxTest, SafeLibrariesArePresent)
{
    const ResultAny result = run(R"(
        assert(type(os.time()) == 'number' and type(os.clock()) == 'number' and os.difftime(2, 1) == 1)
        assert(string.format('%d', 3) == '3' and table.concat({1, 2}, ',') == '1,2' and math.max(1, 2) == 2)
        assert(utf8.char(72) == 'H' and coroutine.wrap(function() coroutine.yield(5) end)() == 5)
        return 1
    )");
    EXPECT_EQ(integer(result), 1) << errorText(result);
}

TEST_F(LuaSandboxTest, LoadTakesTextOnly)
{
    EXPECT_EQ(integer(run("return load('return 1 + 2')()")), 3);
    EXPECT_EQ(integer(run("return load('return x', 'chunk', 't', {x = 9})()")), 9);
    EXPECT_EQ(text(run("local f, message = load('\\27Lua fake binary') return message")),
              "attempt to load a binary chunk (mode is 't')");
    EXPECT_THAT(errorText(run("load('return 1', 'c', 'b')")), HasSubstr("load accepts only text chunks"));
    EXPECT_THAT(errorText(run("load(function() return nil end)")), HasSubstr("load accepts only source text"));
}

TEST_F(LuaSandboxTest, CollectorCannotBeStopped)
{
    EXPECT_THAT(errorText(run("collectgarbage('stop')")), HasSubstr("option 'stop' is not available"));
    EXPECT_THAT(errorText(run("collectgarbage('generational')")), HasSubstr("is not available"));
    EXPECT_EQ(integer(run("collectgarbage() return collectgarbage('count') > 0 and 1 or 0")), 1);
}

TEST_F(LuaSandboxTest, FinalizersAreRefused)
{
    EXPECT_THAT(errorText(run("setmetatable({}, {__gc = function() end})")),
                HasSubstr("finalizers (__gc) are not available to scripts"));
    EXPECT_EQ(integer(run("local t = setmetatable({}, {__index = function() return 5 end}) return t.x")), 5);
}

TEST_F(LuaSandboxTest, PrintGoesToTheHandler)
{
    std::vector<std::string> lines;
    Lua::LuaRuntimeSettings settings;
    settings.printHandler = [&lines](ContextId, std::string_view line) { lines.emplace_back(line); };
    configure(std::move(settings));
    ASSERT_FALSE(run("print('a', 1, nil, true) print()").isError());
    EXPECT_THAT(lines, ::testing::ElementsAre("a\t1\tnil\ttrue", ""));
}

TEST_F(LuaSandboxTest, ContextsAreIsolated)
{
    std::optional<ScriptContext> other = makeContext();
    ASSERT_TRUE(other.has_value());
    ASSERT_FALSE(run("shared = 5 string.upper = nil").isError());
    StringPayload probe("return (shared == nil and string.upper ~= nil) and 1 or 0", "other.lua");
    EXPECT_EQ(integer(other->run(&probe)), 1);
}

class LuaLimitsTest : public LuaEngineTest
{
protected:
    static constexpr size_t LIMIT = 2u * 1024u * 1024u;

    LuaLimitsTest()
    {
        Lua::LuaRuntimeSettings settings;
        settings.memoryLimitBytes = LIMIT;
        configure(std::move(settings));
    }
};

TEST_F(LuaLimitsTest, MemoryLimitStopsTheScriptAndKeepsTheContext)
{
    for (const char* hog : {"local t = {} for i = 1, 1e8 do t[i] = i end", "local s = string.rep('x', 1e9)",
                            "local t = {} for i = 1, 1e7 do t[i] = tostring(i) .. 'padding' end"})
    {
        const ResultAny result = run(hog);
        ASSERT_TRUE(result.isError()) << hog;
        EXPECT_THAT(errorText(result), HasSubstr("Memory limit exceeded")) << hog;
        const std::optional<Lua::LuaContextStats> stats = mRuntime->computeContextStats(context().getContextId());
        ASSERT_TRUE(stats.has_value());
        EXPECT_LE(stats->memoryPeakBytes, LIMIT);
        EXPECT_EQ(stats->memoryLimitBytes, LIMIT);
        EXPECT_EQ(integer(run("collectgarbage() return 40 + 2")), 42) << "the context is usable after " << hog;
    }
}

TEST_F(LuaLimitsTest, ANativeResultThatWouldPassTheLimitIsAnErrorValue)
{
    // The result is made with the limit lifted, so that a conversion never stops half way: it must be refused
    // before it is made, not kept past the limit.
    const ResultAny result = run(R"(
        local zoo = require('@test/zoo')
        local title = string.rep('x', 700 * 1024)
        local first = zoo.describeSettings({title = title})
        local ok, err = pcall(zoo.describeSettings, {title = title})
        return (ok and 'made ' .. #err or tostring(err)) .. ' / ' .. #first
    )");
    EXPECT_THAT(text(result),
                HasSubstr("Memory limit exceeded: the value @test/zoo.describeSettings returned does not fit in "
                          "the 2097152 bytes the context may hold / 716808"));
    const std::optional<Lua::LuaContextStats> stats = mRuntime->computeContextStats(context().getContextId());
    ASSERT_TRUE(stats.has_value());
    EXPECT_LE(stats->memoryPeakBytes, LIMIT);
    EXPECT_EQ(integer(run("collectgarbage() return 40 + 2")), 42);
}

TEST_F(LuaLimitsTest, StatsReportRealFigures)
{
    const ContextId id = context().getContextId();
    const uint64_t before = mRuntime->computeContextStats(id)->memoryUsedBytes;
    EXPECT_GT(before, 0u);
    ASSERT_FALSE(run("kept = {} for i = 1, 10000 do kept[i] = i end").isError());
    const Lua::LuaContextStats during = *mRuntime->computeContextStats(id);
    EXPECT_GT(during.memoryUsedBytes, before + 10000 * sizeof(int64_t) / 2);
    ASSERT_FALSE(run("kept = nil collectgarbage()").isError());
    const Lua::LuaContextStats after = *mRuntime->computeContextStats(id);
    EXPECT_LT(after.memoryUsedBytes, during.memoryUsedBytes);
    EXPECT_GE(after.memoryPeakBytes, during.memoryUsedBytes);

    ASSERT_FALSE(run("held = require('@test/zoo').Counter(1)").isError());
    const RuntimeStats total = mRuntime->computeRuntimeStats();
    EXPECT_EQ(total.memoryUsedBytes, mRuntime->computeContextStats(id)->memoryUsedBytes);
    EXPECT_GE(total.memoryPeakBytes, during.memoryUsedBytes);
    EXPECT_EQ(total.memoryLimitBytes, LIMIT);
    EXPECT_EQ(total.objectCount, 1u);
}

using LuaWatchdogTest = LuaEngineTest;

TEST_F(LuaWatchdogTest, InstructionBudgetStopsRunawayScripts)
{
    auto* watchdog = static_cast<Lua::LuaWatchdog*>(mRuntime->enableWatchdog(WatchdogSettings{0, 200000}));
    ASSERT_NE(watchdog, nullptr);
    context();
    for (const char* runaway :
         {"while true do end", "while true do pcall(function() while true do end end) end",
          "coroutine.wrap(function() while true do end end)()", "local function f() return f() end f()"})
    {
        const ResultAny result = run(runaway);
        ASSERT_TRUE(result.isError()) << runaway;
        EXPECT_EQ(errorText(result), "Script stopped by the watchdog: more than 200000 instructions") << runaway;
        EXPECT_EQ(integer(run("local s = 0 for i = 1, 1000 do s = s + i end return s")), 500500)
            << "the context is usable after " << runaway;
    }
    EXPECT_EQ(watchdog->getTripCount(), 4u);
}

TEST_F(LuaWatchdogTest, TimeBudgetStopsRunawayScripts)
{
    mRuntime->enableWatchdog(WatchdogSettings{50, 0});
    const auto start = std::chrono::steady_clock::now();
    const ResultAny result = run("while true do end");
    EXPECT_EQ(errorText(result), "Script stopped by the watchdog: ran longer than 50 ms");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(LuaWatchdogTest, BudgetIsPerRunAndCanBeLifted)
{
    context();
    mRuntime->enableWatchdog(WatchdogSettings{0, 100000});
    const char* work = "local s = 0 for i = 1, 20000 do s = s + i end return s";
    for (int round = 0; round < 20; ++round)
    {
        ASSERT_FALSE(run(work).isError()) << "round " << round << " spent the budget of an earlier run";
    }
    EXPECT_TRUE(run("for i = 1, 1e6 do end").isError());
    mRuntime->disableWatchdog();
    EXPECT_EQ(mRuntime->getWatchdog(), nullptr);
    EXPECT_FALSE(run("for i = 1, 1e6 do end").isError());
}

TEST_F(LuaSandboxTest, FullSetOfContextsLivesAtOnce)
{
    std::vector<ScriptContext> contexts;
    for (int index = 0; index < 255; ++index)
    {
        std::optional<ScriptContext> made = makeContext();
        ASSERT_TRUE(made.has_value()) << "context " << index;
        StringPayload payload("held = require('@test/zoo').Counter(" + std::to_string(index) + ") return held.value",
                              "many.lua");
        ASSERT_EQ(integer(made->run(&payload)), index);
        contexts.push_back(std::move(*made));
    }
    EXPECT_EQ(mEngine.getRegistryManager().getRegistryCount(), 255);
    const ContextConfig config("lua", "", REQUESTER);
    const ScriptContextResult refused =
        mEngine.createScriptingContext(config, REQUESTER, {zoo(Version(1, 0, 0))}, nullptr, nullptr);
    EXPECT_FALSE(refused.context.has_value());
    EXPECT_EQ(mRuntime->computeRuntimeStats().objectCount, 255u);
    for (ScriptContext& each : contexts)
    {
        StringPayload payload("return held.value", "many.lua");
        EXPECT_FALSE(each.run(&payload).isError());
    }
    const int alive = Counter::sAlive;
    contexts.clear();
    EXPECT_EQ(Counter::sAlive, alive - 255);
    EXPECT_TRUE(makeContext().has_value());
}
} // namespace
} // namespace LuaTest
