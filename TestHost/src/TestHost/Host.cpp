#include "TestHost/Host.h"

#include "Diagnostics/TerminalText.h"
#include "TestHost/ConsoleReporter.h"
#include "TestHost/CrashGuard.h"
#include "TestHost/GeneratedCases.h"
#include "TestHost/InProcessExecutor.h"
#include "TestHost/JUnitReporter.h"
#include "TestHost/JsonReporter.h"
#include "TestHost/Listing.h"
#include "TestHost/ModuleLoader.h"
#include "TestHost/Options.h"
#include "TestHost/PlanOrder.h"
#include "TestHost/WorkerExecutor.h"
#include "ZentaryUnitTest/TestModule.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <fstream>
#include <ostream>
#include <random>

#ifndef TESTHOST_VERSION
#define TESTHOST_VERSION "unknown"
#endif

namespace Ovelith::TestHost
{
namespace
{
using Clock = std::chrono::steady_clock;

// A message may quote the module (a load error, an exception's text), and so hold its colour markup.
int fail(std::ostream& err, const HostEnvironment& environment, bool colour, const std::string& message)
{
    err << environment.program << ": error: " << Diagnostics::renderForTerminal(message, colour) << '\n' << std::flush;
    return EXIT_BAD_INPUT;
}

// The module the command line names, else the one TESTHOST_MODULE names, else the project's beside the host.
std::optional<std::filesystem::path> findModule(const HostOptions& options, const HostEnvironment& environment,
                                                std::string& error)
{
    if (!options.modulePath.empty())
    {
        return options.modulePath;
    }
    if (const char* named = environment.variable("TESTHOST_MODULE"); named != nullptr && named[0] != '\0')
    {
        return std::filesystem::path(named);
    }
    const std::filesystem::path beside = defaultModulePath(environment.executable);
    std::error_code ignored;
    if (std::filesystem::is_regular_file(beside, ignored))
    {
        return beside;
    }
    error = fmt::format("no test module given, and none at {}; name one, or set TESTHOST_MODULE", beside.string());
    return std::nullopt;
}

// Tells a runner that sets GTEST_SHARD_STATUS_FILE that this program shards, as GoogleTest does: by creating
// the file.
std::optional<std::string> touchShardStatusFile(const HostEnvironment& environment)
{
    const char* path = environment.variable("GTEST_SHARD_STATUS_FILE");
    if (path == nullptr || path[0] == '\0')
    {
        return std::nullopt;
    }
    std::ofstream file(path, std::ios::app);
    if (!file)
    {
        return fmt::format("cannot create GTEST_SHARD_STATUS_FILE {}", path);
    }
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

bool wantsColor(ColorMode mode, bool byDefault)
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
    return byDefault;
}
} // namespace

const char* HostEnvironment::variable(std::string_view name) const
{
    const auto it = variables.find(name);
    return it == variables.end() ? nullptr : it->second.c_str();
}

int runHost(const std::vector<std::string_view>& arguments, const HostEnvironment& environment, std::ostream& out,
            std::ostream& err)
{
    ParsedArguments parsed = parseArguments(arguments);
    if (!parsed.error.empty())
    {
        return fail(err, environment, environment.errorColorByDefault, parsed.error + " (see --help)");
    }
    HostOptions& options = parsed.options;
    const bool errorColour = wantsColor(options.color, environment.errorColorByDefault);
    if (options.help)
    {
        out << usageText(environment.program) << std::flush;
        return EXIT_ALL_PASSED;
    }
    if (options.version)
    {
        out << environment.program << ' ' << TESTHOST_VERSION << '\n' << std::flush;
        return EXIT_ALL_PASSED;
    }
    if (std::optional<std::string> error = applyShardEnvironment(options, environment.variable("GTEST_TOTAL_SHARDS"),
                                                                 environment.variable("GTEST_SHARD_INDEX")))
    {
        return fail(err, environment, errorColour, *error);
    }
    if (std::optional<std::string> error = touchShardStatusFile(environment))
    {
        return fail(err, environment, errorColour, *error);
    }

    std::string notFound;
    const std::optional<std::filesystem::path> modulePath = findModule(options, environment, notFound);
    if (!modulePath)
    {
        return fail(err, environment, errorColour, notFound);
    }
    LoadedModule::LoadResult loaded = LoadedModule::load(*modulePath);
    if (!loaded.module)
    {
        return fail(err, environment, errorColour, loaded.error);
    }
    CoreTestFramework::TestModule& module = loaded.module->module();

    GeneratedCasesResult generated = generateCases(module);
    if (generated.error)
    {
        return fail(err, environment, errorColour, *generated.error);
    }
    TestPlan selected{modulePath->stem().string(), modulePath->string(),
                      selectCases(module.getTestClasses(), options.selection, generated.cases)};
    if (selected.classes.empty())
    {
        if (module.getTestClasses().empty())
        {
            return fail(err, environment, errorColour, fmt::format("{} holds no test cases", selected.modulePath));
        }
        return fail(err, environment, errorColour,
                    fmt::format("{} selects no case of {}", describeSelection(options.selection), selected.modulePath));
    }
    // A shard may well be empty; that is no error, since the other shards run the selection.
    if (options.shardCount)
    {
        selected.classes = shardCases(std::move(selected.classes), *options.shardCount, *options.shardIndex);
    }
    std::optional<uint64_t> seed;
    if (options.shuffle)
    {
        seed = options.seed ? *options.seed : std::random_device{}();
        out << fmt::format("Shuffled with seed {}; --shuffle --seed {} replays this order\n", *seed, *seed);
    }
    // Round r of a shuffled run is shuffled with seed + r. A fixed number of rounds is one plan, so that workers
    // go on from round to round; rounds until a failure are planned one at a time.
    selected.rounds = options.repeatUntilFail ? 0 : options.repeat;
    const auto roundPlan = [&](size_t round)
    {
        TestPlan plan = selected;
        if (seed)
        {
            shuffleClasses(plan.classes, *seed + round);
        }
        for (PlannedClass& testClass : plan.classes)
        {
            testClass.round = round;
        }
        return plan;
    };
    TestPlan plan = roundPlan(0);
    if (options.repeat > 1 && !options.repeatUntilFail)
    {
        plan.classes = repeatClasses(selected.classes, options.repeat, seed);
    }
    if (options.list)
    {
        if (options.listFormat == ListFormat::Json)
        {
            writeJsonListing(plan, out);
        }
        else
        {
            writeListing(plan, out);
        }
        return EXIT_ALL_PASSED;
    }

    JUnitReporter junit;
    JsonReporter json;
    std::vector<FileReporter*> reports;
    for (const auto& [path, report] : {std::pair<const std::string&, FileReporter*>{options.junitPath, &junit},
                                       std::pair<const std::string&, FileReporter*>{options.jsonPath, &json}})
    {
        if (path.empty())
        {
            continue;
        }
        if (std::optional<std::string> error = report->open(path))
        {
            return fail(err, environment, errorColour, *error);
        }
        reports.push_back(report);
    }

    OutcomeCounter counter;
    ConsoleReporter console(
        out, ConsoleSettings{wantsColor(options.color, environment.colorByDefault), environment.outputIsTerminal,
                             !options.usesWorkers() || options.verbose, options.brief, options.durations});
    RunListenerList listeners;
    listeners.add(counter);
    listeners.add(console);
    for (FileReporter* report : reports)
    {
        listeners.add(*report);
    }

    std::unique_ptr<IExecutor> executor;
    std::optional<CrashGuard> guard;
    if (options.usesWorkers())
    {
        executor = std::make_unique<WorkerExecutor>(module, WorkerSettings{options.jobs, options.timeoutSeconds});
    }
    else
    {
        executor = std::make_unique<InProcessExecutor>(module);
        guard.emplace(reports, environment.program, environment.errorDescriptor);
        listeners.add(*guard);
    }
    const ExecutionSettings settings{options.failureLimit()};
    listeners.onRunStarted(plan);
    const Clock::time_point start = Clock::now();
    std::optional<std::string> executionError = executor->execute(plan, settings, listeners);
    for (size_t round = 1; options.repeatUntilFail && !executionError && counter.summary().failed == 0; ++round)
    {
        const TestPlan next = roundPlan(round);
        executionError = executor->execute(next, settings, listeners);
    }
    RunSummary summary = counter.summary();
    summary.duration = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
    listeners.onRunFinished(summary);
    if (guard)
    {
        guard->disarm();
    }

    for (FileReporter* report : reports)
    {
        if (std::optional<std::string> error = report->commit())
        {
            return fail(err, environment, errorColour, *error);
        }
    }
    if (executionError)
    {
        return fail(err, environment, errorColour, *executionError);
    }
    return summary.failed == 0 ? EXIT_ALL_PASSED : EXIT_CASE_FAILED;
}
} // namespace Ovelith::TestHost
