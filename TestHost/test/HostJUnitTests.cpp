#include "HostReportFixture.h"
#include "TestHost/JUnitReporter.h"
#include "TestHost/ReportText.h"

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
        {"plain text", "plain text", "plain text"},
        {"a&b<c>d", "a&amp;b&lt;c&gt;d", "a&amp;b&lt;c&gt;d"},
        {"\"'", "\"'", "&quot;&apos;"},
        {"\t\n\r", "\t\n&#13;", "&#9;&#10;&#13;"},
        {"\x01x", "\\x01x", "\\x01x"},
        {"\x1b[31m", "\\x1B[31m", "\\x1B[31m"},
        {std::string("a\0b", 3), "a\\x00b", "a\\x00b"},
        {"\x7f", "\x7f", "\x7f"},
        // Well-formed UTF-8 of two, three and four bytes passes unchanged.
        {"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
         "\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        // Truncated, stray continuation, overlong, surrogate, non-characters and beyond U+10FFFF.
        {"\xC3", "\\xC3", "\\xC3"},
        {"\xC3(", "\\xC3(", "\\xC3("},
        {"\x80", "\\x80", "\\x80"},
        {"\xC0\xAF", "\\xC0\\xAF", "\\xC0\\xAF"},
        {"\xE0\x80\xAF", "\\xE0\\x80\\xAF", "\\xE0\\x80\\xAF"},
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

TEST(HostJUnitTest, SecondsHaveAtMostThreeDecimals)
{
    using namespace std::chrono_literals;
    EXPECT_EQ(formatSeconds(0ns), "0.000");
    EXPECT_EQ(formatSeconds(400us), "0.000");
    EXPECT_EQ(formatSeconds(1600us), "0.002");
    EXPECT_EQ(formatSeconds(1234567891ns), "1.235");
    EXPECT_EQ(formatSeconds(3600s), "3600.000");
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

TEST(HostJUnitTest, LeavesOutWhatDidNotFinish)
{
    // A run broken off by the module leaves cases without a result; they are not invented.
    TestPlan plan = samplePlan();
    plan.classes.push_back({"Unrun", {}, {{"Unrun::generateTestDataFor_x", "x", "u.cpp", 1, {}}}});
    JUnitReporter reporter;
    reporter.onRunStarted(plan);
    reporter.onCaseFinished(plan.classes[0], plan.classes[0].cases[0], CaseOutcome::Passed, {});
    reporter.onRunFinished({1, 0, 0, {}});
    std::ostringstream out;
    reporter.write(out);
    const std::string text = out.str();
    EXPECT_NE(text.find(R"(<testsuites name="Mod" tests="1" failures="0")"), std::string::npos) << text;
    EXPECT_NE(text.find(R"(name="ok")"), std::string::npos);
    EXPECT_EQ(text.find(R"(name="bad")"), std::string::npos);
    EXPECT_EQ(text.find("Unrun"), std::string::npos);
}
