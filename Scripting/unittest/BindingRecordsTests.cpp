#include "Diagnostics/Assert.h"
#include "Scripting/BindingFactory/IModuleBindingFactory.h"
#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/InjectedTypes.h"
#include "Scripting/BindingType/ModuleDescriptor.h"
#include "Scripting/BindingType/NumberRange.h"
#include "Scripting/BindingType/TaggedBinding.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"
#include "Scripting/Reflection/Reflection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* UPPER_LIMIT_TEXT = "Upper limit major must be greater than lower limit major.";

struct SatisfiesCase
{
    const char* rule;
    Release release;
    Version version;
    bool expected;
};

Release atLeast(Version lower, std::optional<RemovedInMajorVersion> limit = std::nullopt)
{
    return Release{ReleaseComparison::AtLeastVersion, std::move(lower), limit};
}

const Release BETA{ReleaseComparison::PreReleaseTag, Version(0, 0, 0, "beta"), std::nullopt};
const Release NOT_BETA{ReleaseComparison::NotPreRelease, Version(), std::nullopt};

TEST(ReleaseTest, SatisfiesFollowsTheComparison)
{
    const SatisfiesCase cases[] = {
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {1, 2, 0}, true},
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {1, 9, 9}, true},
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {1, 1, 9}, false},
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {2, 0, 0}, false},
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {3, 0, 0}, false},
        // A prerelease of the lower version orders below it.
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {1, 2, 0, "beta"}, false},
        {"1.2.0 until 2", atLeast({1, 2, 0}, RemovedInMajorVersion(2)), {1, 2, 1, "beta"}, true},
        {"1.0.0 on", atLeast({1, 0, 0}), {65535, 0, 0}, true},
        {"1.0.0 on", atLeast({1, 0, 0}), {0, 9, 9}, false},
        {"beta", BETA, {1, 0, 0, "beta"}, true},
        {"beta", BETA, {0, 0, 0, "beta"}, true},
        {"beta", BETA, {1, 0, 0}, false},
        {"beta", BETA, {1, 0, 0, "rc.1"}, false},
        {"beta", BETA, {1, 0, 0, "beta.1"}, false},
        {"beta", BETA, {1, 0, 0, "Beta"}, false},
        {"not beta", NOT_BETA, {1, 0, 0}, true},
        {"not beta", NOT_BETA, {0, 0, 0}, true},
        {"not beta", NOT_BETA, {2, 0, 0, "beta"}, false},
        {"not beta", NOT_BETA, {2, 0, 0, "rc.1"}, false},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(c.release.satisfies(c.version), c.expected) << c.rule << " with " << c.version.toString();
    }
}

TEST(ReleaseTest, UnknownComparisonAssertsAndFails)
{
    const Release release{static_cast<ReleaseComparison>(7), Version(1, 0, 0), std::nullopt};
    bool satisfied = true;
    EXPECT_THAT(collectAsserts([&] { satisfied = release.satisfies(Version(1, 0, 0)); }),
                ElementsAre("Invalid comparison type."));
    EXPECT_FALSE(satisfied);
}

TEST(TaggedBindingTest, CallsAppendRulesInOrderAndChain)
{
    TaggedBinding tag;
    TaggedBinding& chained =
        tag.release(Version(1, 2, 0), RemovedInMajorVersion(3)).beta().notBeta().release({2, 0, 0});
    EXPECT_EQ(&chained, &tag);
    ASSERT_EQ(tag.releases.size(), 4u);

    EXPECT_EQ(tag.releases[0].comparison, ReleaseComparison::AtLeastVersion);
    EXPECT_EQ(tag.releases[0].inclusiveLowerVersion, Version(1, 2, 0));
    EXPECT_EQ(tag.releases[0].exclusiveMajorVersionLimit, RemovedInMajorVersion(3));

    EXPECT_EQ(tag.releases[1].comparison, ReleaseComparison::PreReleaseTag);
    EXPECT_EQ(tag.releases[1].inclusiveLowerVersion, Version(0, 0, 0, "beta"));
    EXPECT_FALSE(tag.releases[1].exclusiveMajorVersionLimit.has_value());

    EXPECT_EQ(tag.releases[2].comparison, ReleaseComparison::NotPreRelease);
    EXPECT_EQ(tag.releases[2].inclusiveLowerVersion, Version());

    EXPECT_EQ(tag.releases[3].comparison, ReleaseComparison::AtLeastVersion);
    EXPECT_FALSE(tag.releases[3].exclusiveMajorVersionLimit.has_value());
}

TEST(TaggedBindingTest, LimitMustBeAboveTheLowerMajor)
{
    struct LimitCase
    {
        uint16_t lowerMajor;
        uint16_t limit;
        bool asserts;
    };
    const LimitCase cases[] = {{1, 2, false}, {1, 1, true}, {2, 1, true}, {0, 0, true}, {0, 1, false}};
    for (const auto& c : cases)
    {
        TaggedBinding tag;
        const auto asserts =
            collectAsserts([&] { tag.release(Version(c.lowerMajor, 0, 0), RemovedInMajorVersion(c.limit)); });
        if (c.asserts)
        {
            EXPECT_THAT(asserts, ElementsAre(UPPER_LIMIT_TEXT)) << c.lowerMajor << " until " << c.limit;
        }
        else
        {
            EXPECT_THAT(asserts, IsEmpty()) << c.lowerMajor << " until " << c.limit;
        }
        // The rule is kept either way.
        ASSERT_EQ(tag.releases.size(), 1u);
        EXPECT_EQ(tag.releases[0].exclusiveMajorVersionLimit, RemovedInMajorVersion(c.limit));
    }
    TaggedBinding unlimited;
    EXPECT_THAT(collectAsserts([&] { unlimited.release(Version(7, 0, 0)); }), IsEmpty());
}

TEST(TaggedBindingTest, RemovedInMajorVersionFitsInFourBytes)
{
    static_assert(sizeof(std::optional<RemovedInMajorVersion>) == 4);
    EXPECT_EQ(RemovedInMajorVersion(9).get(), 9);
}

TEST(ModuleDependencyTest, SameModuleMeansSameUuidAndVersionsInOrder)
{
    const ModuleDependency base{"theModule", quv::UUID(1, 2), {Version(1, 0, 0), Version(2, 0, 0)}, false, false};
    ModuleDependency renamed = base;
    renamed.name = "another";
    renamed.isInternal = true;
    renamed.inheritsExplicit = true;
    EXPECT_EQ(base, renamed);

    ModuleDependency otherUuid = base;
    otherUuid.uuid = quv::UUID(1, 3);
    EXPECT_NE(base, otherUuid);

    ModuleDependency reordered = base;
    reordered.versions = {Version(2, 0, 0), Version(1, 0, 0)};
    EXPECT_NE(base, reordered);

    ModuleDependency fewer = base;
    fewer.versions.pop_back();
    EXPECT_NE(base, fewer);
}

TEST(ContextConfigTest, ConstructorKeepsFieldsAndWritesTheUuidText)
{
    const ModuleDescriptor module{"requester", quv::UUID(0x0123456789abcdefull, 0xfedcba9876543210ull),
                                  Version(1, 0, 0), false};
    const ContextConfig config("test_runtime", "some_config_param", module, false, RuntimeConditions{{"a", "b"}},
                               VersionSelection::HighestSatisfying, {1, 2, 3, 4}, std::string("described"));
    EXPECT_EQ(config.runtimeName, "test_runtime");
    EXPECT_EQ(config.configParam, "some_config_param");
    EXPECT_EQ(config.module, module);
    EXPECT_EQ(config.moduleUuidText, "01234567-89ab-cdef-fedc-ba9876543210");
    EXPECT_FALSE(config.enabled);
    EXPECT_TRUE(config.runtimeConditions.contains("b"));
    EXPECT_FALSE(config.runtimeConditions.contains("c"));
    EXPECT_EQ(config.versionSelection, VersionSelection::HighestSatisfying);
    EXPECT_EQ(config.contextKey, (ContextConfig::ContextKey{1, 2, 3, 4}));
    EXPECT_EQ(config.description, "described");

    EXPECT_EQ(ContextConfig().moduleUuidText, quv::UUID::EMPTY.asString());
}

TEST(InjectedTypesTest, OnlyTheSixContextTypesAreInjected)
{
    using Reflection::resolve;
    EXPECT_TRUE(internal::isInjectedArgumentType(resolve<LifetimeRegistry>()));
    EXPECT_TRUE(internal::isInjectedArgumentType(resolve<WeakLifetimeScope&>()));
    EXPECT_TRUE(internal::isInjectedArgumentType(resolve<const ScriptObjectFactory&>()));
    EXPECT_TRUE(internal::isInjectedArgumentType(resolve<DependencyLocator>()));
    EXPECT_TRUE(internal::isInjectedArgumentType(resolve<DependencyLocator*>()));
    EXPECT_TRUE(internal::isInjectedArgumentType(resolve<ContextConfig>()));

    EXPECT_FALSE(internal::isInjectedArgumentType(resolve<int>()));
    EXPECT_FALSE(internal::isInjectedArgumentType(resolve<ScriptObjectFactory*>()));
    EXPECT_FALSE(internal::isInjectedArgumentType(resolve<ModuleDescriptor>()));
    EXPECT_FALSE(internal::isInjectedArgumentType(entt::meta_type{}));
}

TEST(BindingRecordsTest, CopiesShareTheExtraAndOwnTheirValues)
{
    ModuleBinding module;
    module.descriptor = ModuleDescriptor{"test_module", quv::UUID(1, 1), Version(1, 0, 0), false};
    ClassBinding& klass = module.classBindings.emplace_back();
    klass.name = "NumberRange";
    klass.classExtra = std::make_shared<int>(5);
    PropertyBinding& property = klass.properties.emplace_back();
    property.name = "min";
    property.minValue = entt::meta_any{NumberRange{1.0f, 2.0f}};

    const ModuleBinding copy = module;
    module.classBindings[0].properties[0].minValue.cast<NumberRange&>().min = 7.0f;
    EXPECT_EQ(copy.classBindings[0].properties[0].minValue.cast<const NumberRange&>().min, 1.0f);
    EXPECT_EQ(copy.classBindings[0].classExtra, module.classBindings[0].classExtra);
    EXPECT_EQ(copy.descriptor, module.descriptor);
}
} // namespace
