#include "TestHost/Options.h"

#include <fmt/format.h>

#include <optional>

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
    {"--help", OptionKind::Flag},      {"-h", OptionKind::Flag},       {"--list", OptionKind::Flag},
    {"--fail-fast", OptionKind::Flag}, {"--tag", OptionKind::Value},   {"--exclude-tag", OptionKind::Value},
    {"--filter", OptionKind::Value},   {"--junit", OptionKind::Value}, {"--color", OptionKind::Value},
};

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
    else if (name == "--list")
    {
        options.list = true;
    }
    else if (name == "--fail-fast")
    {
        options.failFast = true;
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
        options.selection.filter = std::string(value);
    }
    else if (name == "--junit")
    {
        if (!options.junitPath.empty())
        {
            return std::string("--junit given twice");
        }
        options.junitPath = std::string(value);
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
    return std::nullopt;
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

        const size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
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
    return parsed;
}

std::string usageText(std::string_view program)
{
    return fmt::format(R"(Usage: {} [options] [MODULE]

Runs the cases of a test module, a shared library exporting getTestModule2. Without MODULE, runs the
project's ScriptingTests module found beside this program.

Selection (a case's tags are its own plus its class's; a class's name is one of its tags):
  --tag TAG           run cases holding TAG; repeatable, any one suffices; "all" selects every case
  --exclude-tag TAG   never run cases holding TAG; repeatable
  --filter PATTERN    run cases whose Class.Case name matches, GoogleTest style: globs with * and ?,
                      separated by ':', then optionally '-' and globs to leave out ('Version*.*-*.Less*')
  Without --tag or --filter, every case runs except those of classes tagged suite:perf.

Running and reporting:
  --list              print the selected classes and cases with their tags and places; run nothing
  --fail-fast         stop at the first failed case; the rest count as skipped
  --junit FILE        also write a JUnit XML report to FILE
  --color WHEN        auto (default: when the output is a terminal and NO_COLOR is not set), always, never
  -h, --help          print this text

Exit codes: 0 every selected case passed, 1 a case failed, 2 bad command line or module.
)",
                       program);
}
} // namespace Ovelith::TestHost
