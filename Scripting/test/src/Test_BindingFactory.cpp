#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/EnumBindingBuilder.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_BindingFactoryTests);
struct Scripting_BindingFactoryTestsBase : ZentaryUnitTest::TestClass<Scripting_BindingFactoryTests>
{
    using Creator = GenericModuleBindingFactory::ModuleCreatorFn;

    static inline const quv::UUID MODULE_UUID = quv::UUID::fromString("f24732b6-0f04-4b16-81cb-88d6b99a11ea");
    static inline const quv::UUID DEPENDENCY_UUID = quv::UUID::fromString("2a26efa3-91a7-4ddf-9741-ea1d474db82e");
    static inline const Version COMMON = CommonModuleFactory::LATEST_VERSION;

    // A creator that adds nothing and builds with untagged records allowed.
    static Creator emptyCreator()
    {
        return [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        { return std::optional<ModuleBinding>(builder.build(true, {}, {})); };
    }

    static ModuleBinding finishedBinding(const Version& version)
    {
        ModuleBinding binding;
        binding.descriptor = ModuleDescriptor{"test_module", MODULE_UUID, version};
        return binding;
    }

    static ModuleDependency dependency(const std::string& name, const quv::UUID& uuid, const Version& version)
    {
        ModuleDependency result;
        result.name = name;
        result.uuid = uuid;
        result.versions = {version};
        return result;
    }

    static std::string duplicateMessage(const Version& version)
    {
        return "Module 'testFactory' with version '" + version.toString() + "' was already added.";
    }

    struct TaggedClass
    {
        int releaseMethod() { return 1; }
        int betaMethod() { return 2; }
    };

    enum class EnumType
    {
        Type0 = 0,
        Type1 = 1,
        Type2 = 2,
    };

    // One line per class and enum of a build: its name and its members, in order.
    static std::string summary(const std::optional<ModuleBinding>& binding)
    {
        if (!binding.has_value())
        {
            return "<none>";
        }
        std::vector<std::string> parts;
        for (const ClassBinding& classBinding : binding->classBindings)
        {
            std::vector<std::string> members;
            for (const FunctionBinding& function : classBinding.functions)
            {
                members.push_back(function.name);
            }
            parts.push_back(fmt::format("{}({})", classBinding.name, fmt::join(members, ",")));
        }
        for (const EnumBinding& enumBinding : binding->enumBindings)
        {
            std::vector<std::string> members;
            for (const EnumValueBinding& value : enumBinding.values)
            {
                members.push_back(value.name + "=" + value.scriptValue);
            }
            parts.push_back(fmt::format("{}({})", enumBinding.name, fmt::join(members, ",")));
        }
        return fmt::format("{}", fmt::join(parts, " "));
    }

    // The descriptor of a built version, or a note that none was built.
    static std::string describe(const std::optional<ModuleBinding>& binding)
    {
        if (!binding.has_value())
        {
            return "<none>";
        }
        return binding->descriptor.name + " " + binding->descriptor.version.toString();
    }
};

class Scripting_BindingFactoryTests final : public Scripting_BindingFactoryTestsBase
{
    ZUT_TEST(GenericModuleBindingFactory_GetNameReturnsCorrectValue)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        factory.addVersionedModuleBinding("alias_1", Version(1, 0, 0), emptyCreator(), COMMON, {}, false);
        Assert::AreEqual(factory.getName(), std::string("test_binding_factory"));
        Assert::AreEqual(factory.getUUID(), MODULE_UUID);
    }

    ZUT_TEST(GenericModuleBindingFactory_getSupportedVersionsReturnsAllVersions)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        const std::vector<Version> versions{Version(2, 0, 0), Version(1, 0, 0), Version(1, 1, 0, "beta")};
        for (const Version& version : versions)
        {
            factory.addVersionedModuleBinding(version, emptyCreator(), COMMON, {}, false);
        }
        Assert::IsTrue(factory.getSupportedVersions() == versions, false, "Versions are not in order of adding");
    }

    ZUT_TEST(GenericModuleBindingFactory_getDependenciesWithNoModules)
    {
        const GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        Assert::IsTrue(factory.getDependencies(Version(1, 0, 0)).empty());
    }

    ZUT_TEST(GenericModuleBindingFactory_getDependenciesForMissingModule)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        factory.addVersionedModuleBinding(Version(1, 0, 0), emptyCreator(), COMMON,
                                          {dependency("theDependency", DEPENDENCY_UUID, Version(1, 0, 0))}, false);
        Assert::IsTrue(factory.getDependencies(Version(1, 0, 1)).empty());
        Assert::IsTrue(factory.getDependencies(Version(1, 0, 0, "beta")).empty());
    }

    ZUT_TEST(GenericModuleBindingFactory_getDependenciesWithSingleModule)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        const ModuleDependency given = dependency("theDependency", DEPENDENCY_UUID, Version(1, 0, 0));
        factory.addVersionedModuleBinding(Version(1, 0, 0), emptyCreator(), CommonModuleFactory::VERSION_1_1_0, {given},
                                          false);
        const std::vector<ModuleDependency> dependencies = factory.getDependencies(Version(1, 0, 0));
        Assert::AreEqual(dependencies.size(), size_t{2}, true);
        Assert::IsTrue(dependencies[0] == given);
        Assert::AreEqual(dependencies[0].name, given.name);
        Assert::AreEqual(dependencies[1].name, std::string("@zentary/common"));
        Assert::AreEqual(dependencies[1].uuid, CommonModuleFactory::MODULE_UUID);
        Assert::IsTrue(dependencies[1].versions == std::vector<Version>{Version(1, 1, 0)});
        Assert::IsTrue(dependencies[1].isInternal);
    }

    ZUT_TEST(GenericModuleBindingFactory_createModuleBindingWithNoModules)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        Assert::IsFalse(factory.createModuleBinding(Version(1, 0, 0), std::nullopt).has_value());
    }

    ZUT_TEST(GenericModuleBindingFactory_createModuleBindingForMissingModule)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        factory.addVersionedModuleBinding(Version(1, 0, 0), emptyCreator(), COMMON, {}, false);
        Assert::AreEqual(describe(factory.createModuleBinding(Version(1, 1, 0), std::nullopt)), std::string("<none>"));
    }

    ZUT_TEST(GenericModuleBindingFactory_createModuleBindingWithSingleModule)
    {
        GenericModuleBindingFactory factory("test_binding_factory", MODULE_UUID);
        factory.addVersionedModuleBinding(Version(1, 2, 3), emptyCreator(), COMMON, {}, false);
        const std::optional<ModuleBinding> binding = factory.createModuleBinding(Version(1, 2, 3), std::nullopt);
        Assert::AreEqual(describe(binding), std::string("test_binding_factory 1.2.3"));
    }

    ZUT_TEST(BindingFactory_AddModule_CreateModule)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        factory.addVersionedModuleBinding(finishedBinding(Version(1, 0, 0)), COMMON, {}, false);
        const std::optional<ModuleBinding> binding = factory.createModuleBinding(Version(1, 0, 0), std::nullopt);
        Assert::IsTrue(binding.has_value(), true);
        Assert::AreEqual(binding->descriptor.name, std::string("test_module"));
        Assert::AreEqual(binding->descriptor.uuid, MODULE_UUID);
        Assert::AreEqual(binding->descriptor.version, Version(1, 0, 0));
        // Each build is a copy of its own.
        Assert::IsTrue(factory.createModuleBinding(Version(1, 0, 0), std::nullopt).has_value());
    }

    ZUT_TEST(AddSameVersionModule_DuplicatedIsNotAdded)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        factory.addVersionedModuleBinding(finishedBinding(Version(1, 0, 0)), COMMON, {}, false);
        ModuleBinding second = finishedBinding(Version(1, 0, 0));
        second.descriptor.name = "second";
        Assert::CheckDebugAsserts([&] { factory.addVersionedModuleBinding(second, COMMON, {}, false); },
                                  duplicateMessage(Version(1, 0, 0)).c_str());
        Assert::AreEqual(factory.getSupportedVersions().size(), size_t{1});
        Assert::AreEqual(describe(factory.createModuleBinding(Version(1, 0, 0), std::nullopt)),
                         std::string("test_module 1.0.0"));
    }

    ZUT_TEST(BindingFactory_AddModuleWithCreator_CreateModule)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        std::optional<ModuleDescriptor> seen;
        factory.addVersionedModuleBinding(
            Version(1, 3, 0),
            [&](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
            {
                ModuleBinding binding = builder.build(true, {}, {});
                seen = binding.descriptor;
                return std::optional<ModuleBinding>(std::move(binding));
            },
            COMMON, {}, false);
        const std::optional<ModuleBinding> binding = factory.createModuleBinding(Version(1, 3, 0), std::nullopt);
        Assert::IsTrue(seen.has_value(), true, "The creator did not run");
        Assert::AreEqual(seen->name, std::string("testFactory"));
        Assert::AreEqual(seen->uuid, MODULE_UUID);
        Assert::AreEqual(seen->version, Version(1, 3, 0));
        Assert::AreEqual(describe(binding), std::string("testFactory 1.3.0"));
        // The builder came with the common dependency already in it.
        Assert::AreEqual(binding->dependencies.size(), size_t{1}, true);
        Assert::AreEqual(binding->dependencies[0].uuid, CommonModuleFactory::MODULE_UUID);
    }

    ZUT_TEST(BindingFactory_AddModuleWithCreator_CreateModuleWithConfig)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        std::optional<ContextConfig> seen;
        factory.addVersionedModuleBinding(
            Version(1, 0, 0),
            [&](ModuleBindingBuilder& builder, const std::optional<ContextConfig>& config)
            {
                seen = config;
                return std::optional<ModuleBinding>(builder.build(true, {}, {}));
            },
            COMMON, {}, false);
        ContextConfig config;
        config.runtimeName = "some_runtime_name";
        config.configParam = "some_config_param";
        Assert::IsTrue(factory.createModuleBinding(Version(1, 0, 0), config).has_value(), true);
        Assert::IsTrue(seen.has_value(), true, "The creator saw no configuration");
        Assert::AreEqual(seen->runtimeName, std::string("some_runtime_name"));
        Assert::AreEqual(seen->configParam, std::string("some_config_param"));
    }

    ZUT_TEST(AddSameVersionModuleWithCreator_DuplicatedIsNotAdded)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        factory.addVersionedModuleBinding(Version(1, 0, 0), emptyCreator(), COMMON, {}, false);
        bool secondRan = false;
        const Creator second = [&](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        {
            secondRan = true;
            return std::optional<ModuleBinding>(builder.build(true, {}, {}));
        };
        Assert::CheckDebugAsserts([&]
                                  { factory.addVersionedModuleBinding(Version(1, 0, 0), second, COMMON, {}, false); },
                                  duplicateMessage(Version(1, 0, 0)).c_str());
        Assert::IsTrue(factory.createModuleBinding(Version(1, 0, 0), std::nullopt).has_value());
        Assert::IsFalse(secondRan, false, "The duplicate replaced the first creator");
    }

    ZUT_TEST(AddSameVersionModuleWithAliases_DuplicatedIsNotAdded)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        factory.addVersionedModuleBinding("alias_1", Version(1, 0, 0), emptyCreator(), COMMON, {}, false);
        for (const char* alias : {"alias_1", "alias_2"})
        {
            Assert::CheckDebugAsserts(
                [&] { factory.addVersionedModuleBinding(alias, Version(1, 0, 0), emptyCreator(), COMMON, {}, false); },
                duplicateMessage(Version(1, 0, 0)).c_str());
        }
        Assert::IsFalse(factory.isAlias("alias_2"), false, "The refused alias was kept");
        Assert::AreEqual(describe(factory.createModuleBinding(Version(1, 0, 0), std::nullopt)),
                         std::string("alias_1 1.0.0"));
    }

    ZUT_TEST(BindingFactory_AddMultipleVersionsOfModuleWithAliases_RequestByAlias_GetCorrectVersion)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        const std::vector<std::pair<std::string, Version>> versions{
            {"alias_1", Version(1, 0, 0)}, {"alias_2", Version(1, 1, 0)}, {"alias_1", Version(2, 0, 0)}};
        for (const auto& [alias, version] : versions)
        {
            factory.addVersionedModuleBinding(alias, version, emptyCreator(), COMMON, {}, false);
        }
        Assert::IsTrue(factory.isAlias("alias_1") && factory.isAlias("alias_2"));
        Assert::IsFalse(factory.isAlias("testFactory"), false, "Only versions added under the name make it an alias");
        for (const auto& [alias, version] : versions)
        {
            Assert::AreEqual(describe(factory.createModuleBinding(version, std::nullopt)),
                             alias + " " + version.toString());
        }
    }

    ZUT_TEST(BindingWithTags_TagClassWithReleaseMethodWithBeta_ClassAppearsInReleaseMethodOnlyInBeta)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        const Creator creator = [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>& config)
        {
            ClassBindingBuilder<TaggedClass> taggedClass("TaggedClass");
            taggedClass.release(Version(1, 0, 0));
            taggedClass.method<&TaggedClass::releaseMethod>("releaseMethod").release(Version(1, 0, 0));
            taggedClass.method<&TaggedClass::betaMethod>("betaMethod").beta();
            builder.classBinding(taggedClass.finish());
            std::vector<std::string> enabledTags;
            if (config.has_value() && !config->configParam.empty())
            {
                enabledTags.push_back(config->configParam);
            }
            return std::optional<ModuleBinding>(builder.build(false, enabledTags, {}));
        };
        factory.addVersionedModuleBinding(Version(1, 0, 0), creator, COMMON, {}, false);
        factory.addVersionedModuleBinding(Version(1, 1, 0, "beta"), creator, COMMON, {}, false);
        factory.addVersionedModuleBinding(Version(1, 1, 0, "rc"), creator, COMMON, {}, false);

        ContextConfig enableBeta;
        enableBeta.configParam = "beta";
        struct Row
        {
            Version version;
            std::optional<ContextConfig> config;
            const char* expected;
        };
        const Row rows[] = {
            {Version(1, 0, 0), std::nullopt, "TaggedClass(releaseMethod)"},
            {Version(1, 1, 0, "beta"), std::nullopt, "TaggedClass(releaseMethod,betaMethod)"},
            {Version(1, 1, 0, "rc"), std::nullopt, "TaggedClass(releaseMethod)"},
            {Version(1, 0, 0), enableBeta, "TaggedClass(releaseMethod,betaMethod)"},
        };
        for (const Row& row : rows)
        {
            Assert::AreEqual(summary(factory.createModuleBinding(row.version, row.config)), std::string(row.expected),
                             false, "Version {}", row.version.toString());
        }
    }

    ZUT_TEST(BindingWithTags_UntaggedFunction_BuildWithAndWithoutAllowUntagged_FunctionAppearsAsExpected)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        const auto creatorAllowing = [](bool allowUntagged) -> Creator
        {
            return [allowUntagged](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
            {
                ClassBindingBuilder<TaggedClass> taggedClass("TaggedClass");
                taggedClass.release(Version(1, 0, 0));
                taggedClass.function("untagged", [] { return 1; });
                taggedClass.function("tagged", [] { return 2; }).release(Version(1, 0, 0));
                builder.classBinding(taggedClass.finish());
                ClassBindingBuilder<EnumType> untaggedClass("UntaggedClass");
                untaggedClass.function("tagged", [] { return 3; }).release(Version(1, 0, 0));
                builder.classBinding(untaggedClass.finish());
                return std::optional<ModuleBinding>(builder.build(allowUntagged, {}, {}));
            };
        };
        factory.addVersionedModuleBinding(Version(1, 0, 0), creatorAllowing(true), COMMON, {}, false);
        factory.addVersionedModuleBinding(Version(1, 1, 0), creatorAllowing(false), COMMON, {}, false);
        Assert::AreEqual(summary(factory.createModuleBinding(Version(1, 0, 0), std::nullopt)),
                         std::string("TaggedClass(untagged,tagged) UntaggedClass(tagged)"));
        Assert::AreEqual(summary(factory.createModuleBinding(Version(1, 1, 0), std::nullopt)),
                         std::string("TaggedClass(tagged)"));
    }

    ZUT_TEST(BindingWithTags_EnumValuesTaggedWithDifferentVersions_EnumValuesAppearAsExpected)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        const Creator creator = [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        {
            // The first member of each enum is untagged and comes with the enum; the others have releases of
            // their own.
            EnumBindingBuilder<std::string, EnumType> strings("StringEnumType");
            strings.value("Type0", EnumType::Type0);
            strings.value("Type1", EnumType::Type1).release(Version(1, 1, 0));
            strings.value("Type2", EnumType::Type2).release(Version(1, 2, 0));
            builder.enumBinding(strings.finish()).release(Version(1, 0, 0));

            EnumBindingBuilder<std::string, EnumType> overridden("StringWithValEnumType");
            overridden.valueWithOverride("First", "Type0", EnumType::Type0);
            overridden.valueWithOverride("Second", "Type1", EnumType::Type1).release(Version(1, 1, 0));
            overridden.valueWithOverride("Third", "Type2", EnumType::Type2).release(Version(1, 2, 0));
            builder.enumBinding(overridden.finish()).release(Version(1, 0, 0));

            EnumBindingBuilder<EnumType, EnumType> numbers("EnumType");
            numbers.value("Type0", EnumType::Type0);
            numbers.value("Type1", EnumType::Type1).release(Version(1, 1, 0));
            numbers.value("Type2", EnumType::Type2).release(Version(1, 2, 0));
            builder.enumBinding(numbers.finish()).release(Version(1, 0, 0));
            return std::optional<ModuleBinding>(builder.build(true, {}, {}));
        };
        for (const Version& version : {Version(1, 0, 0), Version(1, 1, 0), Version(1, 2, 0)})
        {
            factory.addVersionedModuleBinding(version, creator, COMMON, {}, false);
        }
        Assert::AreEqual(
            summary(factory.createModuleBinding(Version(1, 0, 0), std::nullopt)),
            std::string("StringEnumType(Type0=Type0) StringWithValEnumType(First=Type0) EnumType(Type0=0)"));
        Assert::AreEqual(summary(factory.createModuleBinding(Version(1, 1, 0), std::nullopt)),
                         std::string("StringEnumType(Type0=Type0,Type1=Type1) StringWithValEnumType(First=Type0,"
                                     "Second=Type1) EnumType(Type0=0,Type1=1)"));
        const std::optional<ModuleBinding> latest = factory.createModuleBinding(Version(1, 2, 0), std::nullopt);
        Assert::AreEqual(summary(latest),
                         std::string("StringEnumType(Type0=Type0,Type1=Type1,Type2=Type2) StringWithValEnumType("
                                     "First=Type0,Second=Type1,Third=Type2) EnumType(Type0=0,Type1=1,Type2=2)"));
        // Constants and values are filtered alike.
        for (const EnumBinding& enumBinding : latest->enumBindings)
        {
            Assert::AreEqual(enumBinding.constants.size(), enumBinding.values.size(), false, "{}", enumBinding.name);
        }
    }

    ZUT_TEST(BindingWithTags_BuildForVersionsWithinAndOutsideOfRanges_OutputBindingsAsExpected)
    {
        GenericModuleBindingFactory factory("testFactory", MODULE_UUID);
        const Creator creator = [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        {
            ClassBindingBuilder<TaggedClass> ranged("RangedClass");
            ranged.release(Version(1, 0, 0), RemovedInMajorVersion(2));
            ranged.function("always", [] { return 0; }).release(Version(1, 0, 0));
            ranged.function("fromOneTwo", [] { return 1; }).release(Version(1, 2, 0), RemovedInMajorVersion(2));
            builder.classBinding(ranged.finish());
            ClassBindingBuilder<EnumType> newer("NewClass");
            newer.release(Version(2, 0, 0));
            builder.classBinding(newer.finish());
            return std::optional<ModuleBinding>(builder.build(false, {}, {}));
        };
        struct Row
        {
            Version version;
            const char* expected;
        };
        const Row rows[] = {
            {Version(0, 9, 0), ""},
            {Version(1, 0, 0), "RangedClass(always)"},
            {Version(1, 1, 9), "RangedClass(always)"},
            {Version(1, 2, 0), "RangedClass(always,fromOneTwo)"},
            {Version(1, 9, 9), "RangedClass(always,fromOneTwo)"},
            {Version(2, 0, 0), "NewClass()"},
            {Version(3, 1, 0), "NewClass()"},
        };
        for (const Row& row : rows)
        {
            factory.addVersionedModuleBinding(row.version, creator, COMMON, {}, false);
        }
        for (const Row& row : rows)
        {
            Assert::AreEqual(summary(factory.createModuleBinding(row.version, std::nullopt)), std::string(row.expected),
                             false, "Version {}", row.version.toString());
        }
    }
};
