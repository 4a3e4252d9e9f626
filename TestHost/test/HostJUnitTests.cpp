#include "HostReportFixture.h"
#include "TestHost/JUnitReporter.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Ovelith::TestHost;
using namespace HostTestSupport;

TEST(HostJUnitTest, EscapesForContentAndAttributes)
{
    struct Row
    {
        std::string text;
        std::string content;
        std::string attribute;
    };
    const std::vector<Row> rows = {
        {"a&b<c>d", "a&amp;b&lt;c&gt;d", "a&amp;b&lt;c&gt;d"},
        {"\"'", "\"'", "&quot;&apos;"},
        {"\t\n\r", "\t\n&#13;", "&#9;&#10;&#13;"},
        {"\x01x", "\\x01x", "\\x01x"},
        {std::string("a\0b", 3), "a\\x00b", "a\\x00b"},
        {"\x7f", "\x7f", "\x7f"},
        // Well-formed UTF-8 of two, three and four bytes passes unchanged.
        {"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
         "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        // Truncated, stray continuation, overlong, surrogate, non-characters and beyond U+10FFFF.
        {"\xC3", "\\xC3", "\\xC3"},
        {"\x80", "\\x80", "\\x80"},
        {"\xC0\xAF", "\\xC0\\xAF", "\\xC0\\xAF"},
        {"\xED\xA0\x80", "\\xED\\xA0\\x80", "\\xED\\xA0\\x80"},
        {"\xEF\xBF\xBE", "\\xEF\\xBF\\xBE", "\\xEF\\xBF\\xBE"},
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80", "\\xF4\\x90\\x80\\x80"},
        {"\xF8\x88\x80\x80\x80", "\\xF8\\x88\\x80\\x80\\x80", "\\xF8\\x88\\x80\\x80\\x80"},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(escapeXml(row.text, false), row.content) << row.content;
        EXPECT_EQ(escapeXml(row.text, true), row.attribute) << row.attribute;
    }
}

TEST(HostJUnitTest, WritesOneSuitePerClassAndOneFailureHoldingEveryReport)
{
    const TestPlan plan = samplePlan();
    JUnitReporter reporter;
    replaySampleRun(plan, reporter);
    std::ostringstream out;
    reporter.write(out);

    const std::string expected =
        R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites name="Mod" tests="3" failures="1" errors="0" skipped="1" time="0.012">
  <testsuite name="Mod.K" tests="3" failures="1" errors="0" skipped="1" time="0.004">
    <testcase classname="Mod.K" name="ok" time="0.002" file="/src/k&amp;.cpp" line="3"/>
    <testcase classname="Mod.K" name="bad" time="0.002" file="/src/k&amp;.cpp" line="9">
      <failure message="a &lt; b &quot;q&quot;">bad at /src/k&amp;.cpp:10: a &lt; b "q"
    expected: 41 == 42

helper at /src/h.cpp:20: second
</failure>
    </testcase>
    <testcase classname="Mod.K" name="later" time="0.000" file="/src/k&amp;.cpp" line="12">
      <skipped/>
    </testcase>
  </testsuite>
</testsuites>
)";
    EXPECT_EQ(out.str(), expected);
}
