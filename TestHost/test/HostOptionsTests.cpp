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
                                    "--json=out.json",
                                    "--list",
                                    "--format",
                                    "json",
                                    "--fail-fast",
                                    "--verbose",
                                    "--durations=5",
                                    "--version",
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
    EXPECT_EQ(options.jsonPath, "out.json");
    EXPECT_EQ(options.listFormat, ListFormat::Json);
    EXPECT_TRUE(options.verbose && options.version && !options.brief && !options.repeatUntilFail);
    EXPECT_EQ(options.durations, 5u);
    EXPECT_TRUE(options.list && options.shuffle && !options.help);
    EXPECT_TRUE(options.failFast);
    EXPECT_EQ(options.failureLimit(), 1u);
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

    parsed = parse({"--max-failures", "3", "--brief", "--repeat", "until-fail"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.failureLimit(), 3u);
    EXPECT_FALSE(parsed.options.failFast);
    EXPECT_TRUE(parsed.options.brief && parsed.options.repeatUntilFail);

    // A separate value is taken as it is, even when it starts with '-': a negative-only filter.
    parsed = parse({"--filter", "-*.Slow*", "--", "-odd-name.so"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.selection.filter, "-*.Slow*");
    EXPECT_EQ(parsed.options.modulePath, "-odd-name.so");

    EXPECT_FALSE(parse({}).options.selection.moduleOrder);
    EXPECT_TRUE(parse({"--module-order"}).options.selection.moduleOrder);
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
        {{"--json", "a", "--json=b"}, "--json given twice"},
        {{"--fail-fast", "--max-failures", "2"}, "--fail-fast is --max-failures 1; give one of them, once"},
        {{"--max-failures=0"}, "--max-failures takes a whole number of at least 1, not '0'"},
        {{"--durations", "x"}, "--durations takes a whole number of at least 1, not 'x'"},
        {{"--repeat", "until-pass"}, "--repeat takes a whole number of at least 1 or until-fail, not 'until-pass'"},
        {{"--list", "--format", "xml"}, "--format takes text or json, not 'xml'"},
        {{"--format", "json"}, "--format applies to --list"},
        {{"--brief", "--verbose"}, "--brief and --verbose ask for opposite things"},
        {{"a.so", "b.so"}, "one test module at a time: 'a.so' and 'b.so' were given"},
        {{"-j0"}, "-j takes a whole number of at least 1, not '0'"},
        {{"--jobs", "two"}, "--jobs takes a whole number of at least 1, not 'two'"},
        {{"--repeat=-1"}, "--repeat takes a whole number of at least 1 or until-fail, not '-1'"},
        {{"--timeout", "0"}, "--timeout takes seconds above 0 and up to 86400, not '0'"},
        {{"--timeout", "1s"}, "--timeout takes seconds above 0 and up to 86400, not '1s'"},
        {{"--seed", "1"}, "--seed needs --shuffle"},
        {{"--shuffle", "--seed", "99999999999999999999"}, "--seed takes a whole number, not '99999999999999999999'"},
        {{"--shard-index", "0"}, "--shard-index needs --shard-count"},
        {{"--shard-count", "2"}, "--shard-count needs --shard-index"},
        {{"--shard-count", "2", "--shard-index", "2"}, "--shard-index 2 is not below --shard-count 2"},
        // Only empty patterns would select by nothing, which no one means.
        {{"--filter", ":::"}, "--filter ':::' holds only empty patterns; give a name or glob such as 'Class.*'"},
        {{"--filter=:-:"}, "--filter ':-:' holds only empty patterns; give a name or glob such as 'Class.*'"},
        {{"--module-order", "--shuffle"}, "--module-order and --shuffle ask for different orders"},
    };
    for (const Row& row : rows)
    {
        const ParsedArguments parsed = parseArguments(row.arguments);
        EXPECT_EQ(parsed.error, row.error) << row.arguments.front();
        EXPECT_EQ(parsed.error.find('\n'), std::string::npos);
    }
}

TEST(HostOptionsTest, GoogleTestShardVariablesApplyWhereTheCommandLineShardsNot)
{
    struct Row
    {
        const char* total;
        const char* index;
        std::optional<size_t> count;
        std::optional<size_t> shard;
        std::string error;
    };
    const std::vector<Row> rows = {
        {nullptr, nullptr, std::nullopt, std::nullopt, ""},
        {"3", "2", 3, 2, ""},
        {"1", "0", 1, 0, ""},
        {"3", nullptr, std::nullopt, std::nullopt,
         "GTEST_SHARD_INDEX and GTEST_TOTAL_SHARDS go together; only GTEST_TOTAL_SHARDS is set"},
        {nullptr, "0", std::nullopt, std::nullopt,
         "GTEST_SHARD_INDEX and GTEST_TOTAL_SHARDS go together; only GTEST_SHARD_INDEX is set"},
        {"2", "2", std::nullopt, std::nullopt, "GTEST_SHARD_INDEX 2 is not below GTEST_TOTAL_SHARDS 2"},
        {"0", "0", std::nullopt, std::nullopt, "GTEST_TOTAL_SHARDS takes a whole number of at least 1, not '0'"},
        {"2", "-1", std::nullopt, std::nullopt, "GTEST_SHARD_INDEX takes a whole number, not '-1'"},
    };
    for (const Row& row : rows)
    {
        HostOptions options;
        const std::optional<std::string> error = applyShardEnvironment(options, row.total, row.index);
        EXPECT_EQ(error.value_or(""), row.error);
        EXPECT_EQ(options.shardCount, row.count);
        EXPECT_EQ(options.shardIndex, row.shard);
    }
    // The command line wins.
    HostOptions options = parse({"--shard-count", "4", "--shard-index", "1"}).options;
    EXPECT_EQ(applyShardEnvironment(options, "9", "bad"), std::nullopt);
    EXPECT_EQ(options.shardCount, 4u);
    EXPECT_EQ(options.shardIndex, 1u);
}
