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

// A module as it publishes itself: tags lower-cased, default suites applied, and both lists newest first. Its
// classes were declared Perf, Alpha, Beta, and each class's cases in the order of their names here.
std::vector<TestClassDescription> sampleModule()
{
    std::vector<TestClassDescription> classes(3);
    classes[2].name = "Perf";
    classes[2].tags = TestTags{"Perf", "unit_test", "suite:perf"};
    classes[2].functions = {describeCase("Perf", "Measure")};
    classes[1].name = "Alpha";
    classes[1].tags = TestTags{"Alpha", "unit_test", "suite:pull_request"};
    classes[1].functions = {describeCase("Alpha", "Slow", {"heavy"}), describeCase("Alpha", "Fast")};
    classes[0].name = "Beta";
    classes[0].tags = TestTags{"Beta", "unit_test", "suite:pull_request"};
    classes[0].functions = {describeCase("Beta", "Two"), describeCase("Beta", "One")};
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
        {"a pattern that names perf brings it in", {{}, {}, "*.M*:*.One"}, {"Perf.Measure", "Beta.One"}},
        {"negative filter", {{}, {}, "-Alpha.*:Perf.*"}, {"Beta.One", "Beta.Two"}},
        {"excluding alone keeps perf hidden",
         {{}, {}, "-Nothing.Matches"},
         {"Alpha.Fast", "Alpha.Slow", "Beta.One", "Beta.Two"}},
        {"a pattern naming others keeps perf hidden", {{}, {}, "Beta.*:-Alpha.*"}, {"Beta.One", "Beta.Two"}},
        {"filter within tags", {{"pull_request", "suite:pull_request"}, {}, "*.T*"}, {"Beta.Two"}},
        {"filter matches the short case name", {{}, {}, "Alpha.Fast"}, {"Alpha.Fast"}},
        {"nothing matches", {{"no_such_tag"}, {}, {}}, {}},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(selectedNames(row.selection), row.expected) << row.label;
    }
}

TEST(HostSelectionTest, DeclarationOrderUnlessTheModulesOwnIsAskedFor)
{
    Selection declared{{"all"}, {}, {}};
    EXPECT_EQ(selectedNames(declared), (Names{"Perf.Measure", "Alpha.Fast", "Alpha.Slow", "Beta.One", "Beta.Two"}));
    Selection published = declared;
    published.moduleOrder = true;
    EXPECT_EQ(selectedNames(published), (Names{"Beta.Two", "Beta.One", "Alpha.Slow", "Alpha.Fast", "Perf.Measure"}));

    // Generated cases follow their class's plain ones either way, in the order they were generated.
    GeneratedCaseMap generated;
    generated["Alpha"] = {describeCase("Alpha", "Gen1"), describeCase("Alpha", "Gen2")};
    Names names;
    for (const PlannedClass& testClass : selectCases(sampleModule(), Selection{{"alpha"}, {}, {}}, generated))
    {
        for (const PlannedCase& testCase : testClass.cases)
        {
            names.push_back(fullName(testClass, testCase) + (testCase.generated ? "+" : ""));
        }
    }
    EXPECT_EQ(names, (Names{"Alpha.Fast", "Alpha.Slow", "Alpha.Gen1+", "Alpha.Gen2+"}));
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

TEST(HostPlanOrderTest, ShardsDealCasesRoundRobinOverTheWholeSelection)
{
    // Two classes of four and three cases: whole classes could not make three shards of them.
    std::vector<PlannedClass> classes = growingClasses();
    classes.erase(classes.begin(), classes.begin() + 2);
    classes.resize(2);
    // Out of name order, to show that shards keep the plan's order.
    std::swap(classes[0], classes[1]);
    const std::vector<Names> expected = {{"C3.c0", "C3.c3", "C2.c2"}, {"C3.c1", "C2.c0"}, {"C3.c2", "C2.c1"}};
    for (size_t index = 0; index < expected.size(); ++index)
    {
        EXPECT_EQ(namesOf(shardCases(classes, 3, index)), expected[index]) << index;
    }
    // A class whose cases all fall into other shards is left out; more shards than cases leave some empty.
    EXPECT_EQ(shardCases(classes, 5, 3).size(), 1u);
    EXPECT_TRUE(shardCases(classes, 9, 8).empty());
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
    const std::vector<PlannedClass> repeated = repeatClasses(classes, 2, std::nullopt);
    EXPECT_EQ(namesOf(repeated), twice);
    // Each class knows its round, which reports tag failures with.
    for (size_t index = 0; index < repeated.size(); ++index)
    {
        EXPECT_EQ(repeated[index].round, index < classes.size() ? 0u : 1u);
    }
}
