#include "Diagnostics/Assert.h"
#include "NativeEngineFixture.h"
#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/NumberRange.h"
#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// "Name(member,member)" for each error, enum and class of a build, in that order.
std::vector<std::string> contents(const ModuleBinding& binding)
{
    std::vector<std::string> lines;
    const auto line = [&](const std::string& kind, const std::string& name, const auto& members)
    {
        std::string text = kind + " " + name + "(";
        for (size_t i = 0; i < members.size(); ++i)
        {
            text += (i == 0 ? "" : ",") + members[i].name;
        }
        lines.push_back(text + ")");
    };
    for (const ErrorBinding& error : binding.errorBindings)
    {
        line("error", error.name, error.properties);
    }
    for (const EnumBinding& enumBinding : binding.enumBindings)
    {
        line("enum", enumBinding.name, enumBinding.values);
    }
    for (const ClassBinding& classBinding : binding.classBindings)
    {
        line("class", classBinding.name, classBinding.properties);
    }
    return lines;
}

TEST(CommonModuleFactoryTest, EachVersionHoldsWhatItsReleasesAllow)
{
    CommonModuleFactory factory;
    struct Row
    {
        Version version;
        std::vector<std::string> expected;
    };
    const Row rows[] = {
        {Version(1, 0, 0),
         {"error ArgumentOutOfBoundsError(value,minValue,maxValue,index)", "error InvalidArgumentError(index)"}},
        {Version(1, 1, 0),
         {"error ArgumentOutOfBoundsError(value,minValue,maxValue,index)", "error InvalidArgumentError(index)",
          "error EngineError()", "class NumberRange(min,max)"}},
        {Version(1, 2, 0),
         {"error ArgumentOutOfBoundsError(value,minValue,maxValue,index)", "error InvalidArgumentError(type,index)",
          "error EngineError()", "error PropertyOutOfBoundsError(value,minValue,maxValue)",
          "error RuntimeConditionError()", "error UnsupportedFunctionalityError()",
          "enum InvalidArgumentErrorType(Unspecified,Empty,Unknown,Duplicate)", "class NumberRange(min,max)"}},
    };
    for (const Row& row : rows)
    {
        std::optional<ModuleBinding> binding;
        EXPECT_THAT(collectAsserts([&] { binding = factory.createModuleBinding(row.version, std::nullopt); }),
                    IsEmpty());
        ASSERT_TRUE(binding.has_value()) << row.version.toString();
        EXPECT_EQ(contents(*binding), row.expected) << row.version.toString();
        EXPECT_EQ(binding->descriptor,
                  (ModuleDescriptor{"@zentary/common", CommonModuleFactory::MODULE_UUID, row.version, false}));
        // The common module depends on nothing, not even on itself.
        EXPECT_THAT(binding->dependencies, IsEmpty());
        EXPECT_THAT(factory.getDependencies(row.version), IsEmpty());
    }
    const std::optional<ModuleBinding> latest = factory.createModuleBinding(Version(1, 2, 0), std::nullopt);
    EXPECT_EQ(latest->errorBindings[1].type, Reflection::resolve<InvalidArgumentError>());
    EXPECT_EQ(latest->enumBindings[0].type, Reflection::resolve<InvalidArgumentErrorType>());
    EXPECT_FALSE(factory.createModuleBinding(Version(1, 3, 0), std::nullopt).has_value());
}

TEST(CommonModuleFactoryTest, DescriptorAndIdentity)
{
    EXPECT_EQ(CommonModuleFactory::getUUIDText(), "77ec12b4-1b2b-4c98-8d34-d1cd63f849d5");
    EXPECT_EQ(quv::UUID::fromString(CommonModuleFactory::getUUIDText()), CommonModuleFactory::MODULE_UUID);
    EXPECT_EQ(CommonModuleFactory::getDescriptor(Version(1, 1, 0)),
              (ModuleDescriptor{"@zentary/common", CommonModuleFactory::MODULE_UUID, Version(1, 1, 0), true}));
    EXPECT_EQ(CommonModuleFactory::LATEST_VERSION, Version(1, 2, 0));
    // The optional that a bound's range travels in can be made from a range once the factory exists.
    const CommonModuleFactory factory;
    EXPECT_TRUE(Reflection::resolve<std::optional<NumberRange>>().construct(NumberRange{1.0f, 2.0f}));
}

class ModuleFactoryEngineTest : public NativeEngineTest
{
protected:
    static GenericModuleBindingFactory::ModuleCreatorFn emptyCreator()
    {
        return [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        { return std::optional<ModuleBinding>(builder.build(true, {}, {})); };
    }
};

TEST_F(ModuleFactoryEngineTest, AModuleRequestedByAliasIsBuiltUnderThatAlias)
{
    const quv::UUID uuid(0, 42);
    auto factory = std::make_unique<GenericModuleBindingFactory>("testFactory", uuid);
    factory->addVersionedModuleBinding("alias_1", Version(1, 0, 0), emptyCreator(), CommonModuleFactory::VERSION_1_0_0,
                                       {}, false);
    factory->addVersionedModuleBinding("alias_2", Version(2, 0, 0), emptyCreator(), CommonModuleFactory::VERSION_1_1_0,
                                       {}, false);
    mEngine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    mEngine.addModuleBindingFactory(std::move(factory));

    EXPECT_THAT(mEngine.getSupportedVersions("alias_2"), ElementsAre(Version(1, 0, 0), Version(2, 0, 0)));
    const std::optional<ModuleDescriptor> byAlias = mEngine.getModuleDescriptor("alias_2");
    ASSERT_TRUE(byAlias.has_value());
    EXPECT_EQ(byAlias->name, "testFactory");

    ScriptContextResult second = request({ModuleDescriptor{"alias_2", byAlias->uuid, Version(2, 0, 0)}});
    EXPECT_THAT(modulesOf(second), ElementsAre("@zentary/common 1.1.0", "alias_2 2.0.0"));
    ScriptContextResult first = request({ModuleDescriptor{"alias_1", byAlias->uuid, Version(1, 0, 0)}});
    EXPECT_THAT(modulesOf(first), ElementsAre("@zentary/common 1.0.0", "alias_1 1.0.0"));

    // A name is no identity: without the UUID from the lookup the module is not found.
    const ScriptContextResult byNameOnly = request({ModuleDescriptor{"alias_1", quv::UUID(), Version(1, 0, 0)}});
    EXPECT_FALSE(byNameOnly.context.has_value());
    EXPECT_THAT(byNameOnly.getErrorText(), HasSubstr("[alias_1 - 1.0.0] requested by [plugin - 1.0.0]"));

    // Another factory may not take a name that this one answers to.
    EXPECT_THAT(collectAsserts(
                    [&] {
                        mEngine.addModuleBindingFactory(
                            std::make_unique<GenericModuleBindingFactory>("alias_1", quv::UUID(0, 43)));
                    }),
                ElementsAre("Module binding factory already added, or alias previously used."));
}

TEST_F(ModuleFactoryEngineTest, WithoutTheCommonModuleEveryGenericModuleMissesIt)
{
    auto factory = std::make_unique<GenericModuleBindingFactory>("lonely", quv::UUID(0, 42));
    factory->addVersionedModuleBinding(Version(1, 0, 0), emptyCreator(), CommonModuleFactory::LATEST_VERSION, {},
                                       false);
    mEngine.addModuleBindingFactory(std::move(factory));
    const ScriptContextResult result = request({ModuleDescriptor{"lonely", quv::UUID(0, 42), Version(1, 0, 0)}});
    EXPECT_FALSE(result.context.has_value());
    EXPECT_EQ(result.getErrorText(),
              "\n§cMissing Modules: \n    §c[@zentary/common - 1.2.0] requested by [lonely - 1.0.0]");
}

struct Twin
{
};
struct OtherTwin
{
};

TEST_F(ModuleFactoryEngineTest, CollidingNamesAreReportedAndTheContextStillComes)
{
    auto factory = std::make_unique<GenericModuleBindingFactory>("colliding", quv::UUID(0, 42));
    factory->addVersionedModuleBinding(
        Version(1, 0, 0),
        [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        {
            builder.classBinding(ClassBindingBuilder<Twin>("Twin").finish());
            builder.classBinding(ClassBindingBuilder<OtherTwin>("Twin").finish());
            return std::optional<ModuleBinding>(builder.build(true, {}, {}));
        },
        CommonModuleFactory::LATEST_VERSION, {}, false);
    mEngine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    mEngine.addModuleBindingFactory(std::move(factory));

    std::optional<ScriptContextResult> result;
    EXPECT_THAT(collectAsserts(
                    [&] {
                        result = request({ModuleDescriptor{"colliding", quv::UUID(0, 42), Version(1, 0, 0)}});
                    }),
                ElementsAre("A member with the name 'Twin' already exists in module 'colliding'",
                            "A member with the name 'Twin' already exists in module 'colliding'"));
    ASSERT_TRUE(result.has_value());
    EXPECT_THAT(modulesOf(*result), ElementsAre("@zentary/common 1.2.0", "colliding 1.0.0"));
}

TEST_F(ModuleFactoryEngineTest, AVersionWithoutCreatorAssertsAndIsReportedAsAMissingVersion)
{
    auto factory = std::make_unique<GenericModuleBindingFactory>("hollow", quv::UUID(0, 42));
    factory->addVersionedModuleBinding(Version(1, 0, 0), nullptr, CommonModuleFactory::LATEST_VERSION, {}, false);
    mEngine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    mEngine.addModuleBindingFactory(std::move(factory));

    std::optional<ScriptContextResult> result;
    EXPECT_THAT(collectAsserts(
                    [&] {
                        result = request({ModuleDescriptor{"hollow", quv::UUID(0, 42), Version(1, 0, 0)}});
                    }),
                ElementsAre("Missing callback",
                            "Failed to create the module for the specified version although we checked if it "
                            "supported the version!",
                            "Should have been verified during dependency resolve!"));
    ASSERT_TRUE(result.has_value());
    EXPECT_FALSE(result->context.has_value());
    EXPECT_THAT(result->getErrorText(), HasSubstr("Missing Versioned Modules: "));
    EXPECT_EQ(mEngine.getRegistryManager().getRegistryCount(), 0);
}

TEST(GenericModuleBindingFactoryTest, ADependencyOnItselfIsReportedByTheBuilderAndKept)
{
    const quv::UUID uuid(0, 42);
    GenericModuleBindingFactory factory("selfish", uuid);
    ModuleDependency self;
    self.name = "selfish";
    self.uuid = uuid;
    self.versions = {Version(1, 0, 0)};
    factory.addVersionedModuleBinding(
        Version(1, 0, 0),
        [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        { return std::optional<ModuleBinding>(builder.build(true, {}, {})); },
        CommonModuleFactory::LATEST_VERSION, {self, self}, false);

    std::optional<ModuleBinding> binding;
    EXPECT_THAT(collectAsserts([&] { binding = factory.createModuleBinding(Version(1, 0, 0), std::nullopt); }),
                ElementsAre("You can't take a dependency on yourself", "You can't take a dependency on yourself",
                            "A dependency with this name already exists on this module"));
    ASSERT_TRUE(binding.has_value());
    ASSERT_EQ(binding->dependencies.size(), 2u);
    EXPECT_EQ(binding->dependencies[0].uuid, uuid);
    EXPECT_EQ(binding->dependencies[1].uuid, CommonModuleFactory::MODULE_UUID);
}
} // namespace
