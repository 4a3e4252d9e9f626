// The resolver against what applications will throw at it: cycles, aliases, prerelease-only modules,
// requesters that disagree and chains deeper than any call stack; and against its literal, unindexed model
// on random module graphs.

#include "Diagnostics/Assert.h"
#include "Scripting/ScriptEngine/DependencyResolver.h"

#include "LiteralDependencyResolver.h"
#include "TestEmptyModuleBindingFactory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

using Factories = std::vector<std::unique_ptr<IModuleBindingFactory>>;
using Versions = TestEmptyModuleBindingFactory::Versions;

constexpr const char* CYCLE_TEXT = "Could not resolve dependencies, circular reference detected.";

const ModuleDescriptor PLUGIN{"plugin", quv::UUID(0xfeed, 1), Version(1, 0, 0), false};

quv::UUID uuidOf(size_t index)
{
    return quv::UUID(0x1000, index + 1);
}

std::string nameOf(size_t index)
{
    return "module_" + std::to_string(index);
}

ModuleDependency dependencyOn(size_t index, std::vector<Version> versions, bool inheritsExplicit = false)
{
    return ModuleDependency{nameOf(index), uuidOf(index), std::move(versions), false, inheritsExplicit};
}

ModuleDescriptor requestOf(size_t index, Version version)
{
    return ModuleDescriptor{nameOf(index), uuidOf(index), std::move(version), false};
}

void addModule(Factories& factories, size_t index, Versions versions)
{
    factories.push_back(
        std::make_unique<TestEmptyModuleBindingFactory>(nameOf(index), uuidOf(index), std::move(versions)));
}

std::vector<std::string> namesOf(const std::vector<ModuleDescriptor>& modules)
{
    std::vector<std::string> names;
    for (const ModuleDescriptor& module : modules)
    {
        names.push_back(module.name);
    }
    return names;
}

// ---- Whole records as text, so that a mismatch shows where ----

std::string text(const ModuleDescriptor& descriptor)
{
    return descriptor.name + "{" + descriptor.uuid.asString() + "}@" + descriptor.version.toString() +
           (descriptor.isInternal ? "!" : "");
}

std::string text(const VersionRequestedBy& request)
{
    return request.version.toString() + " asked " + request.requestedVersion.toString() + " by " +
           text(request.requestedBy) + " " + std::to_string(request.isAvailable) + std::to_string(request.isMissing) +
           std::to_string(request.isExplicit) + std::to_string(request.isPromotion);
}

template <typename Table>
std::string tableText(const Table& table)
{
    std::string out;
    for (const auto& [key, requests] : table)
    {
        out += key.name + "{" + key.uuid.asString() + "}:\n";
        for (const VersionRequestedBy& request : requests)
        {
            out += "  " + text(request) + "\n";
        }
    }
    return out;
}

std::string resultText(const ModuleResolveResult& result)
{
    std::string out = "modules:";
    for (const ModuleDescriptor& module : result.modules)
    {
        out += " " + text(module);
    }
    for (const ModuleVersionPromotion& promotion : result.promotions)
    {
        out += "\npromotion " + text(promotion.module) + " by " + text(promotion.requestedBy) + " " +
               promotion.fromVersion.toString() + " -> " + promotion.toVersion.toString();
    }
    for (const ModuleVersionConflict& conflict : result.conflicts)
    {
        out += "\nconflict " + text(conflict.module) + " " + text(conflict.firstRequestedBy) + " " +
               text(conflict.secondRequestedBy) + " " + text(conflict.firstRequested) + " " +
               text(conflict.secondRequested);
    }
    return out + result.getErrorText();
}

// ---- Random module graphs ----

const std::vector<Version> VERSION_POOL = {
    {0, 1, 0}, {0, 2, 0}, {1, 0, 0},          {1, 1, 0, "beta"}, {1, 1, 0}, {1, 2, 0, "beta"},
    {1, 2, 0}, {1, 3, 0}, {2, 0, 0, "alpha"}, {2, 0, 0},         {2, 1, 0}, {1, 2, 0, "alpha"},
};

struct RandomGraph
{
    Factories factories;
    std::vector<ModuleDescriptor> requested;
};

// A tame graph asks only for versions that are offered and for modules that exist, so that most resolves
// reach the ordering step; a wild one asks for anything.
// `modules` fixes the number of modules; 0 picks one to six.
RandomGraph randomGraph(std::mt19937& random, bool tame, size_t modules = 0)
{
    const auto pick = [&random](size_t count) { return std::uniform_int_distribution<size_t>(0, count - 1)(random); };
    const auto chance = [&](int percent) { return pick(100) < static_cast<size_t>(percent); };
    const auto randomVersion = [&] { return VERSION_POOL[pick(VERSION_POOL.size())]; };

    const size_t moduleCount = modules != 0 ? modules : 1 + pick(6);
    std::vector<std::vector<Version>> offered(moduleCount);
    for (std::vector<Version>& versions : offered)
    {
        for (size_t count = 1 + pick(tame ? 2 : 4); count > 0; --count)
        {
            versions.push_back(randomVersion());
        }
    }
    // Wild graphs also depend on a module that nobody provides.
    const size_t targets = tame ? moduleCount : moduleCount + 1;
    const auto wantedVersion = [&](size_t target)
    { return tame ? offered[target][pick(offered[target].size())] : randomVersion(); };

    RandomGraph graph;
    for (size_t module = 0; module < moduleCount; ++module)
    {
        Versions versions;
        for (const Version& version : offered[module])
        {
            std::vector<ModuleDependency> dependencies;
            for (size_t count = pick(tame ? 3 : 4); count > 0; --count)
            {
                const size_t target = pick(targets);
                std::vector<Version> wanted = {wantedVersion(target)};
                if (chance(25))
                {
                    for (size_t more = 1 + pick(2); more > 0; --more)
                    {
                        wanted.push_back(wantedVersion(target));
                    }
                }
                dependencies.push_back(dependencyOn(target, std::move(wanted), chance(50)));
            }
            versions[version] = std::move(dependencies);
        }
        addModule(graph.factories, module, std::move(versions));
        if (chance(10))
        {
            // A second factory of the same UUID, which must never be consulted.
            const size_t target = pick(targets);
            graph.factories.push_back(std::make_unique<TestEmptyModuleBindingFactory>(
                "shadow", uuidOf(module),
                Versions{{randomVersion(), {dependencyOn(target, {wantedVersion(target)})}}}));
        }
    }
    for (size_t count = modules != 0 ? modules / 2 : pick(5); count > 0; --count)
    {
        const size_t target = pick(targets);
        ModuleDescriptor descriptor = requestOf(target, wantedVersion(target));
        if (chance(20))
        {
            descriptor.name = "alias";
        }
        graph.requested.push_back(std::move(descriptor));
    }
    return graph;
}

TEST(DependencyResolverModelTest, RandomGraphsResolveAsTheLiteralModelDoes)
{
    std::mt19937 random(20240611);
    const VersionSelection selections[] = {VersionSelection::LowestSatisfying, VersionSelection::HighestSatisfying,
                                           static_cast<VersionSelection>(7)};
    size_t resolved = 0;
    size_t failed = 0;
    size_t withAsserts = 0;
    for (int round = 0; round < 3000; ++round)
    {
        const RandomGraph graph = randomGraph(random, round % 2 == 0);
        for (VersionSelection selection : selections)
        {
            std::string expectedTable;
            std::string expectedResult;
            const std::vector<std::string> expectedAsserts = collectAsserts(
                [&]
                {
                    LiteralDependencyResolver model(graph.factories, selection);
                    const LiteralDependencyResolver::Table table = model.build(PLUGIN, graph.requested);
                    expectedTable = tableText(table);
                    expectedResult = resultText(model.decide(table));
                });
            std::string actualTable;
            std::string actualResult;
            const std::vector<std::string> actualAsserts = collectAsserts(
                [&]
                {
                    const DependencyResolver resolver(graph.factories, selection);
                    const VersionRequestTable table = resolver._buildVersionRequestTable(PLUGIN, graph.requested);
                    actualTable = tableText(table);
                    actualResult = resultText(resolver._resolveDependencyRequests(table));
                });
            ASSERT_EQ(actualTable, expectedTable) << "round " << round;
            ASSERT_EQ(actualResult, expectedResult) << "round " << round;
            ASSERT_EQ(actualAsserts, expectedAsserts) << "round " << round;
            withAsserts += actualAsserts.empty() ? 0 : 1;
            (actualResult.find("§c") == std::string::npos ? resolved : failed) += 1;
        }
    }
    // The generator must reach every outcome, or the comparison proves little.
    EXPECT_GT(resolved, 1000u);
    EXPECT_GT(failed, 1000u);
    EXPECT_GT(withAsserts, 100u);
}

// Hundreds of modules, so that the walk's index of modules grows past its first size and a module's versions
// are requested by many requesters: each outcome worked out once per module version must be the one the
// literal model works out per request.
TEST(DependencyResolverModelTest, LargeRandomGraphsResolveAsTheLiteralModelDoes)
{
    std::mt19937 random(77);
    size_t largestTable = 0;
    for (int round = 0; round < 12; ++round)
    {
        const RandomGraph graph = randomGraph(random, round % 3 != 0, 40 + 40 * static_cast<size_t>(round % 6));
        for (VersionSelection selection : {VersionSelection::LowestSatisfying, VersionSelection::HighestSatisfying})
        {
            std::string expected;
            const std::vector<std::string> expectedAsserts = collectAsserts(
                [&]
                {
                    LiteralDependencyResolver model(graph.factories, selection);
                    const LiteralDependencyResolver::Table table = model.build(PLUGIN, graph.requested);
                    expected = tableText(table) + resultText(model.decide(table));
                });
            std::string actual;
            const std::vector<std::string> actualAsserts = collectAsserts(
                [&]
                {
                    const DependencyResolver resolver(graph.factories, selection);
                    const VersionRequestTable table = resolver._buildVersionRequestTable(PLUGIN, graph.requested);
                    actual = tableText(table) + resultText(resolver._resolveDependencyRequests(table));
                    largestTable = std::max(largestTable, table.size());
                });
            ASSERT_EQ(actual, expected) << "round " << round;
            ASSERT_EQ(actualAsserts, expectedAsserts) << "round " << round;
        }
    }
    EXPECT_GT(largestTable, 150u) << "the walk must reach most modules";
}

// The conflict check visits only conflicting pairs; it must still report every pair the rule rejects, in
// the order of a check of every pair.
TEST(DependencyResolverModelTest, ConflictsMatchACheckOfEveryPair)
{
    const std::vector<Version> pool = {
        {0, 1, 0},           {0, 1, 0, "beta"},  {1, 0, 0},
        {1, 2, 0},           {1, 2, 0, "beta"},  {1, 3, 0, "beta"},
        {1, 3, 0, "rc.1"},   {1, 3, 0},          {1, 0, 0, "beta.01"},
        {1, 0, 0, "beta.1"}, {1, 9, 0, "alpha"}, {2, 0, 0},
        {2, 1, 0, "beta"},   {3, 0, 0},
    };
    std::mt19937 random(77);
    const auto pick = [&random](size_t count) { return std::uniform_int_distribution<size_t>(0, count - 1)(random); };
    const Factories none;
    for (int round = 0; round < 2000; ++round)
    {
        const size_t count = 1 + pick(round < 1900 ? 12 : 200);
        std::vector<VersionRequestedBy> requests;
        // Few distinct versions in some rounds, so that equal versions and stable runs are common.
        const size_t spread = 1 + pick(pool.size());
        for (size_t i = 0; i < count; ++i)
        {
            const Version& version = pool[pick(spread)];
            requests.push_back({version, version, requestOf(i, {1, 0, 0}), true, false, pick(4) == 0, pick(5) == 0});
        }
        VersionRequestTable table;
        LiteralDependencyResolver::Table literal;
        for (const VersionRequestedBy& request : requests)
        {
            table.add({uuidOf(0), "module"}, request);
        }
        literal.push_back({{uuidOf(0), "module"}, requests});
        std::string expected;
        ASSERT_THAT(collectAsserts([&] { expected = resultText(LiteralDependencyResolver(none, {}).decide(literal)); }),
                    IsEmpty());
        EXPECT_EQ(resultText(DependencyResolver(none, {})._resolveDependencyRequests(table)), expected)
            << "round " << round;
    }
}

// ---- Hostile requests ----

TEST(DependencyResolverTest, TwoModulesNeedingEachOtherTerminateAndReportTheCycle)
{
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0}, {dependencyOn(1, {{1, 0, 0}})}}});
    addModule(factories, 1, {{{1, 0, 0}, {dependencyOn(0, {{1, 0, 0}})}}});
    addModule(factories, 2, {{{1, 0, 0}, {}}});
    for (VersionSelection selection : {VersionSelection::LowestSatisfying, VersionSelection::HighestSatisfying})
    {
        ModuleResolveResult result;
        EXPECT_THAT(collectAsserts(
                        [&]
                        {
                            result = DependencyResolver(factories, selection)
                                         .resolve(PLUGIN, {requestOf(0, {1, 0, 0}), requestOf(2, {1, 0, 0})});
                        }),
                    ElementsAre(CYCLE_TEXT));
        // The cycle is no failure of the request: the modules outside it still come back.
        EXPECT_FALSE(result.hasErrors());
        EXPECT_THAT(namesOf(result.modules), ElementsAre("module_2"));
    }
}

TEST(DependencyResolverTest, LongerCyclesAndSelfDependenciesLeaveOnlyTheModulesOutsideThem)
{
    Factories factories;
    // 0 -> 1 -> 2 -> 3 -> 0, with 4 hanging off the cycle and 5 depending on itself; 6 depends on nothing.
    for (size_t module = 0; module < 4; ++module)
    {
        addModule(factories, module, {{{1, 0, 0}, {dependencyOn((module + 1) % 4, {{1, 0, 0}})}}});
    }
    addModule(factories, 4, {{{1, 0, 0}, {dependencyOn(2, {{1, 0, 0}})}}});
    addModule(factories, 5, {{{1, 0, 0}, {dependencyOn(5, {{1, 0, 0}})}}});
    addModule(factories, 6, {{{1, 0, 0}, {}}});
    ModuleResolveResult result;
    EXPECT_THAT(collectAsserts(
                    [&]
                    {
                        result = DependencyResolver(factories, VersionSelection::HighestSatisfying)
                                     .resolve(PLUGIN, {requestOf(4, {1, 0, 0}), requestOf(5, {1, 0, 0}),
                                                       requestOf(6, {1, 0, 0})});
                    }),
                ElementsAre(CYCLE_TEXT));
    EXPECT_THAT(namesOf(result.modules), ElementsAre("module_6"));
}

TEST(DependencyResolverTest, CycleAcrossVersionsOfOneModuleIsWalkedOnce)
{
    // Each version asks for the other, which the visited list must stop.
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0}, {dependencyOn(0, {{1, 1, 0}})}}, {{1, 1, 0}, {dependencyOn(0, {{1, 0, 0}})}}});
    const DependencyResolver resolver(factories, VersionSelection::LowestSatisfying);
    VersionRequestTable table;
    EXPECT_THAT(collectAsserts(
                    [&] {
                        table = resolver._buildVersionRequestTable(PLUGIN, {requestOf(0, {1, 0, 0})});
                    }),
                IsEmpty());
    ASSERT_EQ(table.size(), 1u);
    EXPECT_EQ(tableText(table), "module_0{00000000-0000-1000-0000-000000000001}:\n"
                                "  1.0.0 asked 1.0.0 by plugin{00000000-0000-feed-0000-000000000001}@1.0.0 1010\n"
                                "  1.1.0 asked 1.1.0 by module_0{00000000-0000-1000-0000-000000000001}@1.0.0 1000\n"
                                "  1.0.0 asked 1.0.0 by module_0{00000000-0000-1000-0000-000000000001}@1.1.0 1000\n");
}

TEST(DependencyResolverTest, RequestByAliasIsMatchedByUuidAndReportedUnderTheRequestedName)
{
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0}, {}}});
    ModuleDescriptor byAlias = requestOf(0, {1, 0, 0});
    byAlias.name = "old_name";
    const ModuleResolveResult result =
        DependencyResolver(factories, VersionSelection::HighestSatisfying).resolve(PLUGIN, {byAlias});
    ASSERT_FALSE(result.hasErrors());
    ASSERT_EQ(result.modules.size(), 1u);
    EXPECT_EQ(result.modules[0].name, "old_name");
    EXPECT_EQ(result.modules[0].uuid, uuidOf(0));

    // A name alone finds nothing: looking names up is the engine's job.
    ModuleDescriptor byNameOnly = requestOf(0, {1, 0, 0});
    byNameOnly.uuid = quv::UUID::EMPTY;
    const ModuleResolveResult missing =
        DependencyResolver(factories, VersionSelection::HighestSatisfying).resolve(PLUGIN, {byNameOnly});
    EXPECT_TRUE(missing.hasErrors());
    ASSERT_EQ(missing.missingModules.size(), 1u);
    EXPECT_EQ(missing.missingModules[0].module.name, "module_0");
}

TEST(DependencyResolverTest, PrereleaseOnlyModuleMeetsOnlyItsOwnPrereleases)
{
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0, "beta"}, {}}, {{1, 1, 0, "beta"}, {}}});
    for (VersionSelection selection : {VersionSelection::LowestSatisfying, VersionSelection::HighestSatisfying})
    {
        const DependencyResolver resolver(factories, selection);
        // A stable request is never met by a prerelease when the resolver decides alone.
        const ModuleResolveResult stable = resolver.resolve(PLUGIN, {requestOf(0, {1, 0, 0})});
        EXPECT_TRUE(stable.hasErrors());
        EXPECT_EQ(stable.missingVersions.size(), 1u);
        EXPECT_THAT(stable.promotions, IsEmpty());

        const ModuleResolveResult exact = resolver.resolve(PLUGIN, {requestOf(0, {1, 1, 0, "beta"})});
        ASSERT_FALSE(exact.hasErrors()) << exact.getErrorText();
        EXPECT_EQ(exact.modules[0].version, Version(1, 1, 0, "beta"));

        // Two betas of one tag never stand in for each other.
        const ModuleResolveResult twoBetas =
            resolver.resolve(PLUGIN, {requestOf(0, {1, 0, 0, "beta"}), requestOf(0, {1, 1, 0, "beta"})});
        EXPECT_EQ(twoBetas.conflicts.size(), 1u);
        EXPECT_THAT(twoBetas.modules, IsEmpty());
    }
}

TEST(DependencyResolverTest, ConflictingRequestersAreBothNamedInTheText)
{
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0}, {dependencyOn(2, {{1, 0, 0}})}}});
    addModule(factories, 1, {{{1, 0, 0}, {dependencyOn(2, {{2, 0, 0}})}}});
    addModule(factories, 2, {{{1, 0, 0}, {}}, {{2, 0, 0}, {}}});
    const ModuleResolveResult result = DependencyResolver(factories, VersionSelection::HighestSatisfying)
                                           .resolve(PLUGIN, {requestOf(1, {1, 0, 0}), requestOf(0, {1, 0, 0})});
    ASSERT_EQ(result.conflicts.size(), 1u);
    EXPECT_THAT(result.modules, IsEmpty());
    EXPECT_THAT(result.missingVersions, IsEmpty());
    EXPECT_EQ(result.getErrorText(), "\n§cConflicting Modules: "
                                     "\n    [module_2]"
                                     "\n    §c[module_2 - 1.0.0] requested by [module_0 - 1.0.0]"
                                     "\n    §c[module_2 - 2.0.0] requested by [module_1 - 1.0.0]");
}

TEST(DependencyResolverTest, ErrorTextListsEveryFailureUnderItsHeading)
{
    ModuleResolveResult result;
    const ModuleDescriptor nameless{"", quv::UUID::fromString("91bbd0a5-535d-46fe-b144-6bcb4bbca1dd"), {}, false};
    result.missingModules.push_back({{"ghost", uuidOf(9), {0, 0, 1}, false}, nameless});
    result.missingModules.push_back({{"ghost", uuidOf(9), {}, false}, PLUGIN});
    result.missingVersions.push_back({{"module_0", uuidOf(0), {1, 2, 0, "rc.1"}, false}, PLUGIN});
    result.conflicts.push_back({{"module_1", uuidOf(1), {}, false},
                                PLUGIN,
                                nameless,
                                {"module_1", uuidOf(1), {1, 0, 0}, false},
                                {"module_1", uuidOf(1), {0, 0, 0, "beta"}, false}});
    EXPECT_TRUE(result.hasErrors());
    EXPECT_EQ(result.getErrorText(), "\n§cMissing Modules: "
                                     "\n    §c[ghost - 0.0.1] requested by [91bbd0a5-535d-46fe-b144-6bcb4bbca1dd]"
                                     "\n    §c[ghost] requested by [plugin - 1.0.0]"
                                     "\n§cMissing Versioned Modules: "
                                     "\n    §c[module_0 - 1.2.0-rc.1] requested by [plugin - 1.0.0]"
                                     "\n§cConflicting Modules: "
                                     "\n    [module_1]"
                                     "\n    §c[module_1 - 1.0.0] requested by [plugin - 1.0.0]"
                                     "\n    §c[module_1] requested by [91bbd0a5-535d-46fe-b144-6bcb4bbca1dd]");

    // Promotions are no failure.
    ModuleResolveResult promoted;
    promoted.promotions.push_back({{"module_0", uuidOf(0), {}, false}, PLUGIN, {1, 0, 0}, {1, 1, 0}});
    EXPECT_FALSE(promoted.hasErrors());
    EXPECT_EQ(promoted.getErrorText(), "");
}

TEST(DependencyResolverTest, UnknownSelectionGivesNothingOutAndReportsNothing)
{
    Factories factories;
    addModule(factories, 0, {{{1, 1, 0}, {}}, {{1, 0, 0}, {}}});
    const DependencyResolver resolver(factories, static_cast<VersionSelection>(2));
    const VersionRequestTable table = resolver._buildVersionRequestTable(PLUGIN, {requestOf(0, {1, 0, 0})});
    // No version counts as found, so the offered one that first satisfies the request, in the factory's
    // order, is recorded as a promotion to itself; the plain request, last among equals, is then decided on
    // and is neither available nor missing.
    EXPECT_EQ(tableText(table), "module_0{00000000-0000-1000-0000-000000000001}:\n"
                                "  1.0.0 asked 1.0.0 by plugin{00000000-0000-feed-0000-000000000001}@1.0.0 1011\n"
                                "  1.0.0 asked 1.0.0 by plugin{00000000-0000-feed-0000-000000000001}@1.0.0 0010\n");
    const ModuleResolveResult result = resolver._resolveDependencyRequests(table);
    EXPECT_FALSE(result.hasErrors());
    EXPECT_THAT(result.modules, IsEmpty());
}

TEST(DependencyResolverTest, DependencyWithoutVersionsIsReportedAndCountsAsMet)
{
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0}, {dependencyOn(1, {})}}});
    addModule(factories, 1, {{{1, 0, 0}, {}}});
    ModuleResolveResult result;
    EXPECT_THAT(collectAsserts(
                    [&]
                    {
                        result = DependencyResolver(factories, VersionSelection::HighestSatisfying)
                                     .resolve(PLUGIN, {requestOf(0, {1, 0, 0})});
                    }),
                ElementsAre("Expect dependency module_1 to be dependency set", CYCLE_TEXT));
    // Nobody requested module_1, so module_0 waits for it forever.
    EXPECT_THAT(result.modules, IsEmpty());
}

// A factory whose dependency set changes between two calls leaves a set that its strict dependency cannot
// meet; the build must stop instead of walking the same set forever.
class ShiftingFactory final : public IModuleBindingFactory
{
public:
    std::string getName() const override { return "shifting"; }
    quv::UUID getUUID() const override { return uuidOf(5); }
    bool isAlias(const std::string&) const override { return false; }
    std::vector<Version> getSupportedVersions() const override { return {{1, 0, 0}}; }
    std::vector<ModuleDependency> getDependencies(Version) const override
    {
        const uint16_t major = static_cast<uint16_t>(++mCalls);
        return {dependencyOn(0, {{major, 0, 0}, {major, 1, 0}})};
    }
    std::optional<ModuleBinding> createModuleBinding(Version, const std::optional<ContextConfig>&) override
    {
        return ModuleBinding();
    }

private:
    mutable int mCalls = 0;
};

TEST(DependencyResolverTest, SetThatNoStrictDependencyMeetsStopsTheBuild)
{
    Factories factories;
    factories.push_back(std::make_unique<ShiftingFactory>());
    VersionRequestTable table;
    const std::vector<std::string> asserts = collectAsserts(
        [&]
        {
            table = DependencyResolver(factories, VersionSelection::LowestSatisfying)
                        ._buildVersionRequestTable(PLUGIN, {{"shifting", uuidOf(5), {1, 0, 0}, false}});
        });
    EXPECT_THAT(asserts, ElementsAre("Should have satisfied at least one more dependency set after adding a "
                                     "strict dependency: shifting"));
}

// Runs `body` on a thread with a small stack, so that recursion whose depth follows the input would crash.
void runOnSmallStack(const std::function<void()>& body)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    auto* function = const_cast<std::function<void()>*>(&body);
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void* argument) -> void*
                  {
                      (*static_cast<std::function<void()>*>(argument))();
                      return nullptr;
                  },
                  function),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(DependencyResolverTest, ChainOfTenThousandModulesResolvesOnASmallStack)
{
    constexpr size_t CHAIN = 10000;
    Factories factories;
    for (size_t module = 0; module < CHAIN; ++module)
    {
        std::vector<ModuleDependency> next;
        if (module + 1 < CHAIN)
        {
            // Asks for a lower version than offered, so that every link is also promoted.
            next.push_back(dependencyOn(module + 1, {{1, 0, 0}}));
        }
        addModule(factories, module, {{{1, 0, 0}, next}, {{1, 1, 0}, next}});
    }
    ModuleResolveResult result;
    std::vector<std::string> asserts;
    runOnSmallStack(
        [&]
        {
            asserts = collectAsserts(
                [&]
                {
                    result = DependencyResolver(factories, VersionSelection::HighestSatisfying)
                                 .resolve(PLUGIN, {requestOf(0, {1, 0, 0})});
                });
        });
    EXPECT_THAT(asserts, IsEmpty());
    ASSERT_FALSE(result.hasErrors());
    ASSERT_EQ(result.modules.size(), CHAIN);
    EXPECT_EQ(result.promotions.size(), 2 * CHAIN - 1);
    for (size_t i = 0; i < CHAIN; ++i)
    {
        ASSERT_EQ(result.modules[i].name, nameOf(CHAIN - 1 - i));
        ASSERT_EQ(result.modules[i].version, Version(1, 1, 0));
    }
}

TEST(DependencyResolverTest, ModuleEveryoneDependsOnIsDecidedOnce)
{
    // A thousand requesters of one module at stable versions of one major, and one explicit beta above them.
    constexpr size_t REQUESTERS = 1000;
    Factories factories;
    addModule(factories, 0, {{{1, 0, 0}, {}}, {{1, 5, 0}, {}}, {{1, 9, 0, "beta"}, {}}});
    std::vector<ModuleDescriptor> requested = {requestOf(0, {1, 9, 0, "beta"})};
    for (size_t module = 1; module <= REQUESTERS; ++module)
    {
        addModule(factories, module, {{{1, 0, 0}, {dependencyOn(0, {{1, static_cast<uint16_t>(module % 6), 0}})}}});
        requested.push_back(requestOf(module, {1, 0, 0}));
    }
    const ModuleResolveResult result =
        DependencyResolver(factories, VersionSelection::LowestSatisfying).resolve(PLUGIN, requested);
    ASSERT_FALSE(result.hasErrors()) << result.getErrorText().substr(0, 500);
    ASSERT_EQ(result.modules.size(), REQUESTERS + 1);
    EXPECT_EQ(result.modules.front().name, "module_0");
    EXPECT_EQ(result.modules.front().version, Version(1, 9, 0, "beta"));
}

// Counts what the resolver asks a factory for; answers as the factory it wraps.
class CountingFactory final : public IModuleBindingFactory
{
public:
    explicit CountingFactory(std::unique_ptr<IModuleBindingFactory> inner) : mInner(std::move(inner)) {}

    std::string getName() const override
    {
        ++nameCalls;
        return mInner->getName();
    }
    quv::UUID getUUID() const override { return mInner->getUUID(); }
    bool isAlias(const std::string& name) const override { return mInner->isAlias(name); }
    std::vector<Version> getSupportedVersions() const override
    {
        ++versionCalls;
        return mInner->getSupportedVersions();
    }
    std::vector<ModuleDependency> getDependencies(Version version) const override
    {
        return mInner->getDependencies(std::move(version));
    }
    std::optional<ModuleBinding> createModuleBinding(Version version,
                                                     const std::optional<ContextConfig>& config) override
    {
        return mInner->createModuleBinding(std::move(version), config);
    }

    mutable int nameCalls = 0;
    mutable int versionCalls = 0;

private:
    std::unique_ptr<IModuleBindingFactory> mInner;
};

TEST(DependencyResolverTest, AModuleRequestedByManyAsksItsFactoryForVersionsOncePerResolve)
{
    constexpr size_t REQUESTERS = 200;
    for (const VersionSelection selection : {VersionSelection::LowestSatisfying, VersionSelection::HighestSatisfying})
    {
        Factories factories;
        addModule(factories, 0, {{{1, 0, 0}, {}}, {{1, 2, 0}, {}}, {{1, 4, 0}, {}}});
        factories.back() = std::make_unique<CountingFactory>(std::move(factories.back()));
        const auto& shared = static_cast<const CountingFactory&>(*factories.back());
        std::vector<ModuleDescriptor> requested;
        for (size_t module = 1; module <= REQUESTERS; ++module)
        {
            // Versions offered and not, so that requests are met and promoted in turn.
            const auto minor = static_cast<uint16_t>(module % 5);
            addModule(factories, module, {{{1, 0, 0}, {dependencyOn(0, {{1, minor, 0}})}}});
            requested.push_back(requestOf(module, {1, 0, 0}));
        }
        const ModuleResolveResult result = DependencyResolver(factories, selection).resolve(PLUGIN, requested);
        ASSERT_FALSE(result.hasErrors()) << result.getErrorText().substr(0, 500);
        ASSERT_EQ(result.modules.size(), REQUESTERS + 1);
        EXPECT_EQ(result.modules.front().version, Version(1, 4, 0));
        EXPECT_EQ(shared.versionCalls, 1);
        EXPECT_LE(shared.nameCalls, 1);
    }
}
} // namespace
