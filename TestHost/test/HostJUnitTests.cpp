#include "HostReportFixture.h"
#include "TestHost/JUnitReporter.h"
#include "TestHost/JsonReporter.h"
#include "TestHost/ReportText.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
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

TEST(HostJUnitTest, JsonStringsEscapeWhatJsonCannotCarry)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"plain", R"("plain")"},
        {"\"\\", R"("\"\\")"},
        {"\n\t\r\x01", R"("\n\t\u000d\u0001")"},
        {std::string("a\0b", 3), R"("a\u0000b")"},
        // Well-formed UTF-8 passes; broken bytes become visible text.
        {"\xC3\xA9 \xF0\x9F\x98\x80", "\"\xC3\xA9 \xF0\x9F\x98\x80\""},
        {"\xC3(\xED\xA0\x80", R"("\\xC3(\\xED\\xA0\\x80")"},
    };
    for (const auto& [text, expected] : rows)
    {
        EXPECT_EQ(jsonString(text), expected);
    }
}

namespace
{
// A report file in a fresh directory, so that what lies beside it can be checked.
class ReportDirectory
{
public:
    ReportDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "hostreport-XXXXXX").string();
        mPath = mkdtemp(pattern.data());
    }
    ~ReportDirectory() { std::filesystem::remove_all(mPath); }

    std::filesystem::path file(const char* name) const { return mPath / name; }
    size_t entries() const
    {
        return static_cast<size_t>(
            std::distance(std::filesystem::directory_iterator(mPath), std::filesystem::directory_iterator()));
    }

private:
    std::filesystem::path mPath;
};
} // namespace

TEST(HostJUnitTest, RepeatedCasesKeepOneEntryTheLastRunUnlessAnEarlierOneFailed)
{
    const TestPlan plan = samplePlan();
    const auto& testClass = plan.classes[0];
    JUnitReporter reporter;
    reporter.onRunStarted(plan);
    const auto runCase = [&](size_t index, CaseOutcome outcome, std::chrono::nanoseconds time, const char* message)
    {
        if (outcome != CaseOutcome::Skipped)
        {
            reporter.onCaseStarted(testClass, testClass.cases[index]);
        }
        if (message != nullptr)
        {
            reporter.onCaseReport(testClass, testClass.cases[index],
                                  TestFailureReport{"f", "/x.cpp", "1", message, std::nullopt});
        }
        reporter.onCaseFinished(testClass, testClass.cases[index], outcome, time);
    };
    // ok: passes twice, the second time slower; bad: fails, then passes; later: passes, then is skipped.
    runCase(0, CaseOutcome::Passed, 1ms, nullptr);
    runCase(1, CaseOutcome::Failed, 2ms, "first");
    runCase(2, CaseOutcome::Passed, 3ms, nullptr);
    runCase(0, CaseOutcome::Passed, 4ms, nullptr);
    runCase(1, CaseOutcome::Passed, 5ms, nullptr);
    runCase(2, CaseOutcome::Skipped, 0ns, nullptr);
    reporter.onRunFinished({4, 1, 1, 20ms});
    std::ostringstream out;
    reporter.write(out);
    const std::string xml = out.str();
    EXPECT_TRUE(xml.find(R"(<testsuites name="Mod" tests="3" failures="1" errors="0" skipped="0" time="0.020">)") !=
                std::string::npos)
        << xml;
    EXPECT_NE(xml.find(R"(name="ok" time="0.004")"), std::string::npos) << xml;
    EXPECT_NE(xml.find(R"(name="bad" time="0.002")"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<failure message=\"first\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find(R"(name="later" time="0.003")"), std::string::npos) << xml;
    // A later failure does replace an earlier one.
    runCase(1, CaseOutcome::Failed, 6ms, "second");
    std::ostringstream again;
    reporter.write(again);
    EXPECT_NE(again.str().find("<failure message=\"second\">"), std::string::npos) << again.str();
    EXPECT_EQ(again.str().find("first"), std::string::npos);
}

TEST(HostJUnitTest, ReportFilesAppearWholeAndACrashStillWritesThemNamingTheCase)
{
    const TestPlan plan = samplePlan();
    const auto& testClass = plan.classes[0];
    ReportDirectory directory;
    {
        JUnitReporter junit;
        JsonReporter json;
        ASSERT_EQ(junit.open(directory.file("r.xml").string()), std::nullopt);
        ASSERT_EQ(json.open(directory.file("r.json").string()), std::nullopt);
        for (FileReporter* report : std::initializer_list<FileReporter*>{&junit, &json})
        {
            report->onRunStarted(plan);
            report->onCaseStarted(testClass, testClass.cases[0]);
            report->onCaseFinished(testClass, testClass.cases[0], CaseOutcome::Passed, 1ms);
            report->onCaseStarted(testClass, testClass.cases[1]);
            report->onCaseReport(testClass, testClass.cases[1],
                                 TestFailureReport{"bad", "/k.cpp", "10", "a<b", TestFailureDetails{"==", "1", "2"}});
        }
        // Nothing is at the target until the report is written; the temporary files wait beside it.
        EXPECT_FALSE(std::filesystem::exists(directory.file("r.xml")));
        EXPECT_EQ(directory.entries(), 2u);
        junit.commitNow("crashed with SIGSEGV");
        json.commitNow("crashed with SIGSEGV");
        // Once written, a report is not written again.
        json.commitNow("crashed with SIGABRT");
    }
    EXPECT_EQ(directory.entries(), 2u);
    const std::string xml = readWholeFile(directory.file("r.xml"));
    EXPECT_NE(xml.find(R"(<testsuites name="Mod" tests="2" failures="1" errors="0" skipped="0" time=")"),
              std::string::npos)
        << xml;
    EXPECT_NE(xml.find(R"(<testcase classname="Mod.K" name="bad" time=")"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<failure message=\"a&lt;b\">bad at /k.cpp:10: a&lt;b\n    expected: 1 == 2\n\nbad at "
                       "/src/k&amp;.cpp:9: crashed with SIGSEGV\n</failure>\n    </testcase>\n  </testsuite>\n"
                       "</testsuites>\n"),
              std::string::npos)
        << xml;
    const std::string json = readWholeFile(directory.file("r.json"));
    EXPECT_NE(json.find(R"("tests": 2, "failures": 1, "skipped": 0)"), std::string::npos) << json;
    EXPECT_NE(json.find(R"("message": "a<b", "failures": [{"function": "bad", "file": "/k.cpp", "line": 10, )"
                        R"("message": "a<b", "comparison": "==", "left": "1", "right": "2"}, {"function": "bad", )"
                        R"("file": "/src/k&.cpp", "line": 9, "message": "crashed with SIGSEGV"}]})"),
              std::string::npos)
        << json;
    EXPECT_TRUE(json.ends_with("\n    ]}\n  ]\n}\n")) << json;

    // A report never committed leaves nothing behind.
    {
        JUnitReporter junit;
        ASSERT_EQ(junit.open(directory.file("never.xml").string()), std::nullopt);
        EXPECT_EQ(directory.entries(), 3u);
    }
    EXPECT_EQ(directory.entries(), 2u);
}

TEST(HostJUnitTest, JsonReportHoldsTotalsClassesAndCases)
{
    const TestPlan plan = samplePlan();
    JsonReporter reporter;
    replaySampleRun(plan, reporter);
    std::ostringstream out;
    reporter.write(out);
    EXPECT_EQ(out.str(), R"({
  "module": "Mod",
  "tests": 3, "failures": 1, "skipped": 1, "time": 0.012,
  "classes": [
    {"name": "K", "tests": 3, "failures": 1, "skipped": 1, "time": 0.004, "cases": [
        {"name": "ok", "file": "/src/k&.cpp", "line": 3, "outcome": "passed", "time": 0.002, "failures": []},
        {"name": "bad", "file": "/src/k&.cpp", "line": 9, "outcome": "failed", "time": 0.002, "message": "a < b \"q\"", "failures": [{"function": "bad", "file": "/src/k&.cpp", "line": 10, "message": "a < b \"q\"", "comparison": "==", "left": "41", "right": "42"}, {"function": "helper", "file": "/src/h.cpp", "line": 20, "message": "second"}]},
        {"name": "later", "file": "/src/k&.cpp", "line": 12, "outcome": "skipped", "time": 0.000, "failures": []}
    ]}
  ]
}
)");
}

TEST(HostJUnitTest, FailuresOfARepeatedRunNameTheirRound)
{
    TestPlan plan = samplePlan();
    plan.rounds = 3;
    PlannedClass third = plan.classes[0];
    third.round = 2;
    const TestFailureReport report{"f", "/x.cpp", "1", "broke", std::nullopt};
    ReportDirectory directory;
    JUnitReporter junit;
    JsonReporter json;
    ASSERT_EQ(junit.open(directory.file("r.xml").string()), std::nullopt);
    ASSERT_EQ(json.open(directory.file("r.json").string()), std::nullopt);
    for (FileReporter* reporter : std::initializer_list<FileReporter*>{&junit, &json})
    {
        reporter->onRunStarted(plan);
        reporter->onCaseStarted(third, third.cases[1]);
        reporter->onCaseReport(third, third.cases[1], report);
        reporter->onCaseFinished(third, third.cases[1], CaseOutcome::Failed, 1ms);
        // The case that takes the process down is tagged as well.
        reporter->onCaseStarted(third, third.cases[2]);
        reporter->onCaseReport(third, third.cases[2], report);
        reporter->commitNow("crashed with SIGSEGV");
    }
    const std::string xml = readWholeFile(directory.file("r.xml"));
    EXPECT_NE(xml.find("<failure message=\"round 3: broke\">round 3: f at /x.cpp:1: broke\n</failure>"),
              std::string::npos)
        << xml;
    EXPECT_NE(xml.find("<failure message=\"round 3: broke\">round 3: f at /x.cpp:1: broke\n\nround 3: later at "
                       "/src/k&amp;.cpp:12: crashed with SIGSEGV\n</failure>"),
              std::string::npos)
        << xml;
    const std::string written = readWholeFile(directory.file("r.json"));
    EXPECT_NE(written.find(R"({"name": "bad", "file": "/src/k&.cpp", "line": 9, "round": 3, "outcome": "failed")"),
              std::string::npos)
        << written;
    EXPECT_NE(written.find(R"({"name": "later", "file": "/src/k&.cpp", "line": 12, "round": 3, "outcome": "failed")"),
              std::string::npos)
        << written;
}
