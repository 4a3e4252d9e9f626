// Runs every hostile script of corpus/ in a fresh context, each in a child process that the parent kills if it
// outlives its guard, so that a script that hangs or crashes the runtime fails its own test and no other.
#include "ChildGuard.h"
#include "CorpusNames.h"
#include "CorpusScript.h"
#include "GameModule.h"
#include "ZooModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

using namespace Scripting;

namespace LuaTest::Corpus
{
namespace
{
constexpr size_t MEMORY_LIMIT = 32u * 1024u * 1024u;
constexpr uint32_t TIME_BUDGET_MS = 100;
// What a context may keep after a script and a full collection: interned strings, grown tables of the
// runtime, the error value of the last run.
constexpr uint64_t MEMORY_MARGIN = 256u * 1024u;
// The limit may be passed by one native result on its way into Lua; the modules' results are small.
constexpr uint64_t RESULT_MARGIN = 64u * 1024u;

// How far past the budget a run may end. The watchdog looks at the clock between instructions, so a stop comes
// a little late; a loaded machine or a sanitizer build adds more. LUA_CORPUS_SLACK_MS overrides it.
std::chrono::milliseconds stopSlack()
{
    const char* text = std::getenv("LUA_CORPUS_SLACK_MS");
    return std::chrono::milliseconds(text != nullptr ? std::atoi(text) : 400);
}

// With LUA_CORPUS_LATENCY_FILE set, each run the watchdog stopped appends "<script> <milliseconds>" there, so
// that the stop latency of a whole corpus run can be read off (each script runs in a process of its own).
void noteStop(const std::string& script, std::chrono::steady_clock::duration elapsed)
{
    const char* path = std::getenv("LUA_CORPUS_LATENCY_FILE");
    if (path != nullptr)
    {
        std::ofstream(path, std::ios::app)
            << fmt::format("{} {:.1f}\n", script, std::chrono::duration<double, std::milli>(elapsed).count());
    }
}

const ModuleDescriptor REQUESTER{"corpus", quv::UUID{0x7c0a9a5e11aa22bbull, 0x33cc44dd55ee66ffull}, Version(1, 0, 0),
                                 false};

std::string valueText(const ResultAny& result)
{
    const entt::meta_any& any = result.any();
    if (!any)
    {
        return "nil";
    }
    if (const auto* integer = any.try_cast<const int64_t>())
    {
        return std::to_string(*integer);
    }
    if (const auto* number = any.try_cast<const double>())
    {
        return fmt::format("{}", *number);
    }
    if (const auto* boolean = any.try_cast<const bool>())
    {
        return *boolean ? "true" : "false";
    }
    if (const auto* text = any.try_cast<const std::string>())
    {
        return "\"" + *text + "\"";
    }
    return fmt::format("<{}>", any.type().info().name());
}

// Reports quote values and messages that a script may have made megabytes long.
std::string shortened(std::string text)
{
    constexpr size_t MOST = 300;
    if (text.size() > MOST)
    {
        text = fmt::format("{}... ({} bytes)", text.substr(0, MOST), text.size());
    }
    return text;
}

std::string errorMessage(const ResultAny& result)
{
    const Error* error = result.tryGetError();
    return error != nullptr ? shortened(error->name + ": " + error->message) : "no error";
}

// Appends to `report` what differs from the expectation.
void checkOutcome(const ResultAny& result, const Expectation& expectation, size_t runIndex, std::string& report)
{
    const Error* error = result.tryGetError();
    if (expectation.either)
    {
        return;
    }
    if (expectation.fails)
    {
        if (error == nullptr)
        {
            report +=
                fmt::format("run {}: expected an error, got the value {}\n", runIndex, shortened(valueText(result)));
        }
        else if (!expectation.messageParts.empty() &&
                 std::none_of(expectation.messageParts.begin(), expectation.messageParts.end(),
                              [error](const std::string& part)
                              { return error->message.find(part) != std::string::npos; }))
        {
            report += fmt::format("run {}: expected an error holding \"{}\", got {}\n", runIndex,
                                  fmt::join(expectation.messageParts, "\" or \""), errorMessage(result));
        }
        return;
    }
    if (error != nullptr)
    {
        report += fmt::format("run {}: expected a value, got {}\n", runIndex, errorMessage(result));
    }
    else if (expectation.value && valueText(result) != *expectation.value)
    {
        report +=
            fmt::format("run {}: expected {}, got {}\n", runIndex, *expectation.value, shortened(valueText(result)));
    }
}

// The whole check of one script; returns what went wrong, empty when nothing did.
std::string checkScript(const Script& script)
{
    std::string report;
    const int entitiesBefore = Game::Entity::sAlive;
    const int countersBefore = Counter::sAlive;
    {
        ScriptEngine engine;
        Lua::LuaRuntimeSettings settings;
        settings.memoryLimitBytes = MEMORY_LIMIT;
        settings.printHandler = [](ContextId, std::string_view) {};
        auto runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager(), std::move(settings));
        const WatchdogSettings budget{TIME_BUDGET_MS, 0};
        if (!script.lateWatchdog)
        {
            runtime->enableWatchdog(budget);
        }
        engine.setRuntimeFactory([runtime](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                 { return runtime; });
        engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        engine.addModuleBindingFactory(Game::makeGameModuleFactory());
        engine.addModuleBindingFactory(makeZooFactory());
        const ModuleDescriptor game{Game::MODULE_NAME, Game::MODULE_UUID, Version(1, 1, 0), false};
        const ModuleDescriptor zoo{MODULE_NAME, MODULE_UUID, Version(2, 0, 0), false};
        ScriptContextResult created = engine.createScriptingContext(
            ContextConfig("lua", "", REQUESTER, true, {}, VersionSelection::HighestSatisfying), REQUESTER, {game, zoo},
            nullptr, nullptr);
        if (!created.context)
        {
            return "no context: " + created.getErrorText();
        }
        ScriptContext& context = *created.context;
        const auto run = [&context](const std::string& source, const std::string& name)
        {
            StringPayload payload(source, name);
            return context.run(&payload);
        };
        const auto memoryUsed = [&runtime, &context]
        { return runtime->computeContextStats(context.getContextId())->memoryUsedBytes; };

        // Module tables are cached on first require; they belong to the baseline, not to the script.
        const ResultAny warm = run("require('@example/game') require('@test/zoo')", "warm.lua");
        if (warm.isError())
        {
            return "the modules do not load: " + errorMessage(warm);
        }
        runtime->collectGarbage(context.getContextId());
        const uint64_t baseline = memoryUsed();

        for (size_t index = 0; index < script.runs.size(); ++index)
        {
            const bool last = index + 1 == script.runs.size();
            if (script.lateWatchdog && last)
            {
                runtime->enableWatchdog(budget);
            }
            const auto start = std::chrono::steady_clock::now();
            const ResultAny result = run(script.runs[index].source, script.name);
            const auto elapsed = std::chrono::steady_clock::now() - start;
            checkOutcome(result, script.runs[index].expectation, index + 1, report);
            if (const Error* error = result.tryGetError(); error != nullptr && error->name == "WatchdogError")
            {
                noteStop(script.name, elapsed);
            }
            if (runtime->getWatchdog() != nullptr && elapsed > std::chrono::milliseconds(TIME_BUDGET_MS) + stopSlack())
            {
                report +=
                    fmt::format("run {}: took {} ms under a budget of {} ms\n", index + 1,
                                std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), TIME_BUDGET_MS);
            }
        }

        const ResultAny probe = run("return 40 + 2", "probe.lua");
        if (valueText(probe) != "42")
        {
            report += fmt::format("afterwards `return 40 + 2` gives {}\n",
                                  probe.isError() ? errorMessage(probe) : shortened(valueText(probe)));
        }
        // Through the runtime: the script may have taken collectgarbage away from itself. Lua hands back the
        // call records of a deep recursion half at a time, one collection after another, so collect until the
        // figure stops falling.
        uint64_t previous = UINT64_MAX;
        for (int round = 0; round < 16 && memoryUsed() < previous; ++round)
        {
            previous = memoryUsed();
            if (!runtime->collectGarbage(context.getContextId()))
            {
                report += "afterwards the context cannot collect\n";
                break;
            }
        }
        const Lua::LuaContextStats stats = *runtime->computeContextStats(context.getContextId());
        if (stats.memoryUsedBytes > baseline + MEMORY_MARGIN)
        {
            report += fmt::format("after collection the context holds {} bytes, {} before the script\n",
                                  stats.memoryUsedBytes, baseline);
        }
        if (stats.memoryPeakBytes > MEMORY_LIMIT + RESULT_MARGIN)
        {
            report +=
                fmt::format("memory peaked at {} bytes over a limit of {}\n", stats.memoryPeakBytes, MEMORY_LIMIT);
        }
        sRemembered.reset();
    }
    if (Game::Entity::sAlive != entitiesBefore || Counter::sAlive != countersBefore)
    {
        report += fmt::format("after the context closed {} entities and {} counters are left\n",
                              Game::Entity::sAlive - entitiesBefore, Counter::sAlive - countersBefore);
    }
    return report;
}

std::filesystem::path corpusDirectory()
{
    return std::filesystem::path(LUA_CORPUS_DIR);
}

std::vector<std::string> scriptNames()
{
    return std::vector<std::string>(std::begin(LUA_CORPUS_NAMES), std::end(LUA_CORPUS_NAMES));
}

class LuaCorpusTest : public ::testing::TestWithParam<std::string>
{
};

TEST_P(LuaCorpusTest, EndsAsExpectedAndLeavesTheContextWhole)
{
    const std::filesystem::path path = corpusDirectory() / (GetParam() + ".lua");
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << path;
    std::stringstream text;
    text << file.rdbuf();
    const Parsed parsed = parseScript(GetParam() + ".lua", text.str());
    ASSERT_TRUE(parsed.script.has_value()) << parsed.problem;
    const std::string report = runGuarded([&parsed] { return checkScript(*parsed.script); });
    EXPECT_EQ(report, "") << path;
}

// File names are test names: letters, digits and underscores.
std::string testName(const ::testing::TestParamInfo<std::string>& info)
{
    std::string name = info.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Corpus, LuaCorpusTest, ::testing::ValuesIn(scriptNames()), testName);

// The tests are the scripts CMake saw; a build that missed a script added since would skip it silently.
TEST(LuaCorpusSize, HoldsAHundredScriptsAndEveryOneIsATest)
{
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(corpusDirectory()))
    {
        if (entry.path().extension() == ".lua")
        {
            found.push_back(entry.path().stem().string());
        }
    }
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, scriptNames()) << "reconfigure the build to pick up the scripts of " << corpusDirectory();
    EXPECT_GE(found.size(), 100u);
}

// The guard itself: a child that hangs, one that crashes and one that reports must each be told apart.
TEST(LuaCorpusGuard, TellsHangsCrashesAndReportsApart)
{
    EXPECT_EQ(runGuarded([] { return std::string(); }), "");
    EXPECT_EQ(runGuarded([] { return std::string("wrong\n"); }), "wrong\n");
    EXPECT_TRUE(runGuarded(
                    []
                    {
                        signal(SIGSEGV, SIG_DFL);
                        raise(SIGSEGV);
                        return std::string();
                    })
                    .starts_with("the child died of signal"));
    EXPECT_TRUE(runGuarded(
                    []
                    {
                        for (;;)
                        {
                            pause();
                        }
                        return std::string();
                    },
                    std::chrono::milliseconds(300))
                    .starts_with("still running after 300 ms"));
}

struct HeaderCase
{
    const char* text;
    const char* problemPart; // empty: the header is valid
};

TEST(LuaCorpusHeader, ReadsTheGrammarAndRejectsWhatIsNotInIt)
{
    for (const HeaderCase& each : {
             HeaderCase{"-- expect: ok\nreturn 1\n", ""},
             HeaderCase{"-- expect: ok 42\n", ""},
             HeaderCase{"-- expect: ok -7\n", ""},
             HeaderCase{"-- expect: ok \"a b\"\n", ""},
             HeaderCase{"-- expect: error any\n", ""},
             HeaderCase{"-- expect: error \"watchdog\"\n", ""},
             HeaderCase{"-- expect: error \"a\" or \"b c\" or \"d\"\n", ""},
             HeaderCase{"-- expect: error \"a\" \"b\"\n", "joined by 'or'"},
             HeaderCase{"-- expect: error \"a\" or\n", "joined by 'or'"},
             HeaderCase{"-- expect: error \"a\n", "joined by 'or'"},
             HeaderCase{"-- watchdog: late\n-- expect: ok\n--- next run ---\n-- expect: error any\n", ""},
             HeaderCase{"return 1\n", "has no expect line"},
             HeaderCase{"-- expect: ok\n--- next run ---\nreturn 1\n", "run 2 has no expect line"},
             HeaderCase{"-- expect: ok 4x\n", "is not an integer"},
             HeaderCase{"-- expect: error watchdog\n", "after 'error'"},
             HeaderCase{"-- expect: error \"\"\n", "after 'error'"},
             HeaderCase{"-- expect: any\n", ""},
             HeaderCase{"-- expect: fine\n", "not 'any'"},
             HeaderCase{"-- expect: ok\n-- expect: ok\n", "a second expect"},
             HeaderCase{"-- watchdog: early\n-- expect: ok\n", "only watchdog directive"},
             HeaderCase{"-- watchdog: late\n-- expect: ok\n", "needs a run before the last"},
         })
    {
        const Parsed parsed = parseScript("x.lua", each.text);
        if (std::string_view(each.problemPart).empty())
        {
            EXPECT_TRUE(parsed.script.has_value()) << each.text << parsed.problem;
        }
        else
        {
            EXPECT_FALSE(parsed.script.has_value()) << each.text;
            EXPECT_NE(parsed.problem.find(each.problemPart), std::string::npos) << parsed.problem;
        }
    }
    const Parsed two = parseScript("x.lua", "-- expect: ok 1\nreturn 1\n--- next run ---\n-- expect: error \"x\"\n");
    ASSERT_TRUE(two.script.has_value());
    ASSERT_EQ(two.script->runs.size(), 2u);
    EXPECT_EQ(two.script->runs[0].expectation.value, "1");
    EXPECT_TRUE(two.script->runs[1].expectation.fails);
    EXPECT_EQ(two.script->runs[1].expectation.messageParts, std::vector<std::string>{"x"});
    const Parsed either = parseScript("x.lua", "-- expect: error \"Memory limit\" or \"watchdog\"\n");
    ASSERT_TRUE(either.script.has_value()) << either.problem;
    EXPECT_EQ(either.script->runs[0].expectation.messageParts, (std::vector<std::string>{"Memory limit", "watchdog"}));
    // The second run's lines keep their numbers in the file.
    EXPECT_EQ(std::count(two.script->runs[1].source.begin(), two.script->runs[1].source.end(), '\n'), 4);
}
} // namespace
} // namespace LuaTest::Corpus
