#include "LoadModule.h"

#include "Diagnostics/Assert.h"
#include "Hash/Fnv1a.h"
#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"
#include "ZentaryUnitTest/TestModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace Ovelith::CoreTestFramework;
using ZentaryUnitTest::TestClassRegistration;

namespace
{
class RecordingListener : public TestResultListener
{
public:
    void reportFailure(TestFailureReport&& report) override { reports.push_back(std::move(report)); }
    std::vector<TestFailureReport> reports;
};

// Installs a listener for the duration of a test, as a host does between initialize and cleanup.
struct ListenerScope
{
    ListenerScope() { setTestResultListener(&listener); }
    ~ListenerScope() { setTestResultListener(nullptr); }
    RecordingListener listener;
};

// Detaches the nodes a test links after construction into a list of their own, so that the process's
// list is left as it was.
class IsolatedRegistrations
{
public:
    IsolatedRegistrations() : mPreviousHead(TestClassRegistration::sHead) {}
    ~IsolatedRegistrations() { TestClassRegistration::sHead = mPreviousHead; }

    TestClassRegistration* take()
    {
        TestClassRegistration* head = TestClassRegistration::sHead;
        if (head == mPreviousHead)
        {
            return nullptr;
        }
        TestClassRegistration* last = head;
        while (last->next != mPreviousHead)
        {
            last = last->next;
        }
        last->next = nullptr;
        TestClassRegistration::sHead = mPreviousHead;
        return head;
    }

private:
    TestClassRegistration* mPreviousHead;
};

std::vector<TestFunctionDescription> oneCase()
{
    return ZentaryUnitTest::describeTestCase(
        "Any", "generateTestDataFor_Case", __FILE__, __LINE__,
        [](ZentaryUnitTest::TestClassBase&, const TestFunctionDescription&, const std::string&) {});
}

ZentaryUnitTest::TestFunctionRegistration* sOneCaseList = nullptr;
ZentaryUnitTest::TestFunctionRegistration sOneCaseNode{sOneCaseList, &oneCase};

// The suites of ScriptingTests in registration order, with their case counts.
struct SuiteRow
{
    const char* name;
    size_t cases;
};
const SuiteRow SUITES[] = {
    {"Scripting_HandleTrackerPerfTests", 6},     {"Scripting_BindingFactoryTests", 19},
    {"Scripting_BindingTypesTests", 6},          {"Scripting_ClassBindingBuilderTests", 32},
    {"Scripting_CommonModuleFactoryTests", 3},   {"Scripting_DependencyResolverTests", 32},
    {"Scripting_HandleTrackingTests", 9},        {"Scripting_InterfaceBindingBuilderTests", 6},
    {"Scripting_ModuleBindingBuilderTests", 30}, {"Scripting_NativeRuntimeTests", 1},
    {"Scripting_OptionalHelperTests", 4},        {"Scripting_PrimitiveHelperTests", 1},
    {"Scripting_ReflectionTests", 24},           {"Scripting_RegistryManagerTests", 9},
    {"Scripting_QuickJS_ResultTests", 42},       {"Scripting_ScriptClosureTests", 11},
    {"Scripting_ScriptEngineTests", 26},         {"Scripting_StrongObjectHandleTests", 20},
    {"Scripting_TypeMapBuilderTests", 4},        {"Scripting_VersionTest", 3},
    {"Scripting_WeakObjectHandleTests", 19},
};

// A class with one trivial case, named by whichever suite name its tags hold.
TestClassDescription registerSuite(TestTags tags)
{
    std::string name;
    for (const SuiteRow& candidate : SUITES)
    {
        if (tags.has(candidate.name))
        {
            name = candidate.name;
        }
    }
    return ZentaryUnitTest::describeTestClass(nullptr, nullptr, nullptr, std::move(tags), name, sOneCaseList, nullptr,
                                              nullptr);
}

TestClassDescription registerEmpty(TestTags tags)
{
    return ZentaryUnitTest::describeTestClass(nullptr, nullptr, nullptr, std::move(tags), "EmptyClass", nullptr,
                                              nullptr, nullptr);
}
} // namespace

TEST(TestTagsTests, StoresLowerCaseAndFindsInAnyCase)
{
    const TestTags tags{"Scripting_VersionTest", "unit_test"};
    EXPECT_TRUE(tags.has("scripting_versiontest"));
    EXPECT_TRUE(tags.has("SCRIPTING_VERSIONTEST"));
    EXPECT_EQ(tags.toVector(), (std::vector<std::string>{"scripting_versiontest", "unit_test"}));
    EXPECT_EQ(tags.toString(), "scripting_versiontest, unit_test");
}

TEST(TestTagsTests, SetQueries)
{
    const TestTags tags{"a", "suite:perf"};
    EXPECT_TRUE(tags.hasSuiteTag());
    EXPECT_FALSE(TestTags{"suite"}.hasSuiteTag());
    EXPECT_TRUE(tags.hasAny(TestTags{"x", "A"}));
    EXPECT_FALSE(tags.hasAny(TestTags{}));
    EXPECT_TRUE(TestTags{"One"}.isOnly("one"));
    EXPECT_FALSE(tags.isOnly("a"));
    EXPECT_FALSE(TestTags{}.isSelectable());
    EXPECT_FALSE((TestTags{"none", "all"}.isSelectable()));
    EXPECT_TRUE(TestTags{"all"}.isSelectable());
}

TEST(TestTagsTests, HashIsOrderedFoldOfFnv)
{
    EXPECT_EQ(TestTags{}.hash(), 0u);
    EXPECT_EQ(TestTags{}.toString(), "");
    // The set's order decides, not the order of insertion.
    EXPECT_EQ((TestTags{"b", "a"}.hash()), (TestTags{"a", "b"}.hash()));
    uint64_t seed = 0;
    for (const char* tag : {"a", "b"})
    {
        seed ^= (seed << 6) + Ovelith::Hash::fnv1a64(tag) + (seed >> 2) + 0x9e3779b9ull;
    }
    EXPECT_EQ((TestTags{"a", "b"}.hash()), seed);
    EXPECT_NE((TestTags{"a", "b"}.hash()), (TestTags{"a", "c"}.hash()));
}

TEST(TestTagsTests, DuplicateRaisesAssertAndKeepsOne)
{
    TestTags tags{"unit_test"};
    const auto asserts = Ovelith::Diagnostics::collectAsserts([&] { tags.insert(TestTags{"Unit_Test"}); });
    ASSERT_EQ(asserts.size(), 1u);
    EXPECT_EQ(asserts[0], "Found a duplicate test tag: unit_test. Test tags must be unique. Note: test class names "
                          "are tags already.");
    EXPECT_EQ(tags.size(), 1u);
}

TEST(TestNameTests, ShortNameFollowsStubPrefix)
{
    EXPECT_EQ(getTestName("Scripting_VersionTest::generateTestDataFor_Less_Than"), "Less_Than");
    EXPECT_EQ(getTestName("NoPrefixHere"), "NoPrefixHere");
    EXPECT_EQ(getTestName("short"), "short");
}

TEST(DefaultSuiteTests, ClassKindDecidesSuite)
{
    struct Row
    {
        TestTags classTags;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {{"c", "unit_test"}, "suite:pull_request"},
        {{"c", "srv_test"}, "suite:pull_request"},
        {{"c", "fn_test"}, "suite:extended"},
        {{"c", "unit_test", "suite:perf"}, "suite:perf"},
    };
    for (const Row& row : rows)
    {
        TestClassDescription description;
        description.tags = row.classTags;
        description.functions.resize(1);
        applyDefaultSuite(description);
        EXPECT_TRUE(description.tags.has(row.expected)) << row.classTags.toString();
        EXPECT_FALSE(description.functions[0].tags.hasSuiteTag());
        // A second run finds the tag in place.
        const TestTags before = description.tags;
        applyDefaultSuite(description);
        EXPECT_EQ(description.tags, before);
    }
    TestClassDescription other;
    other.tags = TestTags{"c", "other"};
    applyDefaultSuite(other);
    EXPECT_FALSE(other.tags.hasSuiteTag());
}

TEST(DefaultSuiteTests, CaseWithSuiteMovesDefaultToOtherCases)
{
    TestClassDescription description;
    description.tags = TestTags{"c", "unit_test"};
    description.functions.resize(2);
    description.functions[0].tags = TestTags{"suite:perf"};
    applyDefaultSuite(description);
    EXPECT_FALSE(description.tags.hasSuiteTag());
    EXPECT_TRUE(description.functions[0].tags.isOnly("suite:perf"));
    EXPECT_TRUE(description.functions[1].tags.has("suite:pull_request"));
}

TEST(TestModuleTests, EmptyModule)
{
    const TestModule module(nullptr);
    EXPECT_EQ(module.getModuleName(), "Empty");
    EXPECT_TRUE(module.getTestClasses().empty());
}

TEST(TestModuleTests, TwentyOneSuitesPublishNewestFirstWithXorName)
{
    IsolatedRegistrations isolation;
    std::vector<std::unique_ptr<TestClassRegistration>> nodes;
    for (const SuiteRow& row : SUITES)
    {
        const char* name = row.name;
        const bool perf = std::string_view(name) == "Scripting_HandleTrackerPerfTests";
        nodes.push_back(std::make_unique<TestClassRegistration>(
            &registerSuite, perf ? TestTags{name, "unit_test", "suite:perf"} : TestTags{name, "unit_test"}));
    }
    nodes.push_back(std::make_unique<TestClassRegistration>(&registerEmpty, TestTags{"EmptyClass", "unit_test"}));
    const TestModule module(isolation.take());

    const auto& classes = module.getTestClasses();
    ASSERT_EQ(classes.size(), 21u) << "a class without cases is dropped";
    EXPECT_EQ(module.getModuleName(), "Scripting_WeakObjectHandleTests1492580758135176065");
    EXPECT_EQ(classes.front().name, "Scripting_WeakObjectHandleTests");
    EXPECT_EQ(classes.back().name, "Scripting_HandleTrackerPerfTests");
    for (const TestClassDescription& description : classes)
    {
        const bool perf = description.name == "Scripting_HandleTrackerPerfTests";
        EXPECT_EQ(description.tags.has("suite:perf"), perf) << description.name;
        EXPECT_EQ(description.tags.has("suite:pull_request"), !perf) << description.name;
        ASSERT_EQ(description.functions.size(), 1u);
        EXPECT_TRUE(description.functions[0].tags.isOnly("Case"));
    }
}

TEST(TestModuleTests, SingleClassNameIsClassAndItsHash)
{
    IsolatedRegistrations isolation;
    TestClassRegistration node(&registerSuite, TestTags{"Scripting_VersionTest", "unit_test"});
    const TestModule module(isolation.take());
    EXPECT_EQ(module.getModuleName(),
              "Scripting_VersionTest" + std::to_string(Ovelith::Hash::fnv1a64("Scripting_VersionTest")));
}

// The project's own module: its classes come in the reverse of the registration table, each with its tags,
// and once every suite is in, with the table's cases and the module name that follows from them.
TEST(ScriptingTestsModuleTests, ClassesFollowTheRegistrationTable)
{
    const TestModule& module = FrameworkTests::loadTestModule(SCRIPTING_TESTS_MODULE_PATH);
    const auto& classes = module.getTestClasses();
    ASSERT_FALSE(classes.empty());
    // Walks the table backwards alongside the published list.
    const SuiteRow* row = std::end(SUITES);
    size_t caseCount = 0;
    bool countsMatch = true;
    for (const TestClassDescription& description : classes)
    {
        while (row != std::begin(SUITES) && description.name != (row - 1)->name)
        {
            --row;
        }
        ASSERT_NE(row, std::begin(SUITES)) << description.name << " is out of the table's order or not in it";
        --row;
        const bool perf = description.name == "Scripting_HandleTrackerPerfTests";
        EXPECT_TRUE(description.tags.has(description.name));
        EXPECT_TRUE(description.tags.has("unit_test")) << description.name;
        EXPECT_EQ(description.tags.has("suite:perf"), perf) << description.name;
        EXPECT_EQ(description.tags.has("suite:pull_request"), !perf) << description.name;
        EXPECT_EQ(description.tags.size(), 3u) << description.tags.toString();
        countsMatch = countsMatch && description.functions.size() == row->cases;
        caseCount += description.functions.size();
    }
    if (classes.size() < std::size(SUITES))
    {
        GTEST_SKIP() << "the module holds " << classes.size() << " of " << std::size(SUITES) << " suites";
    }
    EXPECT_EQ(module.getModuleName(), "Scripting_WeakObjectHandleTests1492580758135176065");
    EXPECT_TRUE(countsMatch) << "every suite has the cases of the table";
    EXPECT_EQ(caseCount, 307u);
}
