#include "Diagnostics/Assert.h"
#include "NativeEngineFixture.h"
#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
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

constexpr const char* DUPLICATE = "Module binding factory already added, or alias previously used.";

// A module with plain versions and aliases; its creator can be replaced to misbehave.
class FakeFactory final : public IModuleBindingFactory
{
public:
    using Creator = std::function<std::optional<ModuleBinding>(Version)>;

    FakeFactory(std::string name, quv::UUID uuid, std::map<Version, std::vector<ModuleDependency>> versions = {},
                std::vector<std::string> aliases = {}, bool* destroyed = nullptr)
        : mName(std::move(name)), mUuid(uuid), mVersions(std::move(versions)), mAliases(std::move(aliases)),
          mDestroyed(destroyed)
    {
    }
    ~FakeFactory() override
    {
        if (mDestroyed != nullptr)
        {
            *mDestroyed = true;
        }
    }

    std::string getName() const override { return mName; }
    quv::UUID getUUID() const override { return mUuid; }
    bool isAlias(const std::string& name) const override
    {
        return std::find(mAliases.begin(), mAliases.end(), name) != mAliases.end();
    }
    std::vector<Version> getSupportedVersions() const override
    {
        std::vector<Version> versions;
        for (const auto& entry : mVersions)
        {
            versions.push_back(entry.first);
        }
        return versions;
    }
    std::vector<ModuleDependency> getDependencies(Version version) const override
    {
        const auto found = mVersions.find(version);
        return found != mVersions.end() ? found->second : std::vector<ModuleDependency>();
    }
    std::optional<ModuleBinding> createModuleBinding(Version version, const std::optional<ContextConfig>&) override
    {
        if (creator)
        {
            return creator(version);
        }
        ModuleBinding binding;
        binding.descriptor = ModuleDescriptor{mName, mUuid, version};
        return binding;
    }

    Creator creator;

private:
    std::string mName;
    quv::UUID mUuid;
    std::map<Version, std::vector<ModuleDependency>> mVersions;
    std::vector<std::string> mAliases;
    bool* mDestroyed;
};

ModuleDependency dependsOn(const std::string& name, uint64_t id)
{
    ModuleDependency dependency;
    dependency.name = name;
    dependency.uuid = quv::UUID(0, id);
    dependency.versions = {Version(1, 0, 0)};
    return dependency;
}

ModuleDescriptor moduleOf(const std::string& name, uint64_t id)
{
    return ModuleDescriptor{name, quv::UUID(0, id), Version(1, 0, 0)};
}

class ScriptEngineTest : public NativeEngineTest
{
protected:
    FakeFactory& offer(const std::string& name, uint64_t id, std::vector<ModuleDependency> dependencies = {})
    {
        auto factory = std::make_unique<FakeFactory>(
            name, quv::UUID(0, id), std::map<Version, std::vector<ModuleDependency>>{{Version(1, 0, 0), dependencies}});
        FakeFactory& result = *factory;
        mEngine.addModuleBindingFactory(std::move(factory));
        return result;
    }
};

TEST_F(ScriptEngineTest, DuplicateFactoriesAreRefusedByUuidOrByTheNewName)
{
    mEngine.addModuleBindingFactory(std::make_unique<FakeFactory>("alpha", quv::UUID(0, 1),
                                                                  std::map<Version, std::vector<ModuleDependency>>{},
                                                                  std::vector<std::string>{"alpha_alias"}));

    struct Row
    {
        const char* name;
        uint64_t id;
        std::vector<std::string> aliases;
        bool accepted;
    };
    const Row rows[] = {
        {"beta", 1, {}, false},        // the UUID is taken
        {"alpha", 2, {}, false},       // the name is taken
        {"alpha_alias", 3, {}, false}, // the name is another factory's alias
        {"ALPHA", 4, {}, true},        // names are compared exactly
        {"gamma", 5, {"alpha"}, true}, // the newcomer's own aliases are not looked at
        {"delta", 6, {"gamma"}, true},
    };
    for (const Row& row : rows)
    {
        bool destroyed = false;
        const std::vector<std::string> asserts = collectAsserts(
            [&]
            {
                mEngine.addModuleBindingFactory(std::make_unique<FakeFactory>(
                    row.name, quv::UUID(0, row.id), std::map<Version, std::vector<ModuleDependency>>{}, row.aliases,
                    &destroyed));
            });
        EXPECT_EQ(asserts.empty(), row.accepted) << row.name;
        EXPECT_EQ(destroyed, !row.accepted) << row.name;
        if (!row.accepted)
        {
            EXPECT_THAT(asserts, ElementsAre(DUPLICATE)) << row.name;
        }
    }
    // The refused ones left the first factory where it was.
    EXPECT_EQ(mEngine.getModuleDescriptor(quv::UUID(0, 1))->name, "alpha");
    EXPECT_FALSE(mEngine.hasModuleBindingFactory(quv::UUID(0, 2)));
    EXPECT_TRUE(mEngine.hasModuleBindingFactory(quv::UUID(0, 6)));

    EXPECT_THAT(collectAsserts([&] { mEngine.addModuleBindingFactory(nullptr); }),
                ElementsAre("Module binding factory is null"));
}

TEST_F(ScriptEngineTest, LookupsGoByUuidNameOrAliasAndGiveNoVersion)
{
    mEngine.addModuleBindingFactory(std::make_unique<FakeFactory>(
        "alpha", quv::UUID(0, 1),
        std::map<Version, std::vector<ModuleDependency>>{{Version(1, 0, 0), {}}, {Version(2, 1, 0), {}}},
        std::vector<std::string>{"first", "second"}));

    for (const std::string key : {"alpha", "first", "second"})
    {
        const std::optional<ModuleDescriptor> descriptor = mEngine.getModuleDescriptor(key);
        ASSERT_TRUE(descriptor.has_value()) << key;
        EXPECT_EQ(*descriptor, (ModuleDescriptor{"alpha", quv::UUID(0, 1), Version(0, 0, 0), false})) << key;
        EXPECT_THAT(mEngine.getSupportedVersions(key), ElementsAre(Version(1, 0, 0), Version(2, 1, 0))) << key;
        EXPECT_TRUE(mEngine.hasModuleBindingFactory(key));
    }
    EXPECT_EQ(mEngine.getModuleDescriptor(quv::UUID(0, 1))->name, "alpha");
    EXPECT_FALSE(mEngine.getModuleDescriptor("third").has_value());
    EXPECT_FALSE(mEngine.getModuleDescriptor(quv::UUID(0, 9)).has_value());
    EXPECT_THAT(mEngine.getSupportedVersions("third"), IsEmpty());
}

TEST_F(ScriptEngineTest, MisuseOfTheSettersAssertsAndStillTakesEffect)
{
    bool secondUsed = false;
    EXPECT_THAT(collectAsserts(
                    [&]
                    {
                        mEngine.setRuntimeFactory(
                            [&](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                            {
                                secondUsed = true;
                                return std::shared_ptr<IRuntime>();
                            });
                    }),
                ElementsAre("Factory function already set, it this intended? Clear it first."));
    EXPECT_TRUE(request({}).missingRuntime.has_value());
    EXPECT_TRUE(secondUsed);

    mEngine.clearRuntimeFactory();
    EXPECT_THAT(collectAsserts(
                    [&]
                    {
                        mEngine.setRuntimeFactory([](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                                  { return std::shared_ptr<IRuntime>(); });
                    }),
                IsEmpty());

    offer("alpha", 1);
    EXPECT_THAT(collectAsserts([&] { mEngine.removeModuleBindingFactory(quv::UUID(0, 7)); }),
                ElementsAre("Module binding factory not found"));
    EXPECT_TRUE(mEngine.hasModuleBindingFactory(quv::UUID(0, 1)));
}

TEST_F(ScriptEngineTest, AGivenRegistryManagerIsTheOneInUse)
{
    RegistryManager manager;
    ScriptEngine engine(&manager);
    EXPECT_EQ(&engine.getRegistryManager(), &manager);
    EXPECT_NE(&mEngine.getRegistryManager(), &manager);
}

TEST_F(ScriptEngineTest, ModulesAreBuiltDependenciesFirstAndReachTheContext)
{
    offer("app", 1, {dependsOn("lib", 2)});
    offer("lib", 2, {dependsOn("base", 3)});
    offer("base", 3);
    ScriptContextResult result = request({moduleOf("app", 1)});
    ASSERT_TRUE(result.context.has_value()) << result.getErrorText();

    EXPECT_THAT(modulesOf(result), ElementsAre("base 1.0.0", "lib 1.0.0", "app 1.0.0"));
}

TEST_F(ScriptEngineTest, ALongerCycleGivesNoContextAndSaysWhy)
{
    offer("a", 1, {dependsOn("b", 2)});
    offer("b", 2, {dependsOn("c", 3)});
    offer("c", 3, {dependsOn("a", 1)});
    offer("free", 4);
    std::optional<ScriptContextResult> result;
    EXPECT_THAT(collectAsserts(
                    [&] {
                        result = request({moduleOf("free", 4), moduleOf("a", 1)});
                    }),
                ElementsAre("Could not resolve dependencies, circular reference detected."));
    ASSERT_TRUE(result.has_value());
    EXPECT_FALSE(result->context.has_value());
    EXPECT_TRUE(result->hasErrors());
    EXPECT_THAT(result->getErrorText(),
                HasSubstr("\n§cNo context created: Module 'a' could not be ordered: its dependencies form a cycle"));
    EXPECT_EQ(mEngine.getRegistryManager().getRegistryCount(), 0);
}

TEST_F(ScriptEngineTest, AFactoryThatFailsToBuildAnOfferedVersionIsReportedWithoutAContext)
{
    offer("base", 3);
    FakeFactory& broken = offer("broken", 1, {dependsOn("base", 3)});
    broken.creator = [](Version) -> std::optional<ModuleBinding>
    {
        OV_ASSERT(false, "The creator found its data broken");
        return std::nullopt;
    };
    std::optional<ScriptContextResult> result;
    EXPECT_THAT(collectAsserts([&] { result = request({moduleOf("broken", 1)}); }),
                ElementsAre("The creator found its data broken",
                            "Failed to create the module for the specified version although we checked if it "
                            "supported the version!",
                            "Should have been verified during dependency resolve!"));
    ASSERT_TRUE(result.has_value());
    EXPECT_FALSE(result->context.has_value());
    ASSERT_EQ(result->moduleResults.missingVersions.size(), 1u);
    // The record names the caller first and the module that failed second.
    EXPECT_EQ(result->moduleResults.missingVersions[0].module.name, "plugin");
    EXPECT_EQ(result->moduleResults.missingVersions[0].requestedBy.name, "broken");
    EXPECT_EQ(mEngine.getRegistryManager().getRegistryCount(), 0);
}

TEST_F(ScriptEngineTest, TheFailureTextNamesTheVersionsThatExistBelowTheResolverText)
{
    mEngine.addModuleBindingFactory(std::make_unique<FakeFactory>(
        "game", quv::UUID(0, 7),
        std::map<Version, std::vector<ModuleDependency>>{{Version(1, 1, 0), {}}, {Version(1, 0, 0), {}}}));
    offer("clean", 8);
    ModuleDescriptor twoOh{"game", quv::UUID(0, 7), Version(2, 0, 0)};
    ModuleDescriptor threeOh{"game", quv::UUID(0, 7), Version(3, 0, 0)};

    ScriptContextResult failed = request({twoOh, threeOh, moduleOf("clean", 8)});
    const std::string resolverText = failed.getErrorText();
    EXPECT_EQ(mEngine.getFailureText(failed), resolverText + "\n§egame exists in the versions: 1.0.0, 1.1.0");

    ScriptContextResult fine = request({moduleOf("clean", 8)});
    EXPECT_EQ(mEngine.getFailureText(fine), "");
}

TEST_F(ScriptEngineTest, AFactoryRemovedWhileTheRuntimeIsMadeIsReportedMissing)
{
    offer("alpha", 1);
    mEngine.clearRuntimeFactory();
    mEngine.setRuntimeFactory(
        [this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
        {
            mEngine.removeModuleBindingFactory(quv::UUID(0, 1));
            return std::make_shared<NativeRuntime>(mEngine.getRegistryManager());
        });
    std::optional<ScriptContextResult> result;
    EXPECT_THAT(collectAsserts([&] { result = request({moduleOf("alpha", 1)}); }),
                ElementsAre("Missing the factory, although we just made sure it was there :O!",
                            "Should have been verified during dependency resolve!"));
    ASSERT_TRUE(result.has_value());
    EXPECT_FALSE(result->context.has_value());
    ASSERT_EQ(result->moduleResults.missingModules.size(), 1u);
    EXPECT_EQ(result->moduleResults.missingModules[0].requestedBy.name, "alpha");
}

TEST_F(ScriptEngineTest, With255ContextsAliveTheNextRequestGetsNoContextAndAReason)
{
    std::vector<ScriptContext> alive;
    for (uint64_t i = 0; i < RegistryManager::MAX_NUMBER_IDS; ++i)
    {
        ScriptContextResult result = request({});
        ASSERT_TRUE(result.context.has_value()) << i;
        alive.push_back(std::move(*result.context));
    }

    std::optional<ScriptContextResult> refused;
    EXPECT_THAT(collectAsserts([&] { refused = request({}); }),
                ElementsAre("No context id is left: 255 contexts are alive"));
    ASSERT_TRUE(refused.has_value());
    EXPECT_FALSE(refused->context.has_value());
    EXPECT_TRUE(refused->hasErrors());
    EXPECT_EQ(refused->getErrorText(),
              "\n§cNo context created: Runtime 'native' gave no context: every context id is taken, 255 contexts "
              "are alive");

    alive.pop_back();
    const ScriptContextResult again = request({});
    EXPECT_TRUE(again.context.has_value());
    EXPECT_FALSE(again.hasErrors());
}

TEST_F(ScriptEngineTest, ARuntimeThatGivesNoContextIsReported)
{
    struct Refusing final : NativeRuntime
    {
        using NativeRuntime::NativeRuntime;
        std::optional<ScriptContext> createContext(ModuleBindingBundle, IDependencyLoader*, IPrinter*,
                                                   const ContextConfig&) override
        {
            return std::nullopt;
        }
    };
    mEngine.clearRuntimeFactory();
    mEngine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                              { return std::make_shared<Refusing>(mEngine.getRegistryManager()); });
    const ScriptContextResult result = request({});
    EXPECT_FALSE(result.context.has_value());
    EXPECT_EQ(result.getErrorText(), "\n§cNo context created: Runtime 'native' gave no context");
}

TEST_F(ScriptEngineTest, ContextsOutliveTheEngineAndHandlesOutliveTheirContext)
{
    RegistryManager manager;
    std::optional<ScriptContext> context;
    {
        ScriptEngine engine(&manager);
        engine.setRuntimeFactory([&](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                 { return std::make_shared<NativeRuntime>(manager); });
        ScriptContextResult result = engine.createScriptingContext(mConfig, REQUESTER, {}, nullptr, nullptr);
        ASSERT_TRUE(result.context.has_value());
        context = std::move(result.context);
    }
    StrongTypedObjectHandle<std::string> text = context->getScope().makeObject<std::string>("still here");
    const WeakObjectHandle weak(context->getScope(), text.getHandle());
    EXPECT_EQ(*text, "still here");

    context.reset();
    EXPECT_FALSE(text.valid());
    EXPECT_FALSE(weak.valid());
    EXPECT_EQ(manager.getRegistryCount(), 0);
    // Dropping the handle afterwards touches nothing that died.
    text = StrongTypedObjectHandle<std::string>();
}
} // namespace
