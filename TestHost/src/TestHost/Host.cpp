#include "TestHost/Host.h"

#include "TestHost/ConsoleReporter.h"
#include "TestHost/GeneratedCases.h"
#include "TestHost/InProcessExecutor.h"
#include "TestHost/JUnitReporter.h"
#include "TestHost/ModuleLoader.h"
#include "TestHost/Options.h"
#include "TestHost/PlanOrder.h"
#include "TestHost/WorkerExecutor.h"
#include "ZentaryUnitTest/TestModule.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <ostream>
#include <random>

namespace Ovelith::TestHost
{
namespace
{
using Clock = std::chrono::steady_clock;

int fail(std::ostream& err, const HostEnvironment& environment, const std::string& message)
{
    err << environment.program << ": error: " << message << '\n' << std::flush;
    return EXIT_BAD_INPUT;
}

std::optional<std::filesystem::path> findDefaultModule(const HostEnvironment& environment, std::string& tried)
{
    const std::vector<std::filesystem::path> candidates =
        defaultModuleCandidates(environment.builtModule, environment.executable);
    for (const std::filesystem::path& candidate : candidates)
    {
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error))
        {
            return candidate;
        }
    }
    std::vector<std::string> paths;
    for (const std::filesystem::path& candidate : candidates)
    {
        paths.push_back(candidate.string());
    }
    tried = fmt::format("{}", fmt::join(paths, ", "));
    return std::nullopt;
}

std::string describeSelection(const Selection& selection)
{
    std::vector<std::string> parts;
    for (const std::string& tag : selection.includeTags)
    {
        parts.push_back("--tag " + tag);
    }
    for (const std::string& tag : selection.excludeTags)
    {
        parts.push_back("--exclude-tag " + tag);
    }
    if (selection.filter)
    {
        parts.push_back("--filter '" + *selection.filter + "'");
    }
    if (parts.empty())
    {
        return "the default selection (every class not tagged suite:perf)";
    }
    return fmt::format("{}", fmt::join(parts, " "));
}

bool wantsColor(ColorMode mode, const HostEnvironment& environment)
{
    switch (mode)
    {
    case ColorMode::Always:
        return true;
    case ColorMode::Never:
        return false;
    case ColorMode::Auto:
        break;
    }
    return environment.colorByDefault;
}
} // namespace

int runHost(const std::vector<std::string_view>& arguments, const HostEnvironment& environment, std::ostream& out,
            std::ostream& err)
{
    const ParsedArguments parsed = parseArguments(arguments);
    if (!parsed.error.empty())
    {
        return fail(err, environment, parsed.error + " (see --help)");
    }
    const HostOptions& options = parsed.options;
    if (options.help)
    {
        out << usageText(environment.program) << std::flush;
        return EXIT_ALL_PASSED;
    }

    std::filesystem::path modulePath = options.modulePath;
    if (modulePath.empty())
    {
        std::string tried;
        const std::optional<std::filesystem::path> found = findDefaultModule(environment, tried);
        if (!found)
        {
            return fail(err, environment, "no test module given, and none found at " + tried);
        }
        modulePath = *found;
    }
    LoadedModule::LoadResult loaded = LoadedModule::load(modulePath);
    if (!loaded.module)
    {
        return fail(err, environment, loaded.error);
    }
    CoreTestFramework::TestModule& module = loaded.module->module();

    GeneratedCasesResult generated = generateCases(module);
    if (generated.error)
    {
        return fail(err, environment, *generated.error);
    }
    TestPlan plan{modulePath.stem().string(), modulePath.string(),
                  selectCases(module.getTestClasses(), options.selection, generated.cases)};
    if (plan.classes.empty())
    {
        if (module.getTestClasses().empty())
        {
            return fail(err, environment, fmt::format("{} holds no test cases", plan.modulePath));
        }
        return fail(err, environment,
                    fmt::format("{} selects no case of {}", describeSelection(options.selection), plan.modulePath));
    }
    // A shard may well be empty; that is no error, since the other shards run the selection.
    if (options.shardCount)
    {
        plan.classes = shardClasses(std::move(plan.classes), *options.shardCount, *options.shardIndex);
    }
    std::optional<uint64_t> seed;
    if (options.shuffle)
    {
        seed = options.seed ? *options.seed : std::random_device{}();
        out << fmt::format("Shuffled with seed {}; --shuffle --seed {} replays this order\n", *seed, *seed);
    }
    if (options.repeat > 1 || seed)
    {
        plan.classes = repeatClasses(plan.classes, options.repeat, seed);
    }
    if (options.list)
    {
        writeListing(plan, out);
        return EXIT_ALL_PASSED;
    }

    // Opened before the run, so that a report that cannot be written costs no run.
    std::ofstream junitFile;
    if (!options.junitPath.empty())
    {
        junitFile.open(options.junitPath, std::ios::out | std::ios::trunc);
        if (!junitFile)
        {
            return fail(err, environment,
                        fmt::format("cannot write the JUnit report {}: {}", options.junitPath, std::strerror(errno)));
        }
    }

    OutcomeCounter counter;
    ConsoleReporter console(out, wantsColor(options.color, environment));
    JUnitReporter junit;
    RunListenerList listeners;
    listeners.add(counter);
    listeners.add(console);
    if (junitFile.is_open())
    {
        listeners.add(junit);
    }

    std::unique_ptr<IExecutor> executor;
    if (options.usesWorkers())
    {
        executor = std::make_unique<WorkerExecutor>(module, WorkerSettings{options.jobs, options.timeoutSeconds});
    }
    else
    {
        executor = std::make_unique<InProcessExecutor>(module);
    }
    listeners.onRunStarted(plan);
    const Clock::time_point start = Clock::now();
    const std::optional<std::string> executionError = executor->execute(plan, {options.failFast}, listeners);
    RunSummary summary = counter.summary();
    summary.duration = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
    listeners.onRunFinished(summary);

    if (junitFile.is_open())
    {
        junit.write(junitFile);
        junitFile.close();
        if (!junitFile)
        {
            return fail(err, environment, fmt::format("cannot write the JUnit report {}", options.junitPath));
        }
    }
    if (executionError)
    {
        return fail(err, environment, *executionError);
    }
    return summary.failed == 0 ? EXIT_ALL_PASSED : EXIT_CASE_FAILED;
}
} // namespace Ovelith::TestHost
