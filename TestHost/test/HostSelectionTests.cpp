#include "TestHost/Selection.h"

#include "ZentaryUnitTest/TestDescription.h"

#include <gtest/gtest.h>

using namespace Ovelith::TestHost;
using Ovelith::CoreTestFramework::TestClassDescription;
using Ovelith::CoreTestFramework::TestFunctionDescription;
using Ovelith::CoreTestFramework::TestTags;

namespace
{
TestFunctionDescription describeCase(const std::string& className, const std::string& caseName,
                                     std::vector<std::string> extraTags = {})
{
    TestFunctionDescription description;
    description.name = className + "::generateTestDataFor_" + caseName;
    description.file = "/src/" + className + ".cpp";
    description.line = 10;
    extraTags.push_back(caseName);
    description.tags = TestTags(extraTags);
    return description;
}

// A module as it publishes itself: tags lower-cased, default suites applied.
std::vector<TestClassDescription> sampleModule()
{
    std::vector<TestClassDescription> classes(3);
    classes[0].name = "Perf";
    classes[0].tags = TestTags{"Perf", "unit_test", "suite:perf"};
    classes[0].functions = {describeCase("Perf", "Measure")};
    classes[1].name = "Alpha";
    classes[1].tags = TestTags{"Alpha", "unit_test", "suite:pull_request"};
    classes[1].functions = {describeCase("Alpha", "Fast"), describeCase("Alpha", "Slow", {"heavy"})};
    classes[2].name = "Beta";
    classes[2].tags = TestTags{"Beta", "unit_test", "suite:pull_request"};
    classes[2].functions = {describeCase("Beta", "One"), describeCase("Beta", "Two")};
    return classes;
}

std::vector<std::string> selectedNames(const Selection& selection)
{
    std::vector<std::string> names;
    for (const PlannedClass& testClass : selectCases(sampleModule(), selection))
    {
        for (const PlannedCase& testCase : testClass.cases)
        {
            names.push_back(fullName(testClass, testCase));
        }
    }
    return names;
}

using Names = std::vector<std::string>;
} // namespace

TEST(HostSelectionTest, TagsExclusionsAndFilterCombine)
{
    struct Row
    {
        const char* label;
        Selection selection;
        Names expected;
    };
    const std::vector<Row> rows = {
        {"default leaves perf out", {}, {"Alpha.Fast", "Alpha.Slow", "Beta.One", "Beta.Two"}},
        {"perf by its suite tag", {{"suite:perf"}, {}, {}}, {"Perf.Measure"}},
        {"class name is a tag, in any case", {{"ALPHA"}, {}, {}}, {"Alpha.Fast", "Alpha.Slow"}},
        {"a case's own tag", {{"heavy"}, {}, {}}, {"Alpha.Slow"}},
        {"a case's name is its tag", {{"two"}, {}, {}}, {"Beta.Two"}},
        {"any include tag suffices", {{"heavy", "beta"}, {}, {}}, {"Alpha.Slow", "Beta.One", "Beta.Two"}},
        {"all includes perf", {{"all"}, {}, {}}, {"Perf.Measure", "Alpha.Fast", "Alpha.Slow", "Beta.One", "Beta.Two"}},
        {"unit_test includes perf",
         {{"unit_test"}, {}, {}},
         {"Perf.Measure", "Alpha.Fast", "Alpha.Slow", "Beta.One", "Beta.Two"}},
        {"exclude a case tag", {{}, {"HEAVY"}, {}}, {"Alpha.Fast", "Beta.One", "Beta.Two"}},
        {"exclude a class tag", {{"all"}, {"beta"}, {}}, {"Perf.Measure", "Alpha.Fast", "Alpha.Slow"}},
        {"exclusion wins over inclusion", {{"alpha"}, {"alpha"}, {}}, {}},
        {"a filter decides alone, perf included", {{}, {}, "*.M*:*.One"}, {"Perf.Measure", "Beta.One"}},
        {"negative filter", {{}, {}, "-Alpha.*:Perf.*"}, {"Beta.One", "Beta.Two"}},
        {"filter within tags", {{"pull_request", "suite:pull_request"}, {}, "*.T*"}, {"Beta.Two"}},
        {"filter matches the short case name", {{}, {}, "Alpha.Fast"}, {"Alpha.Fast"}},
        {"nothing matches", {{"no_such_tag"}, {}, {}}, {}},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(selectedNames(row.selection), row.expected) << row.label;
    }
}

TEST(HostSelectionTest, TagHeldByBothCaseAndClassDoesNotTrip)
{
    // The framework asserts on a tag inserted twice; selection must look the two sets up apart.
    std::vector<TestClassDescription> classes(1);
    classes[0].name = "Same";
    classes[0].tags = TestTags{"Same", "unit_test", "suite:pull_request"};
    classes[0].functions = {describeCase("Same", "Same", {"unit_test"})};
    const std::vector<PlannedClass> plan = selectCases(classes, Selection{{"same"}, {}, {}});
    ASSERT_EQ(plan.size(), 1u);
    EXPECT_EQ(plan[0].cases.size(), 1u);
}
