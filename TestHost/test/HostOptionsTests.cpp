#include "TestHost/Options.h"

#include <gtest/gtest.h>

using namespace Ovelith::TestHost;

namespace
{
ParsedArguments parse(std::initializer_list<std::string_view> arguments)
{
    return parseArguments(std::vector<std::string_view>(arguments));
}
} // namespace

TEST(HostOptionsTest, ReadsEveryOptionInEverySpelling)
{
    ParsedArguments parsed = parse({"--tag",
                                    "Unit_Test",
                                    "--tag=suite:perf",
                                    "--exclude-tag",
                                    "slow",
                                    "--exclude-tag=flaky",
                                    "--filter=A.*-A.B",
                                    "--junit",
                                    "out.xml",
                                    "--list",
                                    "--fail-fast",
                                    "--color=never",
                                    "-j4",
                                    "--timeout=0.5",
                                    "--shuffle",
                                    "--seed",
                                    "18446744073709551615",
                                    "--repeat",
                                    "3",
                                    "--shard-count=4",
                                    "--shard-index",
                                    "0",
                                    "module.so"});
    ASSERT_EQ(parsed.error, "");
    const HostOptions options = parsed.options;
    EXPECT_EQ(options.selection.includeTags, (std::vector<std::string>{"Unit_Test", "suite:perf"}));
    EXPECT_EQ(options.selection.excludeTags, (std::vector<std::string>{"slow", "flaky"}));
    EXPECT_EQ(options.selection.filter, "A.*-A.B");
    EXPECT_EQ(options.junitPath, "out.xml");
    EXPECT_TRUE(options.list && options.failFast && options.shuffle && !options.help);
    EXPECT_EQ(options.color, ColorMode::Never);
    EXPECT_EQ(options.modulePath, "module.so");
    EXPECT_EQ(options.jobs, 4u);
    EXPECT_EQ(options.timeoutSeconds, 0.5);
    EXPECT_EQ(options.seed, UINT64_MAX);
    EXPECT_EQ(options.repeat, 3u);
    EXPECT_EQ(options.shardCount, 4u);
    EXPECT_EQ(options.shardIndex, 0u);

    // Workers come with --isolate, more than one job, or a timeout, and not otherwise.
    EXPECT_FALSE(parse({"-j", "1"}).options.usesWorkers());
    EXPECT_TRUE(parse({"--isolate"}).options.usesWorkers());
    EXPECT_TRUE(parse({"--jobs=2"}).options.usesWorkers());
    EXPECT_TRUE(parse({"--timeout", "3"}).options.usesWorkers());

    // A separate value is taken as it is, even when it starts with '-': a negative-only filter.
    parsed = parse({"--filter", "-*.Slow*", "--", "-odd-name.so"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.selection.filter, "-*.Slow*");
    EXPECT_EQ(parsed.options.modulePath, "-odd-name.so");
}

TEST(HostOptionsTest, RejectsBadCommandLinesWithOneLine)
{
    struct Row
    {
        std::vector<std::string_view> arguments;
        std::string error;
    };
    const std::vector<Row> rows = {
        {{"--bogus"}, "unknown option '--bogus'"},
        {{"--bogus=1"}, "unknown option '--bogus'"},
        {{"-x"}, "unknown option '-x'"},
        {{"--tag"}, "--tag needs a value"},
        {{"--tag="}, "--tag needs a value"},
        {{"--junit"}, "--junit needs a value"},
        {{"--list=yes"}, "--list takes no value"},
        {{"--color=sometimes"}, "--color takes auto, always or never, not 'sometimes'"},
        {{"--filter", "A", "--filter=B"}, "--filter given twice; join the patterns with ':' instead"},
        {{"--junit", "a.xml", "--junit", "b.xml"}, "--junit given twice"},
        {{"a.so", "b.so"}, "one test module at a time: 'a.so' and 'b.so' were given"},
        {{"-j0"}, "-j takes a whole number of at least 1, not '0'"},
        {{"--jobs", "two"}, "--jobs takes a whole number of at least 1, not 'two'"},
        {{"--repeat=-1"}, "--repeat takes a whole number of at least 1, not '-1'"},
        {{"--timeout", "0"}, "--timeout takes seconds above 0 and up to 86400, not '0'"},
        {{"--timeout", "1s"}, "--timeout takes seconds above 0 and up to 86400, not '1s'"},
        {{"--seed", "1"}, "--seed needs --shuffle"},
        {{"--shuffle", "--seed", "99999999999999999999"}, "--seed takes a whole number, not '99999999999999999999'"},
        {{"--shard-index", "0"}, "--shard-index needs --shard-count"},
        {{"--shard-count", "2"}, "--shard-count needs --shard-index"},
        {{"--shard-count", "2", "--shard-index", "2"}, "--shard-index 2 is not below --shard-count 2"},
    };
    for (const Row& row : rows)
    {
        const ParsedArguments parsed = parseArguments(row.arguments);
        EXPECT_EQ(parsed.error, row.error) << row.arguments.front();
        EXPECT_EQ(parsed.error.find('\n'), std::string::npos);
    }
}
