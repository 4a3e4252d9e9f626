#include "TestHost/PlanOrder.h"
#include "TestHost/Selection.h"

#include "ZentaryUnitTest/TestDescription.h"

#include <gtest/gtest.h>

#include <algorithm>

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

// Classes C0 to C7, class Cn with cases c0 to cn.
std::vector<PlannedClass> growingClasses()
{
    std::vector<PlannedClass> classes;
    for (int size = 1; size <= 8; ++size)
    {
        PlannedClass& testClass =
            classes.emplace_back(PlannedClass{std::string{'C', static_cast<char>('0' + size - 1)}, {}, {}});
        for (int index = 0; index < size; ++index)
        {
            testClass.cases.push_back(PlannedCase{"", std::string{'c', static_cast<char>('0' + index)}, "", 0, {}});
        }
    }
    return classes;
}

Names namesOf(const std::vector<PlannedClass>& classes)
{
    Names names;
    for (const PlannedClass& testClass : classes)
    {
        for (const PlannedCase& testCase : testClass.cases)
        {
            names.push_back(fullName(testClass, testCase));
        }
    }
    return names;
}

Names sorted(Names names)
{
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<PlannedClass> shuffled(std::vector<PlannedClass> classes, uint64_t seed)
{
    shuffleClasses(classes, seed);
    return classes;
}
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

TEST(HostPlanOrderTest, ShardsDealWholeClassesEvenlyAndTogetherRunTheSelectionOnce)
{
    const std::vector<PlannedClass> classes = growingClasses();
    for (size_t count : {1, 2, 3, 5, 9})
    {
        Names all;
        size_t smallest = SIZE_MAX;
        size_t largest = 0;
        for (size_t index = 0; index < count; ++index)
        {
            const std::vector<PlannedClass> shard = shardClasses(classes, count, index);
            const Names names = namesOf(shard);
            // Whole classes, in the module's order.
            EXPECT_EQ(names, sorted(names)) << count;
            for (const PlannedClass& testClass : shard)
            {
                EXPECT_EQ(testClass.cases.size(), std::stoul(testClass.name.substr(1)) + 1);
            }
            all.insert(all.end(), names.begin(), names.end());
            smallest = std::min(smallest, names.size());
            largest = std::max(largest, names.size());
        }
        EXPECT_EQ(sorted(all), sorted(namesOf(classes))) << count;
        // Dealt largest first, shards differ by no more than the largest class.
        EXPECT_LE(largest - smallest, 8u) << count;
    }
}

TEST(HostPlanOrderTest, ShuffleDependsOnTheSeedAloneAndKeepsTheOrderOfWhatRemains)
{
    const std::vector<PlannedClass> classes = growingClasses();
    const std::vector<PlannedClass> once = shuffled(classes, 1);
    EXPECT_EQ(namesOf(shuffled(classes, 1)), namesOf(once));
    EXPECT_NE(namesOf(shuffled(classes, 2)), namesOf(once));
    EXPECT_EQ(sorted(namesOf(once)), sorted(namesOf(classes)));
    // Classes and the cases within them both move.
    EXPECT_FALSE(std::is_sorted(once.begin(), once.end(),
                                [](const PlannedClass& left, const PlannedClass& right)
                                { return left.name < right.name; }));
    EXPECT_TRUE(std::any_of(once.begin(), once.end(),
                            [](const PlannedClass& testClass) { return testClass.cases.front().name != "c0"; }));

    // A smaller selection: a class and every other case gone.
    std::vector<PlannedClass> fewer = classes;
    fewer.erase(fewer.begin() + 5);
    for (PlannedClass& testClass : fewer)
    {
        for (size_t index = 1; index < testClass.cases.size(); ++index)
        {
            testClass.cases.erase(testClass.cases.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }
    const Names kept = namesOf(fewer);
    const Names all = namesOf(once);
    Names expected;
    std::copy_if(all.begin(), all.end(), std::back_inserter(expected),
                 [&](const std::string& name) { return std::find(kept.begin(), kept.end(), name) != kept.end(); });
    EXPECT_EQ(namesOf(shuffled(fewer, 1)), expected);
}

TEST(HostPlanOrderTest, RepeatedRoundsAreEachShuffledWithTheNextSeed)
{
    const std::vector<PlannedClass> classes = growingClasses();
    Names expected;
    for (uint64_t seed : {5, 6, 7})
    {
        const Names round = namesOf(shuffled(classes, seed));
        expected.insert(expected.end(), round.begin(), round.end());
    }
    EXPECT_EQ(namesOf(repeatClasses(classes, 3, 5)), expected);

    const Names names = namesOf(classes);
    Names twice = names;
    twice.insert(twice.end(), names.begin(), names.end());
    EXPECT_EQ(namesOf(repeatClasses(classes, 2, std::nullopt)), twice);
}
