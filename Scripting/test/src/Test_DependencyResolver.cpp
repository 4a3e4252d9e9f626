#include "Scripting/ScriptEngine/DependencyResolver.h"

#include "TestEmptyModuleBindingFactory.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_DependencyResolverTests);
struct Scripting_DependencyResolverTestsBase : ZentaryUnitTest::TestClass<Scripting_DependencyResolverTests>
{
    using Factories = std::vector<std::unique_ptr<IModuleBindingFactory>>;
    using Versions = TestEmptyModuleBindingFactory::Versions;
    using ExpectedModules = std::vector<std::pair<std::string, Version>>;

    static constexpr VersionSelection SELECTIONS[] = {VersionSelection::LowestSatisfying,
                                                      VersionSelection::HighestSatisfying};

    const quv::UUID mPluginUuid = quv::UUID::fromString("bc0f2801-7994-463a-85d0-8c6fa4ca10b5");
    const quv::UUID mUuid1 = quv::UUID::fromString("91bbd0a5-535d-46fe-b144-6bcb4bbca1dd");
    const quv::UUID mUuid2 = quv::UUID::fromString("91bbd0a5-535d-46fe-b144-6bcb4bbca1de");
    const quv::UUID mUuid3 = quv::UUID::fromString("087129b3-5510-4c67-ba9c-94b9b6407ed6");
    const quv::UUID mUuid4 = quv::UUID::fromString("6ca8d362-d2da-4de5-b14a-c73e70ffcdbb");
    const quv::UUID mUuid5 = quv::UUID::fromString("91bbd0a5-535d-46fe-b144-6bcb4bbca1dc");
    const quv::UUID mModuleCUuid = quv::UUID::fromString("59c7b4ff-6c0a-43b1-9501-f2128cf0caf4");

    static void add(Factories& factories, std::string name, const quv::UUID& uuid, Versions versions)
    {
        factories.push_back(
            std::make_unique<TestEmptyModuleBindingFactory>(std::move(name), uuid, std::move(versions)));
    }

    static ModuleDependency dependency(std::string name, const quv::UUID& uuid, std::vector<Version> versions,
                                       bool inheritsExplicit = false)
    {
        return ModuleDependency{std::move(name), uuid, std::move(versions), false, inheritsExplicit};
    }

    static ModuleDescriptor request(std::string name, const quv::UUID& uuid, Version version)
    {
        return ModuleDescriptor{std::move(name), uuid, std::move(version), false};
    }

    ModuleResolveResult resolve(const Factories& factories, VersionSelection selection,
                                const std::vector<ModuleDescriptor>& requested) const
    {
        return DependencyResolver(factories, selection)
            .resolve(ModuleDescriptor{"plugin", mPluginUuid, Version(1, 0, 0), false}, requested);
    }

    static const char* nameOf(VersionSelection selection)
    {
        return selection == VersionSelection::HighestSatisfying ? "HighestSatisfying" : "LowestSatisfying";
    }

    static void checkVersion(const Version& actual, const Version& expected, const std::string& what)
    {
        Assert::AreEqual(actual.Major, expected.Major, false, "Unexpected major version of {}", what);
        Assert::AreEqual(actual.Minor, expected.Minor, false, "Unexpected minor version of {}", what);
        Assert::AreEqual(actual.Patch, expected.Patch, false, "Unexpected patch version of {}", what);
        Assert::AreEqual(actual.Prerelease, expected.Prerelease, false, "Unexpected prerelease of {}", what);
    }

    // A success: no failure at all, and exactly these modules in this order.
    static void checkModules(const ModuleResolveResult& result, const ExpectedModules& expected,
                             VersionSelection selection)
    {
        Assert::IsFalse(result.hasErrors(), false, "{}: unexpected failures:{}", nameOf(selection),
                        result.getErrorText());
        Assert::IsTrue(result.missingModules.empty() && result.missingVersions.empty() && result.conflicts.empty());
        Assert::AreEqual(result.modules.size(), expected.size(), true, "{}: number of modules", nameOf(selection));
        for (size_t i = 0; i < expected.size(); ++i)
        {
            Assert::AreEqual(result.modules[i].name, expected[i].first, false, "{}: module {}", nameOf(selection), i);
            checkVersion(result.modules[i].version, expected[i].second,
                         std::string(nameOf(selection)) + " " + expected[i].first);
            Assert::IsFalse(result.modules[i].isInternal);
        }
    }

    static void checkFailed(const ModuleResolveResult& result, VersionSelection selection)
    {
        Assert::IsTrue(result.hasErrors(), false, "{}: expected a failure", nameOf(selection));
        Assert::IsTrue(result.modules.empty(), false, "{}: a failed resolve creates nothing", nameOf(selection));
    }

    static void checkPromotion(const ModuleVersionPromotion& promotion, const std::string& module, const Version& from,
                               const Version& to)
    {
        Assert::AreEqual(promotion.module.name, module);
        Assert::IsFalse(promotion.module.version.isValid(), false, "a promotion names the module without version");
        Assert::AreEqual(promotion.requestedBy.name, std::string("plugin"));
        checkVersion(promotion.fromVersion, from, "promotion source");
        checkVersion(promotion.toVersion, to, "promotion target");
    }

    // "test_module_1" offering versions 1.<minor>.0 for each minor given, without dependencies.
    Factories singleModule(const std::vector<Version>& offered) const
    {
        Versions versions;
        for (const Version& version : offered)
        {
            versions.emplace(version, std::vector<ModuleDependency>());
        }
        Factories factories;
        add(factories, "test_module_1", mUuid1, std::move(versions));
        return factories;
    }

    static std::vector<Version> minors(uint16_t first, uint16_t last)
    {
        std::vector<Version> versions;
        for (uint16_t minor = first; minor <= last; ++minor)
        {
            versions.emplace_back(1, minor, 0);
        }
        return versions;
    }

    std::vector<ModuleDescriptor> requestsOfModule1(const std::vector<Version>& versions) const
    {
        std::vector<ModuleDescriptor> requested;
        for (const Version& version : versions)
        {
            requested.push_back(request("test_module_1", mUuid1, version));
        }
        return requested;
    }

    // "test_module_1" and "test_module_2" with their nested modules. An outer module carries its explicit
    // request down to its nested module; "test_module_2_nested" builds on "test_module_1".
    Factories nestedModules() const
    {
        const auto nested1 = [this](Version version)
        { return std::vector{dependency("test_module_1_nested", mUuid2, {std::move(version)}, true)}; };
        const auto nested2 = [this](Version version)
        { return std::vector{dependency("test_module_2_nested", mUuid4, {std::move(version)}, true)}; };
        const std::vector<ModuleDependency> onModule1 = {dependency("test_module_1", mUuid1, {{1, 1, 0}})};
        Factories factories;
        add(factories, "test_module_1", mUuid1,
            {{{1, 0, 0}, nested1({1, 0, 0})},
             {{1, 1, 0}, nested1({1, 1, 0})},
             {{1, 2, 0, "beta"}, nested1({1, 2, 0, "beta"})}});
        add(factories, "test_module_1_nested", mUuid2, {{{1, 0, 0}, {}}, {{1, 1, 0}, {}}, {{1, 2, 0, "beta"}, {}}});
        add(factories, "test_module_2", mUuid3,
            {{{1, 0, 0}, nested2({1, 0, 0})}, {{1, 1, 0, "beta"}, nested2({1, 1, 0, "beta"})}});
        add(factories, "test_module_2_nested", mUuid4, {{{1, 0, 0}, onModule1}, {{1, 1, 0, "beta"}, onModule1}});
        return factories;
    }

    void checkNested(const Version& requested1, const Version& requested2, const Version& expected1,
                     const Version& expected2) const
    {
        const Factories factories = nestedModules();
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result =
                resolve(factories, selection,
                        {request("test_module_2", mUuid3, requested2), request("test_module_1", mUuid1, requested1)});
            checkModules(result,
                         {{"test_module_1_nested", expected1},
                          {"test_module_1", expected1},
                          {"test_module_2_nested", expected2},
                          {"test_module_2", expected2}},
                         selection);
        }
    }

    // "common", "server" with stable and prerelease versions, and "vorbench", which takes any of a set of
    // "server" versions.
    Factories zentaryModules() const
    {
        const std::vector<ModuleDependency> onCommon = {dependency("common", mUuid1, {{1, 2, 0}})};
        Factories factories;
        add(factories, "common", mUuid1, {{{1, 0, 0}, {}}, {{1, 1, 0}, {}}, {{1, 2, 0}, {}}});
        add(factories, "server", mUuid2,
            {{{1, 0, 0}, {dependency("common", mUuid1, {{1, 0, 0}})}},
             {{1, 1, 0}, onCommon},
             {{1, 2, 0, "beta"}, onCommon},
             {{2, 0, 0, "alpha"}, onCommon}});
        add(factories, "vorbench", mUuid3,
            {{{1, 0, 0}, {dependency("server", mUuid2, {{2, 0, 0, "alpha"}, {1, 1, 0}, {1, 2, 0, "beta"}})}}});
        return factories;
    }

    void checkZentary(const std::vector<ModuleDescriptor>& extraRequests, const Version& expectedServer) const
    {
        const Factories factories = zentaryModules();
        std::vector<ModuleDescriptor> requested = extraRequests;
        requested.push_back(request("vorbench", mUuid3, {1, 0, 0}));
        for (VersionSelection selection : SELECTIONS)
        {
            checkModules(resolve(factories, selection, requested),
                         {{"common", {1, 2, 0}}, {"server", expectedServer}, {"vorbench", {1, 0, 0}}}, selection);
        }
    }
};

class Scripting_DependencyResolverTests final : public Scripting_DependencyResolverTestsBase
{
    ZUT_TEST(SingleModuleWithOneVersion_SingleRequestExactVersion_Success)
    {
        const Factories factories = singleModule({{1, 0, 0}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 0, 0}}));
            checkModules(result, {{"test_module_1", {1, 0, 0}}}, selection);
            Assert::IsTrue(result.promotions.empty());
            Assert::IsTrue(result.modules.front().uuid == mUuid1);
        }
    }

    ZUT_TEST(SingleModuleWithTwoVersions_SingleRequestLowerVersion_Success)
    {
        const Factories factories = singleModule({{1, 2, 0}, {1, 5, 0}});
        const ModuleResolveResult highest =
            resolve(factories, VersionSelection::HighestSatisfying, requestsOfModule1({{1, 2, 0}}));
        checkModules(highest, {{"test_module_1", {1, 5, 0}}}, VersionSelection::HighestSatisfying);
        Assert::AreEqual(highest.promotions.size(), size_t{1}, true);
        checkPromotion(highest.promotions.front(), "test_module_1", {1, 2, 0}, {1, 5, 0});

        const ModuleResolveResult lowest =
            resolve(factories, VersionSelection::LowestSatisfying, requestsOfModule1({{1, 2, 0}}));
        checkModules(lowest, {{"test_module_1", {1, 2, 0}}}, VersionSelection::LowestSatisfying);
        Assert::IsTrue(lowest.promotions.empty());
    }

    ZUT_TEST(SingleModuleWithThreeVersions_TwoRequestsForExactLowerVersions_Success)
    {
        const Factories factories = singleModule({{1, 0, 0}, {1, 1, 0}, {1, 5, 0}});
        const std::vector<ModuleDescriptor> requested = requestsOfModule1({{1, 1, 0}, {1, 0, 0}});
        const ModuleResolveResult highest = resolve(factories, VersionSelection::HighestSatisfying, requested);
        checkModules(highest, {{"test_module_1", {1, 5, 0}}}, VersionSelection::HighestSatisfying);
        Assert::AreEqual(highest.promotions.size(), size_t{2}, true);
        // Requests are taken in order of version, whatever the caller's order.
        checkPromotion(highest.promotions[0], "test_module_1", {1, 0, 0}, {1, 5, 0});
        checkPromotion(highest.promotions[1], "test_module_1", {1, 1, 0}, {1, 5, 0});

        const ModuleResolveResult lowest = resolve(factories, VersionSelection::LowestSatisfying, requested);
        checkModules(lowest, {{"test_module_1", {1, 1, 0}}}, VersionSelection::LowestSatisfying);
        Assert::AreEqual(lowest.promotions.size(), size_t{1}, true);
        checkPromotion(lowest.promotions.front(), "test_module_1", {1, 0, 0}, {1, 1, 0});
    }

    ZUT_TEST(SingleModuleWithManyVersions_SingleRequestMidVersion_Success)
    {
        const Factories factories = singleModule(minors(1, 5));
        const ModuleResolveResult highest =
            resolve(factories, VersionSelection::HighestSatisfying, requestsOfModule1({{1, 2, 0}}));
        checkModules(highest, {{"test_module_1", {1, 5, 0}}}, VersionSelection::HighestSatisfying);
        Assert::AreEqual(highest.promotions.size(), size_t{1});

        const ModuleResolveResult lowest =
            resolve(factories, VersionSelection::LowestSatisfying, requestsOfModule1({{1, 2, 0}}));
        checkModules(lowest, {{"test_module_1", {1, 2, 0}}}, VersionSelection::LowestSatisfying);
        Assert::IsTrue(lowest.promotions.empty());
    }

    ZUT_TEST(SingleModuleWithManyVersions_SingleRequestHighestVersion_Success)
    {
        const Factories factories = singleModule(minors(1, 5));
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 5, 0}}));
            checkModules(result, {{"test_module_1", {1, 5, 0}}}, selection);
            Assert::IsTrue(result.promotions.empty(), false, "{}", nameOf(selection));
        }
    }

    ZUT_TEST(SingleModuleWithManyVersions_MultipleVersionRequests_Success)
    {
        const Factories factories = singleModule(minors(0, 5));
        const std::vector<ModuleDescriptor> requested = requestsOfModule1({{1, 3, 0}, {1, 0, 0}, {1, 2, 0}, {1, 1, 0}});
        const ModuleResolveResult highest = resolve(factories, VersionSelection::HighestSatisfying, requested);
        checkModules(highest, {{"test_module_1", {1, 5, 0}}}, VersionSelection::HighestSatisfying);
        Assert::AreEqual(highest.promotions.size(), size_t{4});

        const ModuleResolveResult lowest = resolve(factories, VersionSelection::LowestSatisfying, requested);
        checkModules(lowest, {{"test_module_1", {1, 3, 0}}}, VersionSelection::LowestSatisfying);
        Assert::AreEqual(lowest.promotions.size(), size_t{3});
    }

    ZUT_TEST(SingleModuleWithManyMajorVersions_MultipleVersionRequestsWithinSameMajorVersion_Success)
    {
        std::vector<Version> offered = minors(0, 5);
        offered.emplace_back(2, 5, 0);
        offered.emplace_back(3, 5, 0);
        const Factories factories = singleModule(offered);
        const std::vector<ModuleDescriptor> requested = requestsOfModule1({{1, 1, 0}, {1, 3, 0}});
        checkModules(resolve(factories, VersionSelection::HighestSatisfying, requested), {{"test_module_1", {1, 5, 0}}},
                     VersionSelection::HighestSatisfying);
        checkModules(resolve(factories, VersionSelection::LowestSatisfying, requested), {{"test_module_1", {1, 3, 0}}},
                     VersionSelection::LowestSatisfying);
    }

    ZUT_TEST(SingleModuleWithSingleVersion_SingleRequestForMissingHigherMinorVersion_FailVersionMissing)
    {
        const Factories factories = singleModule({{1, 1, 0}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 2, 0}}));
            checkFailed(result, selection);
            Assert::IsTrue(result.promotions.empty());
            Assert::IsTrue(result.missingModules.empty() && result.conflicts.empty());
            Assert::AreEqual(result.missingVersions.size(), size_t{1}, true);
            checkVersion(result.missingVersions.front().module.version, {1, 2, 0}, "the missing version");
            Assert::AreEqual(result.getErrorText(),
                             std::string("\n§cMissing Versioned Modules: "
                                         "\n    §c[test_module_1 - 1.2.0] requested by [plugin - 1.0.0]"));
        }
    }

    ZUT_TEST(SingleModuleWithSingleVersion_SingleRequestForMissingLowerMinorVersion_SuccessPromotionValid)
    {
        const Factories factories = singleModule({{1, 5, 0}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 1, 0}}));
            checkModules(result, {{"test_module_1", {1, 5, 0}}}, selection);
            Assert::AreEqual(result.promotions.size(), size_t{1}, true);
            checkPromotion(result.promotions.front(), "test_module_1", {1, 1, 0}, {1, 5, 0});
        }
    }

    ZUT_TEST(SingleModuleWithSingleHighBetaVersion_SingleRequestForMissingStableLowerMinorVersion_FailPromotion)
    {
        const Factories factories = singleModule({{1, 5, 0, "beta"}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 4, 0}}));
            checkFailed(result, selection);
            Assert::AreEqual(result.missingVersions.size(), size_t{1});
            Assert::IsTrue(result.conflicts.empty() && result.promotions.empty() && result.missingModules.empty());
        }
    }

    ZUT_TEST(SingleModuleWithStableAndBetaVersions_RequestLowerStableVersion_FailDoesNotPromoteStableToBeta)
    {
        const Factories factories = singleModule({{1, 4, 0}, {1, 5, 0, "beta"}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 4, 0}}));
            checkModules(result, {{"test_module_1", {1, 4, 0}}}, selection);
            Assert::IsTrue(result.promotions.empty(), false, "{}", nameOf(selection));
        }
    }

    ZUT_TEST(SingleModuleWithManyVersion_MultiplesRequestsForMissingLowerMinorVersion_SuccessPromotionValid)
    {
        const Factories factories = singleModule(minors(5, 7));
        const std::vector<ModuleDescriptor> requested = requestsOfModule1({{1, 1, 0}, {1, 2, 0}, {1, 3, 0}});
        const ModuleResolveResult highest = resolve(factories, VersionSelection::HighestSatisfying, requested);
        checkModules(highest, {{"test_module_1", {1, 7, 0}}}, VersionSelection::HighestSatisfying);
        const ModuleResolveResult lowest = resolve(factories, VersionSelection::LowestSatisfying, requested);
        checkModules(lowest, {{"test_module_1", {1, 5, 0}}}, VersionSelection::LowestSatisfying);
        for (const ModuleResolveResult* result : {&highest, &lowest})
        {
            Assert::AreEqual(result->promotions.size(), size_t{3});
            Assert::IsTrue(result->missingVersions.empty());
        }
    }

    ZUT_TEST(SingleModuleWithOneVersion_RequestMissingMajorVersion_MissingVersionResult)
    {
        const Factories factories = singleModule({{1, 0, 0}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{2, 0, 0}}));
            checkFailed(result, selection);
            Assert::AreEqual(result.missingVersions.size(), size_t{1}, true);
            checkVersion(result.missingVersions.front().module.version, {2, 0, 0}, "the missing version");
            Assert::AreEqual(result.missingVersions.front().requestedBy.name, std::string("plugin"));
        }
    }

    ZUT_TEST(SingleModuleWithMultipleMajorVersions_RequestMultipleMajorVersion_FailMajorVersionConflictResult)
    {
        const Factories factories = singleModule({{1, 1, 0}, {2, 2, 0}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{2, 2, 0}, {1, 1, 0}}));
            checkFailed(result, selection);
            Assert::IsTrue(result.missingVersions.empty() && result.missingModules.empty());
            Assert::AreEqual(result.conflicts.size(), size_t{1}, true);
            const ModuleVersionConflict& conflict = result.conflicts.front();
            Assert::IsFalse(conflict.module.version.isValid());
            checkVersion(conflict.firstRequested.version, {1, 1, 0}, "the first request");
            checkVersion(conflict.secondRequested.version, {2, 2, 0}, "the second request");
            Assert::AreEqual(result.getErrorText(),
                             std::string("\n§cConflicting Modules: "
                                         "\n    [test_module_1]"
                                         "\n    §c[test_module_1 - 1.1.0] requested by [plugin - 1.0.0]"
                                         "\n    §c[test_module_1 - 2.2.0] requested by [plugin - 1.0.0]"));
        }
    }

    ZUT_TEST(MultiModuleWithStableAndMultipleBetaVersions_RequestLowerBeta_FailDoesNotPromoteHigherBeta)
    {
        Factories factories;
        add(factories, "module_a", mUuid1, {{{1, 0, 0}, {dependency("module_b", mUuid2, {{1, 6, 0}})}}});
        add(factories, "module_b", mUuid2, {{{1, 5, 0, "beta"}, {}}, {{1, 6, 0, "beta"}, {}}, {{1, 6, 0}, {}}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result =
                resolve(factories, selection,
                        {request("module_a", mUuid1, {1, 0, 0}), request("module_b", mUuid2, {1, 5, 0, "beta"})});
            checkFailed(result, selection);
            Assert::AreEqual(result.conflicts.size(), size_t{1}, false, "{}", nameOf(selection));
        }
    }

    ZUT_TEST(UserRequestBeta_SuccessPromoteDependencyFromStableToBeta)
    {
        Factories factories;
        add(factories, "module_a", mUuid1, {{{1, 0, 0}, {dependency("module_b", mUuid2, {{1, 5, 0}})}}});
        add(factories, "module_b", mUuid2, {{{1, 4, 0}, {}}, {{1, 5, 0}, {}}, {{1, 6, 0, "beta"}, {}}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result =
                resolve(factories, selection,
                        {request("module_b", mUuid2, {1, 6, 0, "beta"}), request("module_a", mUuid1, {1, 0, 0})});
            checkModules(result, {{"module_b", {1, 6, 0, "beta"}}, {"module_a", {1, 0, 0}}}, selection);
            Assert::AreEqual(result.promotions.size(), size_t{1}, true);
            checkVersion(result.promotions.front().fromVersion, {1, 5, 0}, "promotion source");
            checkVersion(result.promotions.front().toVersion, {1, 6, 0, "beta"}, "promotion target");
            Assert::AreEqual(result.promotions.front().requestedBy.name, std::string("module_a"));
        }
    }

    ZUT_TEST(ModuleRequestBeta_FailCannotPromoteStableToBetaUnlessUserAsks)
    {
        // The dependent module once walked before and once after the user's own request for "module_b".
        for (const char* dependent : {"module_a", "module_c"})
        {
            Factories factories;
            add(factories, dependent, mUuid1, {{{1, 0, 0}, {dependency("module_b", mUuid2, {{1, 6, 0, "beta"}})}}});
            add(factories, "module_b", mUuid2, {{{1, 5, 0}, {}}, {{1, 6, 0, "beta"}, {}}});
            for (VersionSelection selection : SELECTIONS)
            {
                const ModuleResolveResult result =
                    resolve(factories, selection,
                            {request(dependent, mUuid1, {1, 0, 0}), request("module_b", mUuid2, {1, 5, 0})});
                checkFailed(result, selection);
                Assert::AreEqual(result.conflicts.size(), size_t{1}, false, "{} with {}", nameOf(selection), dependent);
            }
        }
    }

    ZUT_TEST(ModulesRequestBetaAndStable_SuccessIfUserProvidesExplicitRequestForBeta)
    {
        Factories factories;
        add(factories, "module_a", mUuid1, {{{1, 0, 0}, {dependency("module_c", mModuleCUuid, {{1, 5, 0}})}}});
        add(factories, "module_b", mUuid2, {{{1, 0, 0}, {dependency("module_c", mModuleCUuid, {{1, 6, 0, "beta"}})}}});
        add(factories, "module_c", mModuleCUuid, {{{1, 5, 0}, {}}, {{1, 6, 0, "beta"}, {}}});
        const std::vector<ModuleDescriptor> modulesOnly = {request("module_a", mUuid1, {1, 0, 0}),
                                                           request("module_b", mUuid2, {1, 0, 0})};
        std::vector<ModuleDescriptor> withBeta = modulesOnly;
        withBeta.push_back(request("module_c", mModuleCUuid, {1, 6, 0, "beta"}));
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult failed = resolve(factories, selection, modulesOnly);
            checkFailed(failed, selection);
            Assert::AreEqual(failed.conflicts.size(), size_t{1});

            const ModuleResolveResult resolved = resolve(factories, selection, withBeta);
            checkModules(resolved, {{"module_c", {1, 6, 0, "beta"}}, {"module_b", {1, 0, 0}}, {"module_a", {1, 0, 0}}},
                         selection);
        }
    }

    ZUT_TEST(ModulesRequestDifferentBetas_FailCannotPromoteFromOneBetaToAnotherBeta)
    {
        Factories factories;
        add(factories, "module_a", mUuid1, {{{1, 0, 0}, {dependency("module_c", mModuleCUuid, {{1, 5, 0, "beta"}})}}});
        add(factories, "module_b", mUuid2, {{{1, 0, 0}, {dependency("module_c", mModuleCUuid, {{1, 6, 0, "beta"}})}}});
        add(factories, "module_c", mModuleCUuid, {{{1, 5, 0, "beta"}, {}}, {{1, 6, 0, "beta"}, {}}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(
                factories, selection, {request("module_a", mUuid1, {1, 0, 0}), request("module_b", mUuid2, {1, 0, 0})});
            checkFailed(result, selection);
            Assert::AreEqual(result.conflicts.size(), size_t{1}, true);
            Assert::AreEqual(result.conflicts.front().firstRequestedBy.name, std::string("module_a"));
            Assert::AreEqual(result.conflicts.front().secondRequestedBy.name, std::string("module_b"));
        }
    }

    ZUT_TEST(MultiModuleWithDeps_RequestMultipleMinorVers_NoConflict)
    {
        Factories factories;
        add(factories, "test_module_1", mUuid1, {{{1, 0, 0}, {dependency("test_module_2", mUuid2, {{1, 5, 0}})}}});
        add(factories, "test_module_2", mUuid2, {{{1, 4, 0}, {}}, {{1, 5, 0}, {}}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result =
                resolve(factories, selection,
                        {request("test_module_1", mUuid1, {1, 0, 0}), request("test_module_2", mUuid2, {1, 4, 0})});
            checkModules(result, {{"test_module_2", {1, 5, 0}}, {"test_module_1", {1, 0, 0}}}, selection);
            Assert::AreEqual(result.promotions.size(), size_t{1}, true);
            checkPromotion(result.promotions.front(), "test_module_2", {1, 4, 0}, {1, 5, 0});
        }
    }

    ZUT_TEST(MultiModulesWithDeps_Build_OrderedListReturned)
    {
        Factories factories;
        add(factories, "test_module_1", mUuid1,
            {{{1, 0, 0},
              {dependency("test_module_2", mUuid2, {{1, 0, 0}}), dependency("test_module_3", mUuid3, {{1, 0, 0}})}}});
        add(factories, "test_module_2", mUuid2, {{{1, 0, 0}, {dependency("test_module_3", mUuid3, {{1, 0, 0}})}}});
        add(factories, "test_module_3", mUuid3, {{{1, 0, 0}, {}}});
        std::vector<ModuleDescriptor> requested = {request("test_module_1", mUuid1, {1, 0, 0}),
                                                   request("test_module_2", mUuid2, {1, 0, 0}),
                                                   request("test_module_3", mUuid3, {1, 0, 0})};
        for (int order = 0; order < 2; ++order)
        {
            for (VersionSelection selection : SELECTIONS)
            {
                checkModules(resolve(factories, selection, requested),
                             {{"test_module_3", {1, 0, 0}}, {"test_module_2", {1, 0, 0}}, {"test_module_1", {1, 0, 0}}},
                             selection);
            }
            std::reverse(requested.begin(), requested.end());
        }
    }

    ZUT_TEST(MultiModulesWithNestedDepsStableStable_Build_StableAndStableIsReceived)
    {
        checkNested({1, 1, 0}, {1, 0, 0}, {1, 1, 0}, {1, 0, 0});
    }

    ZUT_TEST(MultiModulesWithNestedDepsBetaStable_Build_BetaAndStableIsReceived)
    {
        checkNested({1, 2, 0, "beta"}, {1, 0, 0}, {1, 2, 0, "beta"}, {1, 0, 0});
    }

    ZUT_TEST(MultiModulesWithNestedDepsStableBeta_Build_StableAndBetaIsReceived)
    {
        checkNested({1, 1, 0}, {1, 1, 0, "beta"}, {1, 1, 0}, {1, 1, 0, "beta"});
    }

    // The user asks for an older "test_module_1" than "test_module_2_nested" needs: the pair moves up to it.
    ZUT_TEST(MultiModulesWithNestedDepsMismatchStable_Build_MismatchStableIsReceived)
    {
        checkNested({1, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 0, 0});
    }

    ZUT_TEST(MultiModulesWithNestedDepsBetaBeta_Build_BetaAndBetaIsReceived)
    {
        checkNested({1, 2, 0, "beta"}, {1, 1, 0, "beta"}, {1, 2, 0, "beta"}, {1, 1, 0, "beta"});
    }

    // A dependency set that only an unrequested version declares never enters the resolve.
    ZUT_TEST(SingleModuleWithDependencySet_SingleRequestExactVersion_Success)
    {
        Factories factories;
        add(factories, "test_module_1", mUuid1,
            {{{1, 0, 0}, {}}, {{2, 0, 0}, {dependency("test_module_2", mUuid2, {{1, 0, 0}, {1, 1, 0}})}}});
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(factories, selection, requestsOfModule1({{1, 0, 0}}));
            checkModules(result, {{"test_module_1", {1, 0, 0}}}, selection);
            Assert::IsTrue(result.promotions.empty());
        }
    }

    ZUT_TEST(ZentaryTest_UnresolvedDependencySet_DefaultsToFirstDependencySetVersion)
    {
        checkZentary({}, {2, 0, 0, "alpha"});
    }

    ZUT_TEST(ZentaryTest_DependencySetWithBetaRequest_SetToBeta)
    {
        checkZentary({request("server", mUuid2, {1, 2, 0, "beta"})}, {1, 2, 0, "beta"});
    }

    ZUT_TEST(ZentaryTest_DependencySetWithAlphaRequest_SetToAlpha)
    {
        checkZentary({request("server", mUuid2, {2, 0, 0, "alpha"})}, {2, 0, 0, "alpha"});
    }

    ZUT_TEST(ZentaryTest_DependencySetWithStableRequest_SetToStable)
    {
        checkZentary({request("server", mUuid2, {1, 1, 0})}, {1, 1, 0});
    }

    ZUT_TEST(ZentaryTest_DependencySetWithV3Request_CannotResolveError)
    {
        const Factories factories = zentaryModules();
        for (VersionSelection selection : SELECTIONS)
        {
            const ModuleResolveResult result = resolve(
                factories, selection, {request("vorbench", mUuid3, {1, 0, 0}), request("server", mUuid2, {3, 0, 0})});
            checkFailed(result, selection);
            Assert::AreEqual(result.conflicts.size(), size_t{1}, true);
            const ModuleVersionConflict& conflict = result.conflicts.front();
            Assert::AreEqual(conflict.module.name, std::string("server"));
            checkVersion(conflict.firstRequested.version, {3, 0, 0}, "the user's request");
            Assert::AreEqual(conflict.firstRequestedBy.name, std::string("plugin"));
            checkVersion(conflict.secondRequested.version, {2, 0, 0, "alpha"}, "the settled dependency set");
            Assert::AreEqual(conflict.secondRequestedBy.name, std::string("vorbench"));
            // Nothing offers a major 3.
            Assert::AreEqual(result.missingVersions.size(), size_t{1});
        }
    }
};
