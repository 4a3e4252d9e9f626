#include "TestHost/NameFilter.h"

#include <gtest/gtest.h>

using namespace Ovelith::TestHost;

TEST(HostNameFilterTest, GlobMatchesWholeText)
{
    struct Row
    {
        const char* pattern;
        const char* text;
        bool matches;
    };
    const Row rows[] = {
        {"", "", true},
        {"", "a", false},
        {"*", "anything.at_all", true},
        {"?", "x", true},
        {"?", "xy", false},
        {"abc", "abc", true},
        {"Abc", "abc", false},
        {"a*c", "abbbc", true},
        {"a*c", "abbbcd", false},
        {"*.Less_*", "Scripting_VersionTest.Less_Than", true},
        {"*.Less_*", "Scripting_VersionTest.Construction", false},
        {"*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", false},
        {"*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab", true},
        {"a?c", "ac", false},
        {"*?", "", false},
        {"*?", "x", true},
        // '*' and '?' in the text are ordinary characters.
        {"a*", "a*", true},
        {"?", "*", true},
        {"x", "*", false},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(matchesGlob(row.pattern, row.text), row.matches) << row.pattern << " vs " << row.text;
    }
}

TEST(HostNameFilterTest, PositiveAndNegativePatternsAsInGoogleTest)
{
    struct Row
    {
        const char* filter;
        const char* name;
        bool matches;
    };
    const Row rows[] = {
        {"*", "A.b", true},
        {"A.*", "A.b", true},
        {"A.*:B.*", "B.b", true},
        {"-A.*", "A.b", false},
        {"*-A.*:B.*", "B.b", false},
        {"*-A.*:B.*", "C.b", true},
        {"A.*-A.slow*", "A.slowOne", false},
        {"A.*-A.slow*", "A.fast", true},
        // Empty patterns between separators are ignored rather than matching empty names.
        {"A.*::B.*:", "B.b", true},
        {"::", "anything", true},
        {"-", "anything", true},
        // Only the first '-' separates; a later one belongs to a negative pattern.
        {"*-a-b", "a-b", false},
        {"*-a-b", "a", true},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(NameFilter(row.filter).matches(row.name), row.matches) << row.filter << " vs " << row.name;
    }
    EXPECT_TRUE(NameFilter().matches("whatever"));
}

TEST(HostNameFilterTest, OnlyAPositivePatternNamesACase)
{
    struct Row
    {
        const char* filter;
        bool hasPatterns;
        // Whether "P.m" is asked for by name.
        bool names;
    };
    const Row rows[] = {
        {"P.m", true, true},
        {"P.*:Q.*", true, true},
        {"*", true, true},
        {"Q.*", true, false},
        // Excluding something else lets P.m through, but does not ask for it.
        {"-Nothing.Matches", true, false},
        {"-P.m", true, false},
        {":::", false, false},
        {"-", false, false},
        {":-:", false, false},
    };
    for (const Row& row : rows)
    {
        const NameFilter filter(row.filter);
        EXPECT_EQ(filter.hasPatterns(), row.hasPatterns) << row.filter;
        EXPECT_EQ(filter.names("P.m"), row.names) << row.filter;
    }
    EXPECT_FALSE(NameFilter().names("P.m"));
}
