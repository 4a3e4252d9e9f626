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

TEST(HostOptionsTest, ReadsEveryOptionInBothSpellings)
{
    const ParsedArguments parsed =
        parse({"--tag", "Unit_Test", "--tag=suite:perf", "--exclude-tag", "slow", "--exclude-tag=flaky",
               "--filter=A.*-A.B", "--junit", "out.xml", "--list", "--fail-fast", "--color=never", "module.so"});
    ASSERT_EQ(parsed.error, "");
    const HostOptions& options = parsed.options;
    EXPECT_EQ(options.selection.includeTags, (std::vector<std::string>{"Unit_Test", "suite:perf"}));
    EXPECT_EQ(options.selection.excludeTags, (std::vector<std::string>{"slow", "flaky"}));
    EXPECT_EQ(options.selection.filter, "A.*-A.B");
    EXPECT_EQ(options.junitPath, "out.xml");
    EXPECT_TRUE(options.list);
    EXPECT_TRUE(options.failFast);
    EXPECT_FALSE(options.help);
    EXPECT_EQ(options.color, ColorMode::Never);
    EXPECT_EQ(options.modulePath, "module.so");
}

TEST(HostOptionsTest, ValueMayLookLikeAnOptionOrBeTheModuleAfterDoubleDash)
{
    // A separate value is taken as it is, even when it starts with '-': a negative-only filter.
    ParsedArguments parsed = parse({"--filter", "-*.Slow*", "m.so"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.selection.filter, "-*.Slow*");
    EXPECT_EQ(parsed.options.modulePath, "m.so");

    parsed = parse({"--list", "--", "-odd-name.so"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.modulePath, "-odd-name.so");
    EXPECT_TRUE(parsed.options.list);

    parsed = parse({"-h"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_TRUE(parsed.options.help);

    parsed = parse({"--color", "always", "--color=auto"});
    ASSERT_EQ(parsed.error, "");
    EXPECT_EQ(parsed.options.color, ColorMode::Auto);
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
    };
    for (const Row& row : rows)
    {
        const ParsedArguments parsed = parseArguments(row.arguments);
        EXPECT_EQ(parsed.error, row.error) << row.arguments.front();
        EXPECT_EQ(parsed.error.find('\n'), std::string::npos);
    }
}
