#include "TestHost/Options.h"

#include "TestHost/NameFilter.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>
#include <type_traits>

namespace Ovelith::TestHost
{
namespace
{
enum class OptionKind
{
    Flag,
    Value,
};

struct OptionSpec
{
    std::string_view name;
    OptionKind kind;
};

constexpr OptionSpec OPTIONS[] = {
    {"--help", OptionKind::Flag},          {"-h", OptionKind::Flag},
    {"--version", OptionKind::Flag},       {"--list", OptionKind::Flag},
    {"--format", OptionKind::Value},       {"--fail-fast", OptionKind::Flag},
    {"--max-failures", OptionKind::Value}, {"--tag", OptionKind::Value},
    {"--exclude-tag", OptionKind::Value},  {"--filter", OptionKind::Value},
    {"--junit", OptionKind::Value},        {"--json", OptionKind::Value},
    {"--color", OptionKind::Value},        {"--verbose", OptionKind::Flag},
    {"--brief", OptionKind::Flag},         {"--durations", OptionKind::Value},
    {"--isolate", OptionKind::Flag},       {"-j", OptionKind::Value},
    {"--jobs", OptionKind::Value},         {"--timeout", OptionKind::Value},
    {"--shuffle", OptionKind::Flag},       {"--seed", OptionKind::Value},
    {"--repeat", OptionKind::Value},       {"--shard-count", OptionKind::Value},
    {"--shard-index", OptionKind::Value},  {"--module-order", OptionKind::Flag},
};

// A whole number of at least `minimum` into `target`, or an error line.
std::optional<std::string> readNumber(std::string_view name, std::string_view value, uint64_t minimum, auto& target)
{
    uint64_t number = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || stop != end || number < minimum)
    {
        return fmt::format("{} takes a whole number{}, not '{}'", name,
                           minimum > 0 ? fmt::format(" of at least {}", minimum) : std::string(), value);
    }
    target = static_cast<std::remove_cvref_t<decltype(target)>>(number);
    return std::nullopt;
}

std::optional<std::string> readSeconds(std::string_view value, double& seconds)
{
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, seconds);
    // A day is far beyond any case; the bound keeps the clock arithmetic in range.
    if (error != std::errc() || stop != end || !(seconds > 0) || seconds > 86400)
    {
        return fmt::format("--timeout takes seconds above 0 and up to 86400, not '{}'", value);
    }
    return std::nullopt;
}

const OptionSpec* findOption(std::string_view name)
{
    for (const OptionSpec& spec : OPTIONS)
    {
        if (spec.name == name)
        {
            return &spec;
        }
    }
    return nullptr;
}

// Applies one option with its value; returns an error line or nothing.
std::optional<std::string> apply(HostOptions& options, std::string_view name, std::string_view value)
{
    if (name == "--help" || name == "-h")
    {
        options.help = true;
    }
    else if (name == "--version")
    {
        options.version = true;
    }
    else if (name == "--list")
    {
        options.list = true;
    }
    else if (name == "--format")
    {
        if (value != "text" && value != "json")
        {
            return fmt::format("--format takes text or json, not '{}'", value);
        }
        options.listFormat = value == "json" ? ListFormat::Json : ListFormat::Text;
    }
    else if (name == "--fail-fast" || name == "--max-failures")
    {
        if (options.failureLimit() != 0)
        {
            return std::string("--fail-fast is --max-failures 1; give one of them, once");
        }
        if (name == "--fail-fast")
        {
            options.failFast = true;
            return std::nullopt;
        }
        return readNumber(name, value, 1, options.maxFailures);
    }
    else if (name == "--tag")
    {
        options.selection.includeTags.emplace_back(value);
    }
    else if (name == "--exclude-tag")
    {
        options.selection.excludeTags.emplace_back(value);
    }
    else if (name == "--filter")
    {
        if (options.selection.filter)
        {
            return std::string("--filter given twice; join the patterns with ':' instead");
        }
        if (!NameFilter(value).hasPatterns())
        {
            return fmt::format("--filter '{}' holds only empty patterns; give a name or glob such as 'Class.*'", value);
        }
        options.selection.filter = std::string(value);
    }
    else if (name == "--module-order")
    {
        options.selection.moduleOrder = true;
    }
    else if (name == "--junit" || name == "--json")
    {
        std::string& path = name == "--junit" ? options.junitPath : options.jsonPath;
        if (!path.empty())
        {
            return fmt::format("{} given twice", name);
        }
        path = std::string(value);
    }
    else if (name == "--verbose")
    {
        options.verbose = true;
    }
    else if (name == "--brief")
    {
        options.brief = true;
    }
    else if (name == "--durations")
    {
        return readNumber(name, value, 1, options.durations);
    }
    else if (name == "--color")
    {
        if (value == "auto")
        {
            options.color = ColorMode::Auto;
        }
        else if (value == "always")
        {
            options.color = ColorMode::Always;
        }
        else if (value == "never")
        {
            options.color = ColorMode::Never;
        }
        else
        {
            return fmt::format("--color takes auto, always or never, not '{}'", value);
        }
    }
    else if (name == "--isolate")
    {
        options.isolate = true;
    }
    else if (name == "-j" || name == "--jobs")
    {
        return readNumber(name, value, 1, options.jobs);
    }
    else if (name == "--timeout")
    {
        return readSeconds(value, options.timeoutSeconds);
    }
    else if (name == "--shuffle")
    {
        options.shuffle = true;
    }
    else if (name == "--seed")
    {
        return readNumber(name, value, 0, options.seed.emplace());
    }
    else if (name == "--repeat")
    {
        options.repeatUntilFail = value == "until-fail";
        if (options.repeatUntilFail)
        {
            return std::nullopt;
        }
        if (readNumber(name, value, 1, options.repeat))
        {
            return fmt::format("--repeat takes a whole number of at least 1 or until-fail, not '{}'", value);
        }
    }
    else if (name == "--shard-count")
    {
        return readNumber(name, value, 1, options.shardCount.emplace());
    }
    else if (name == "--shard-index")
    {
        return readNumber(name, value, 0, options.shardIndex.emplace());
    }
    return std::nullopt;
}

// What no single option can tell: options that need one another.
std::string checkCombination(const HostOptions& options)
{
    if (options.seed && !options.shuffle)
    {
        return "--seed needs --shuffle";
    }
    if (options.shardCount.has_value() != options.shardIndex.has_value())
    {
        return options.shardCount ? "--shard-count needs --shard-index" : "--shard-index needs --shard-count";
    }
    if (options.shardCount && *options.shardIndex >= *options.shardCount)
    {
        return fmt::format("--shard-index {} is not below --shard-count {}", *options.shardIndex, *options.shardCount);
    }
    if (options.listFormat != ListFormat::Text && !options.list)
    {
        return "--format applies to --list";
    }
    if (options.brief && options.verbose)
    {
        return "--brief and --verbose ask for opposite things";
    }
    if (options.selection.moduleOrder && options.shuffle)
    {
        return "--module-order and --shuffle ask for different orders";
    }
    return {};
}
} // namespace

ParsedArguments parseArguments(const std::vector<std::string_view>& arguments)
{
    ParsedArguments parsed;
    bool optionsEnded = false;
    for (size_t index = 0; index < arguments.size(); ++index)
    {
        const std::string_view argument = arguments[index];
        const bool looksLikeOption = argument.size() > 1 && argument.front() == '-';
        if (optionsEnded || !looksLikeOption)
        {
            if (!parsed.options.modulePath.empty())
            {
                parsed.error = fmt::format("one test module at a time: '{}' and '{}' were given",
                                           parsed.options.modulePath, argument);
                return parsed;
            }
            parsed.options.modulePath = std::string(argument);
            continue;
        }
        if (argument == "--")
        {
            optionsEnded = true;
            continue;
        }

        // make's -j4 as well as -j 4 and -j=4.
        const bool attachedJobs = argument.size() > 2 && argument.starts_with("-j") && argument[2] != '=';
        const size_t equals = attachedJobs ? 1 : argument.find('=');
        const std::string_view name = argument.substr(0, attachedJobs ? 2 : equals);
        const OptionSpec* spec = findOption(name);
        if (spec == nullptr)
        {
            parsed.error = fmt::format("unknown option '{}'", name);
            return parsed;
        }
        std::string_view value;
        if (spec->kind == OptionKind::Flag)
        {
            if (equals != std::string_view::npos)
            {
                parsed.error = fmt::format("{} takes no value", name);
                return parsed;
            }
        }
        else if (equals != std::string_view::npos)
        {
            value = argument.substr(equals + 1);
        }
        else if (index + 1 < arguments.size())
        {
            value = arguments[++index];
        }
        else
        {
            parsed.error = fmt::format("{} needs a value", name);
            return parsed;
        }
        if (spec->kind == OptionKind::Value && value.empty())
        {
            parsed.error = fmt::format("{} needs a value", name);
            return parsed;
        }
        if (std::optional<std::string> error = apply(parsed.options, name, value))
        {
            parsed.error = std::move(*error);
            return parsed;
        }
    }
    parsed.error = checkCombination(parsed.options);
    return parsed;
}

std::optional<std::string> applyShardEnvironment(HostOptions& options, const char* totalShards, const char* shardIndex)
{
    if (options.shardCount || (totalShards == nullptr && shardIndex == nullptr))
    {
        return std::nullopt;
    }
    if (totalShards == nullptr || shardIndex == nullptr)
    {
        return fmt::format("GTEST_SHARD_INDEX and GTEST_TOTAL_SHARDS go together; only {} is set",
                           totalShards ? "GTEST_TOTAL_SHARDS" : "GTEST_SHARD_INDEX");
    }
    size_t count = 0;
    size_t index = 0;
    if (std::optional<std::string> error = readNumber("GTEST_TOTAL_SHARDS", totalShards, 1, count))
    {
        return error;
    }
    if (std::optional<std::string> error = readNumber("GTEST_SHARD_INDEX", shardIndex, 0, index))
    {
        return error;
    }
    if (index >= count)
    {
        return fmt::format("GTEST_SHARD_INDEX {} is not below GTEST_TOTAL_SHARDS {}", index, count);
    }
    options.shardCount = count;
    options.shardIndex = index;
    return std::nullopt;
}

std::string usageText(std::string_view program)
{
    return fmt::format(R"(Usage: {} [options] [MODULE]

Runs the cases of a test module, a shared library exporting getTestModule2. Without MODULE, runs the module
the TESTHOST_MODULE environment variable names, else ScriptingTests found beside this program.

Selection (a case's tags are its own plus its class's; a class's name is one of its tags):
  --tag TAG           run cases holding TAG; repeatable, any one suffices; "all" selects every case
  --exclude-tag TAG   never run cases holding TAG; repeatable
  --filter PATTERN    run cases whose Class.Case name matches, GoogleTest style: globs with * and ?,
                      separated by ':', then optionally '-' and globs to leave out ('Version*.*-*.Less*')
  Classes tagged suite:perf are hidden: their cases run only when --tag selects them or a --filter
  pattern before the '-' matches them; a filter that only leaves cases out keeps them hidden.

Running and reporting:
  --list              print the selected classes and cases with their tags and places; run nothing
  --format FORMAT     with --list: text (default) or json (classes, cases, tags, file, line)
  --fail-fast         stop at the first failed case; the rest count as skipped
  --max-failures N    stop once N cases failed
  --junit FILE        also write a JUnit XML report to FILE
  --json FILE         also write a JSON report to FILE
  --color WHEN        auto (default: when the output is a terminal and NO_COLOR is not set), always, never
  --verbose           name each case as it starts, in worker processes too
  --brief             print only failed cases and the summary
  --durations N       after the run, list the N slowest cases
  --version           print the version
  -h, --help          print this text

Isolation (a case that crashes, exits or hangs fails alone, and the reports are still written):
  --isolate           run the cases in a worker process, one class at a time
  -j, --jobs N        run N workers at once (implies --isolate); a class's cases stay in one worker
  --timeout SECONDS   fail a case that runs longer and replace its worker (implies --isolate)

Order and repetition (classes, and the cases of each class, run in the order they were declared):
  --module-order      run them in the order the module lists them instead: newest registration first
  --shuffle           run classes, and cases within each class, in an order drawn from a seed; the seed
                      is printed first
  --seed N            the seed for --shuffle, to replay an order
  --repeat N          run the selection N times, each round under a header ("Round 2 of 3"); shuffled
                      rounds each get the next seed. Failures name their round in the summary and the
                      reports, which keep one entry per case: its last run, or its last failed one
  --repeat until-fail run the selection round after round until a round has a failed case
  --shard-count K, --shard-index I
                      run shard I (from 0) of K: case n of the ordered selection runs in shard n mod K,
                      as in GoogleTest; GTEST_TOTAL_SHARDS and GTEST_SHARD_INDEX do the same

Exit codes: 0 every selected case passed, 1 a case failed, crashed or timed out, 2 bad command line or
module.
)",
                       program);
}
} // namespace Ovelith::TestHost
