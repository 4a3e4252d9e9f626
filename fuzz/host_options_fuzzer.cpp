// The test host's command line: any argument list either fails with one error or gives options that keep the
// rules options must keep, and those options, written back as a command line, read back the same.
#include "FuzzSupport.h"

#include "TestHost/Options.h"

#include <fmt/format.h>

#include <string>
#include <tuple>
#include <vector>

namespace
{
using namespace Ovelith::TestHost;

// The options as one command line in the long '=' form, the module after "--".
std::vector<std::string> render(const HostOptions& options)
{
    std::vector<std::string> arguments;
    for (const std::string& tag : options.selection.includeTags)
    {
        arguments.push_back("--tag=" + tag);
    }
    for (const std::string& tag : options.selection.excludeTags)
    {
        arguments.push_back("--exclude-tag=" + tag);
    }
    if (options.selection.filter)
    {
        arguments.push_back("--filter=" + *options.selection.filter);
    }
    if (!options.junitPath.empty())
    {
        arguments.push_back("--junit=" + options.junitPath);
    }
    constexpr const char* COLORS[] = {"auto", "always", "never"};
    arguments.push_back(fmt::format("--color={}", COLORS[static_cast<int>(options.color)]));
    const std::pair<bool, const char*> flags[] = {{options.list, "--list"},
                                                  {options.failFast, "--fail-fast"},
                                                  {options.help, "--help"},
                                                  {options.isolate, "--isolate"},
                                                  {options.shuffle, "--shuffle"}};
    for (const auto& [set, name] : flags)
    {
        if (set)
        {
            arguments.emplace_back(name);
        }
    }
    arguments.push_back(fmt::format("--jobs={}", options.jobs));
    arguments.push_back(fmt::format("--repeat={}", options.repeat));
    if (options.timeoutSeconds > 0)
    {
        // The shortest text that reads back as the same double.
        arguments.push_back(fmt::format("--timeout={}", options.timeoutSeconds));
    }
    if (options.seed)
    {
        arguments.push_back(fmt::format("--seed={}", *options.seed));
    }
    if (options.shardCount)
    {
        arguments.push_back(fmt::format("--shard-count={}", *options.shardCount));
        arguments.push_back(fmt::format("--shard-index={}", *options.shardIndex));
    }
    if (!options.modulePath.empty())
    {
        arguments.emplace_back("--");
        arguments.push_back(options.modulePath);
    }
    return arguments;
}

auto fields(const HostOptions& options)
{
    return std::tie(options.modulePath, options.selection.includeTags, options.selection.excludeTags,
                    options.selection.filter, options.list, options.failFast, options.help, options.junitPath,
                    options.color, options.isolate, options.jobs, options.timeoutSeconds, options.shuffle, options.seed,
                    options.repeat, options.shardCount, options.shardIndex);
}

ParsedArguments parse(const std::vector<std::string>& arguments)
{
    const std::vector<std::string_view> views(arguments.begin(), arguments.end());
    return parseArguments(views);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Arguments are separated by NUL bytes, which no real argument holds.
    Fuzz::Input input(data, size);
    std::vector<std::string> arguments;
    while (!input.exhausted() && arguments.size() < 64)
    {
        arguments.emplace_back(input.until('\0'));
    }

    const ParsedArguments parsed = parse(arguments);
    if (!parsed.error.empty())
    {
        return 0;
    }
    const HostOptions& options = parsed.options;
    FUZZ_CHECK(options.jobs >= 1 && options.repeat >= 1);
    FUZZ_CHECK(options.timeoutSeconds == 0 || (options.timeoutSeconds > 0 && options.timeoutSeconds <= 86400));
    FUZZ_CHECK(!options.seed || options.shuffle);
    FUZZ_CHECK(options.shardCount.has_value() == options.shardIndex.has_value());
    FUZZ_CHECK(!options.shardCount || *options.shardIndex < *options.shardCount);

    const ParsedArguments again = parse(render(options));
    FUZZ_CHECK(again.error.empty());
    FUZZ_CHECK(fields(again.options) == fields(options));
    return 0;
}
