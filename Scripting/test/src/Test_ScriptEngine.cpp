#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"
#include "TestEmptyModuleBindingFactory.h"
#include "TestRuntimeStubs.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <fmt/format.h>

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

ZUT_REGISTER_TEST_CLASS(Scripting_ScriptEngineTests);
struct Scripting_ScriptEngineTestsBase : ZentaryUnitTest::TestClass<Scripting_ScriptEngineTests>
{
    // Gives every context, empty, and shows what it was given.
    class TestEmptyRuntime final : public TestRuntimeStubs<IRuntime>
    {
    public:
        using Callback = std::function<void(const ModuleBindingBundle&)>;

        explicit TestEmptyRuntime(Callback callback = {}) : mCallback(std::move(callback)) {}

        std::optional<ScriptContext> createContext(ModuleBindingBundle bundle, IDependencyLoader*, IPrinter*,
                                                   const ContextConfig&) override
        {
            if (mCallback)
            {
                mCallback(bundle);
            }
            return ScriptContext();
        }
        void destroyContext(ContextId) override {}
        ResultAny run(ContextId, IPayload*, RunOption) override { return {}; }

    private:
        Callback mCallback;
    };

    using VersionDependencies = std::map<Version, std::vector<ModuleDependency>>;

    static inline const quv::UUID PLUGIN_UUID = quv::UUID::fromString("bc0f2801-7994-463a-85d0-8c6fa4ca10b5");
    static inline const quv::UUID MODULE_UUID = quv::UUID::fromString("5e19750f-bdbe-47e6-b987-8d5fc95e3e41");
    static inline const quv::UUID MODULE_1_UUID = quv::UUID::fromString("839a1d82-5072-4081-8977-1280a30384d1");
    static inline const quv::UUID MODULE_2_UUID = quv::UUID::fromString("b9e09a61-80ab-4af3-8a8c-26ea8dce4309");
    static inline const quv::UUID MODULE_3_UUID = quv::UUID::fromString("2a26efa3-91a7-4ddf-9741-ea1d474db82e");
    static inline const quv::UUID ALIASED_UUID = quv::UUID::fromString("5ba68a48-8685-4fa2-ba93-2cb845a31ec4");

    static ModuleDescriptor plugin() { return ModuleDescriptor{"plugin", PLUGIN_UUID, Version(1, 0, 0)}; }
    static ModuleDescriptor module(const std::string& name, const quv::UUID& uuid, Version version)
    {
        return ModuleDescriptor{name, uuid, std::move(version)};
    }
    static ModuleDependency dependency(const std::string& name, const quv::UUID& uuid, Version version)
    {
        ModuleDependency result;
        result.name = name;
        result.uuid = uuid;
        result.versions = {std::move(version)};
        return result;
    }
    static ContextConfig config(VersionSelection selection = VersionSelection::HighestSatisfying)
    {
        ContextConfig result;
        result.runtimeName = "test_runtime";
        result.versionSelection = selection;
        return result;
    }

    // An engine whose runtime factory gives a TestEmptyRuntime, or nothing when `withRuntime` is false.
    struct Engine
    {
        explicit Engine(bool withRuntime = true)
        {
            engine.setRuntimeFactory(
                [this, withRuntime](const ContextConfig&,
                                    const std::vector<ModuleDescriptor>&) -> std::shared_ptr<IRuntime>
                {
                    if (!withRuntime)
                    {
                        return nullptr;
                    }
                    return std::make_shared<TestEmptyRuntime>([this](const ModuleBindingBundle& bundle)
                                                              { bundleSizes.push_back(bundle.moduleBindings.size()); });
                });
        }

        void offer(const std::string& name, const quv::UUID& uuid, VersionDependencies versions)
        {
            engine.addModuleBindingFactory(
                std::make_unique<TestEmptyModuleBindingFactory>(name, uuid, std::move(versions)));
        }

        ScriptContextResult request(const std::vector<ModuleDescriptor>& requested,
                                    VersionSelection selection = VersionSelection::HighestSatisfying)
        {
            return engine.createScriptingContext(config(selection), plugin(), requested, nullptr, nullptr);
        }

        ScriptEngine engine;
        std::vector<size_t> bundleSizes;
    };

    static std::vector<std::string> moduleNames(const ScriptContextResult& result)
    {
        std::vector<std::string> names;
        for (const ModuleDescriptor& descriptor : result.moduleResults.modules)
        {
            names.push_back(descriptor.name + " " + descriptor.version.toString());
        }
        return names;
    }

    static void expectSuccess(const ScriptContextResult& result)
    {
        Assert::IsTrue(result.context.has_value(), false, "No context:{}", result.getErrorText());
        Assert::IsFalse(result.hasErrors(), false, "Errors:{}", result.getErrorText());
        Assert::AreEqual(result.getErrorText(), std::string());
    }

    // No context, and exactly the given number of records in each failure list.
    static void expectFailure(const ScriptContextResult& result, size_t missingModules, size_t missingVersions,
                              size_t conflicts)
    {
        Assert::IsFalse(result.context.has_value(), false, "A context was made");
        Assert::IsTrue(result.hasErrors());
        Assert::IsTrue(result.moduleResults.modules.empty(), false, "Modules were selected");
        Assert::AreEqual(result.moduleResults.missingModules.size(), missingModules, false, "missing modules");
        Assert::AreEqual(result.moduleResults.missingVersions.size(), missingVersions, false, "missing versions");
        Assert::AreEqual(result.moduleResults.conflicts.size(), conflicts, false, "conflicts");
    }

    // Each of `lines` stands somewhere in the result's error text.
    static void expectErrorLines(const ScriptContextResult& result, std::initializer_list<const char*> lines)
    {
        const std::string text = result.getErrorText();
        for (const char* line : lines)
        {
            Assert::IsTrue(text.find(line) != std::string::npos, false, "{} not in:{}", line, text);
        }
    }

    // "test_module" offered in one version and asked for in another.
    static ScriptContextResult requestFromSingleOffer(const Version& offered, const Version& requested)
    {
        Engine engine;
        engine.offer("test_module", MODULE_UUID, {{offered, {}}});
        return engine.request({module("test_module", MODULE_UUID, requested)});
    }
};

class Scripting_ScriptEngineTests final : public Scripting_ScriptEngineTestsBase
{
    ZUT_TEST(MissingRuntime_CreateContext_Fail)
    {
        Engine engine(false);
        const ScriptContextResult result = engine.request({});
        Assert::IsFalse(result.context.has_value());
        Assert::IsTrue(result.hasErrors());
        Assert::IsTrue(result.missingRuntime == std::optional<std::string>("test_runtime"));
        Assert::AreEqual(result.getErrorText(), std::string("\n§cMissing runtime: test_runtime"));

        // With no factory set at all, and no runtime name, the runtime is reported as unknown.
        ScriptEngine bare;
        const ScriptContextResult unnamed = bare.createScriptingContext({}, plugin(), {}, nullptr, nullptr);
        Assert::IsTrue(unnamed.missingRuntime == std::optional<std::string>("unknown"));
        Assert::IsFalse(unnamed.context.has_value());
    }

    ZUT_TEST(MissingModule_CreateContext_Fail)
    {
        Engine engine;
        const ScriptContextResult result = engine.request({module("test_module", MODULE_UUID, Version(1, 0, 0))});
        expectFailure(result, 1, 0, 0);
        Assert::IsFalse(result.missingRuntime.has_value());
        Assert::IsTrue(engine.bundleSizes.empty(), false, "The runtime was asked for a context");
    }

    ZUT_TEST(MissingRuntimeAndModule_CreateContext_Fail)
    {
        Engine engine(false);
        const ScriptContextResult result = engine.request({module("test_module", MODULE_UUID, Version(1, 0, 0))});
        expectFailure(result, 1, 0, 0);
        Assert::IsTrue(result.missingRuntime.has_value());
        Assert::AreEqual(result.getErrorText(),
                         std::string("\n§cMissing runtime: test_runtime\n§cMissing Modules: \n    §c[test_module - "
                                     "1.0.0] requested by [plugin - 1.0.0]"));
    }

    ZUT_TEST(EmptyModuleRequest_CreateContext_Success)
    {
        Engine engine;
        const ScriptContextResult result = engine.request({});
        expectSuccess(result);
        Assert::IsTrue(engine.bundleSizes == std::vector<size_t>{0});
    }

    ZUT_TEST(ValidModuleRequest_CreateContext_Success)
    {
        Engine engine;
        engine.offer("test_module", MODULE_UUID, {{Version(1, 0, 0), {}}});
        const ScriptContextResult result = engine.request({module("test_module", MODULE_UUID, Version(1, 0, 0))});
        expectSuccess(result);
        Assert::IsTrue(moduleNames(result) == std::vector<std::string>{"test_module 1.0.0"});
        Assert::IsTrue(engine.bundleSizes == std::vector<size_t>{1});
    }

    ZUT_TEST(ModuleWithImplicitDependency_CreateContext_Success)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_2", MODULE_2_UUID, Version(1, 0, 0))}}});
        engine.offer("test_module_2", MODULE_2_UUID, {{Version(1, 0, 0), {}}});
        const ScriptContextResult result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))});
        expectSuccess(result);
        Assert::IsTrue(moduleNames(result) == std::vector<std::string>{"test_module_2 1.0.0", "test_module_1 1.0.0"});
        Assert::IsTrue(engine.bundleSizes == std::vector<size_t>{2});
    }

    ZUT_TEST(ModulesWithCircularDependencies_CreateContext_Fail)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_2", MODULE_2_UUID, Version(1, 0, 0))}}});
        engine.offer("test_module_2", MODULE_2_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_1", MODULE_1_UUID, Version(1, 0, 0))}}});
        std::optional<ScriptContextResult> result;
        Assert::CheckDebugAsserts(
            [&] { result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))}); },
            "Could not resolve dependencies, circular reference detected.");
        Assert::IsTrue(result.has_value(), true, "The request did not return");
        Assert::IsFalse(result->context.has_value(), false, "A context was made without the modules in the cycle");
        Assert::IsTrue(result->hasErrors());
    }

    ZUT_TEST(ModuleWithDependencyOnSelf_CreateContext_Fail)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_1", MODULE_1_UUID, Version(1, 0, 0))}}});
        std::optional<ScriptContextResult> result;
        Assert::CheckDebugAsserts(
            [&] { result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))}); },
            "Could not resolve dependencies, circular reference detected.");
        Assert::IsTrue(result.has_value(), true, "The request did not return");
        Assert::IsFalse(result->context.has_value());
        Assert::IsTrue(engine.bundleSizes.empty(), false, "The runtime was asked for a context");
    }

    ZUT_TEST(UnsupportedModuleVersion_CreateContext_Fail)
    {
        const ScriptContextResult result = requestFromSingleOffer(Version(1, 0, 0), Version(2, 0, 0));
        expectFailure(result, 0, 1, 0);
        Assert::AreEqual(result.moduleResults.missingVersions[0].module.version, Version(2, 0, 0));
    }

    ZUT_TEST(MissingSingleDependency_CreateContext_FailWithSingleMissingModuleErrorMsg)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_2", MODULE_2_UUID, Version(1, 0, 0))}}});
        const ScriptContextResult result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))});
        expectFailure(result, 1, 0, 0);
        expectErrorLines(result, {"[test_module_2 - 1.0.0] requested by [test_module_1 - 1.0.0]"});
    }

    ZUT_TEST(MissingMultipleExplicitDependencies_CreateContext_FailWithMultipleMissingModuleErrorMsg)
    {
        Engine engine;
        const ScriptContextResult result = engine.request({module("test_module_2", MODULE_2_UUID, Version(1, 0, 0)),
                                                           module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))});
        expectFailure(result, 2, 0, 0);
        expectErrorLines(result, {"[test_module_1 - 1.0.0] requested by [plugin - 1.0.0]",
                                  "[test_module_2 - 1.0.0] requested by [plugin - 1.0.0]"});
    }

    ZUT_TEST(MissingMultipleImplicitDependencies_CreateContext_FailWithMultipleMissingModuleErrorMsg)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0),
                       {dependency("test_module_2", MODULE_2_UUID, Version(1, 0, 0)),
                        dependency("test_module_3", MODULE_3_UUID, Version(1, 0, 0))}}});
        const ScriptContextResult result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))});
        expectFailure(result, 2, 0, 0);
        expectErrorLines(result, {"[test_module_2 - 1.0.0] requested by [test_module_1 - 1.0.0]",
                                  "[test_module_3 - 1.0.0] requested by [test_module_1 - 1.0.0]"});
    }

    ZUT_TEST(CreateContext_FailWithAppropriateErrorMessages)
    {
        Engine engine(false);
        engine.offer("test_module_1", MODULE_1_UUID, {{Version(1, 0, 0), {}}});
        engine.offer("test_module_2", MODULE_2_UUID, {{Version(1, 0, 0), {}}, {Version(2, 0, 0), {}}});
        const ScriptContextResult result = engine.request({
            module("test_module", MODULE_UUID, Version(1, 0, 0)),
            module("test_module_1", MODULE_1_UUID, Version(3, 0, 0)),
            module("test_module_2", MODULE_2_UUID, Version(1, 0, 0)),
            module("test_module_2", MODULE_2_UUID, Version(2, 0, 0)),
        });
        expectFailure(result, 1, 1, 1);
        const std::string text = result.getErrorText();
        size_t previous = 0;
        for (const char* heading : {"\n§cMissing runtime: test_runtime", "\n§cMissing Modules: ",
                                    "\n§cMissing Versioned Modules: ", "\n§cConflicting Modules: "})
        {
            const size_t at = text.find(heading);
            Assert::IsTrue(at != std::string::npos && at >= previous, false, "{} missing or out of order in:{}",
                           heading, text);
            previous = at == std::string::npos ? previous : at;
        }
    }

    ZUT_TEST(MixImplicitAndExplicitDependencyRequestsWithConflictingVersionsAndMissingModule)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_3", MODULE_3_UUID, Version(1, 0, 0))}}});
        engine.offer("test_module_3", MODULE_3_UUID, {{Version(1, 0, 0), {}}, {Version(2, 0, 0), {}}});
        const ScriptContextResult result = engine.request({
            module("test_module_1", MODULE_1_UUID, Version(1, 0, 0)),
            module("test_module_3", MODULE_3_UUID, Version(2, 0, 0)),
            module("test_module", MODULE_UUID, Version(1, 0, 0)),
        });
        expectFailure(result, 1, 0, 1);
        expectErrorLines(result, {"[test_module_3 - 1.0.0] requested by [test_module_1 - 1.0.0]",
                                  "[test_module_3 - 2.0.0] requested by [plugin - 1.0.0]"});
    }

    ZUT_TEST(MixImplicitAndExplicitDependencyRequestsWithUnsupportedVersions_Fail)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID, {{Version(1, 0, 0), {}}});
        engine.offer("test_module_2", MODULE_2_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_3", MODULE_3_UUID, Version(2, 0, 0))}}});
        engine.offer("test_module_3", MODULE_3_UUID, {{Version(1, 0, 0), {}}});
        const ScriptContextResult result = engine.request({
            module("test_module_1", MODULE_1_UUID, Version(3, 0, 0)),
            module("test_module_2", MODULE_2_UUID, Version(1, 0, 0)),
        });
        expectFailure(result, 0, 2, 0);
        expectErrorLines(result, {"[test_module_1 - 3.0.0] requested by [plugin - 1.0.0]",
                                  "[test_module_3 - 2.0.0] requested by [test_module_2 - 1.0.0]"});
    }

    ZUT_TEST(RuntimeAndModule_PromoteToMissingVersion_NotPossible)
    {
        const ScriptContextResult result = requestFromSingleOffer(Version(1, 0, 0), Version(1, 1, 0));
        expectFailure(result, 0, 1, 0);
        Assert::AreEqual(result.moduleResults.missingVersions[0].module.version, Version(1, 1, 0));
    }

    ZUT_TEST(RuntimeAndModule_NonZeroMajorVersion_PromoteToMinorVersion_Success)
    {
        const ScriptContextResult result = requestFromSingleOffer(Version(1, 2, 0), Version(1, 1, 0));
        expectSuccess(result);
        Assert::AreEqual(result.moduleResults.promotions.size(), size_t{1}, true);
        Assert::AreEqual(result.moduleResults.promotions[0].fromVersion, Version(1, 1, 0));
        Assert::AreEqual(result.moduleResults.promotions[0].toVersion, Version(1, 2, 0));
    }

    ZUT_TEST(RuntimeAndModule_NonZeroMajorVersion_SameMinorVersion_PromoteToPatchVersion_Success)
    {
        const ScriptContextResult result = requestFromSingleOffer(Version(4, 2, 5), Version(4, 2, 3));
        expectSuccess(result);
        Assert::IsTrue(moduleNames(result) == std::vector<std::string>{"test_module 4.2.5"});
    }

    ZUT_TEST(RuntimeAndModule_ZeroMajorVersion_PromoteToMinorVersion_Failed)
    {
        expectFailure(requestFromSingleOffer(Version(0, 2, 0), Version(0, 1, 0)), 0, 1, 0);
    }

    ZUT_TEST(RuntimeAndModule_ZeroMajorVersion_SameMinorVersion_NoPromotion)
    {
        expectFailure(requestFromSingleOffer(Version(0, 2, 5), Version(0, 2, 3)), 0, 1, 0);
    }

    ZUT_TEST(RuntimeAndModule_MissingRequestedExactVersion_PromoteToHigherMinorVersion)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_2", MODULE_2_UUID, Version(1, 1, 0))}}});
        engine.offer("test_module_2", MODULE_2_UUID, {{Version(1, 2, 0), {}}});
        const ScriptContextResult result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0))});
        expectSuccess(result);
        Assert::IsTrue(moduleNames(result) == std::vector<std::string>{"test_module_2 1.2.0", "test_module_1 1.0.0"});
    }

    ZUT_TEST(RuntimeAndModuleWithTags_PromotionAttemptWithMismatchPreReleaseTag_FailsToPromote)
    {
        const ScriptContextResult result = requestFromSingleOffer(Version(1, 1, 0, "beta"), Version(1, 1, 0));
        Assert::IsTrue(result.hasErrors());
        Assert::IsFalse(result.context.has_value());
    }

    ZUT_TEST(RuntimeAndModuleWithTags_PromotionAttemptWithSamePreReleaseTag_PromotionFailed)
    {
        const ScriptContextResult result = requestFromSingleOffer(Version(1, 2, 0, "beta"), Version(1, 1, 0, "beta"));
        Assert::IsTrue(result.hasErrors());
        Assert::IsFalse(result.context.has_value());
    }

    ZUT_TEST(ModulesWithDifferentRuntimeVersions_CreateContext_Fail)
    {
        Engine engine;
        engine.offer("test_module_1", MODULE_1_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_3", MODULE_3_UUID, Version(1, 0, 0))}}});
        engine.offer("test_module_2", MODULE_2_UUID,
                     {{Version(1, 0, 0), {dependency("test_module_3", MODULE_3_UUID, Version(2, 0, 0))}}});
        engine.offer("test_module_3", MODULE_3_UUID, {{Version(1, 0, 0), {}}, {Version(2, 0, 0), {}}});
        const ScriptContextResult result = engine.request({module("test_module_1", MODULE_1_UUID, Version(1, 0, 0)),
                                                           module("test_module_2", MODULE_2_UUID, Version(1, 0, 0))});
        expectFailure(result, 0, 0, 1);
    }

    ZUT_TEST(SingleModuleFactory_AddFactoryRemoveFactoryAndCreateContext_FailModuleNotFound)
    {
        Engine engine;
        engine.offer("test_module", MODULE_UUID, {{Version(1, 0, 0), {}}});
        Assert::IsTrue(engine.engine.hasModuleBindingFactory(MODULE_UUID), true);
        engine.engine.removeModuleBindingFactory(MODULE_UUID);
        Assert::IsFalse(engine.engine.hasModuleBindingFactory(MODULE_UUID));
        const ScriptContextResult result = engine.request({module("test_module", MODULE_UUID, Version(1, 0, 0))});
        expectFailure(result, 1, 0, 0);
    }

    ZUT_TEST(CreateMultipleVersionsOfModuleWithAliases_RequestModuleByAlias_Success)
    {
        Engine engine;
        auto factory = std::make_unique<GenericModuleBindingFactory>("testFactory", ALIASED_UUID);
        const auto creator = [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
        { return std::optional<ModuleBinding>(builder.build(true, {}, {})); };
        factory->addVersionedModuleBinding("alias_1", Version(1, 0, 0), creator, CommonModuleFactory::VERSION_1_2_0, {},
                                           false);
        factory->addVersionedModuleBinding("alias_2", Version(2, 0, 0), creator, CommonModuleFactory::VERSION_1_2_0, {},
                                           false);
        engine.engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        engine.engine.addModuleBindingFactory(std::move(factory));

        std::vector<std::string> built;
        engine.engine.clearRuntimeFactory();
        engine.engine.setRuntimeFactory(
            [&](const ContextConfig&, const std::vector<ModuleDescriptor>&)
            {
                return std::make_shared<TestEmptyRuntime>(
                    [&](const ModuleBindingBundle& bundle)
                    {
                        for (const ModuleBinding& binding : bundle.moduleBindings)
                        {
                            built.push_back(binding.descriptor.name + " " + binding.descriptor.version.toString());
                        }
                    });
            });

        for (const auto& [alias, version] :
             {std::pair("alias_1", Version(1, 0, 0)), std::pair("alias_2", Version(2, 0, 0))})
        {
            built.clear();
            const std::optional<ModuleDescriptor> descriptor = engine.engine.getModuleDescriptor(std::string(alias));
            Assert::IsTrue(descriptor.has_value(), true, "No factory answers to {}", alias);
            Assert::AreEqual(descriptor->uuid, ALIASED_UUID);
            const ScriptContextResult result = engine.request({module(alias, descriptor->uuid, version)});
            expectSuccess(result);
            Assert::IsTrue(built == std::vector<std::string>{"@zentary/common 1.2.0",
                                                             std::string(alias) + " " + version.toString()},
                           false, "Built for {}: {}", alias, fmt::join(built, ", "));
        }
    }
};
