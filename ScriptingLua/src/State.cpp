#include "Scripting/Lua/State.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Runtime/Log.h"

#include "Diagnostics/TerminalText.h"
#include "Hash/Fnv1a.h"

#include <algorithm>

namespace Scripting::Lua
{
Module::Module(std::string name, quv::UUID uuid) : mName(std::move(name)), mUuid(uuid), mVersions{Version(1, 0, 0)} {}

quv::UUID Module::uuidFromName(std::string_view name)
{
    // Two independent hashes, so that two names sharing one 64-bit hash still differ.
    const uint64_t high = Ovelith::Hash::fnv1a64(name);
    std::string salted = "module:";
    salted += name;
    return quv::UUID(high, Ovelith::Hash::fnv1a64(salted));
}

Module& Module::version(const Version& version)
{
    const auto place = std::lower_bound(mVersions.begin(), mVersions.end(), version);
    if (place == mVersions.end() || !(*place == version))
    {
        mVersions.insert(place, version);
    }
    return *this;
}

Module& Module::request(const Version& version)
{
    mRequested = version;
    return *this;
}

Version Module::getRequestedVersion() const
{
    return mRequested.value_or(mVersions.back());
}

Module& Module::describe(std::function<void(ModuleBindingBuilder&)> step)
{
    OV_ASSERT(static_cast<bool>(step), "Module '%s' was given an empty description step; it is left out",
              mName.c_str());
    if (step)
    {
        mSteps.push_back(std::move(step));
    }
    return *this;
}

std::unique_ptr<GenericModuleBindingFactory> Module::makeFactory() const
{
    struct Snapshot
    {
        std::vector<ClassBinding> classes;
        std::vector<FunctionBinding> functions;
        std::vector<std::function<void(ModuleBindingBuilder&)>> steps;
    };
    auto snapshot = std::make_shared<Snapshot>();
    for (const auto& description : mClasses)
    {
        snapshot->classes.push_back(description->snapshot());
    }
    snapshot->functions = mFunctions;
    snapshot->steps = mSteps;

    auto factory = std::make_unique<GenericModuleBindingFactory>(mName, mUuid);
    for (const Version& version : mVersions)
    {
        factory->addVersionedModuleBinding(
            version,
            [snapshot](ModuleBindingBuilder& builder, const std::optional<ContextConfig>& config)
            {
                for (const ClassBinding& classBinding : snapshot->classes)
                {
                    builder.classBinding(classBinding);
                }
                for (const FunctionBinding& function : snapshot->functions)
                {
                    builder.functionBinding(function);
                }
                for (const auto& step : snapshot->steps)
                {
                    step(builder);
                }
                return std::optional<ModuleBinding>(
                    builder.build(true, {}, config.has_value() ? config->runtimeConditions : RuntimeConditions{}));
            },
            CommonModuleFactory::LATEST_VERSION, {}, false);
    }
    return factory;
}

State::State() : State(StateSettings{}) {}

State::State(StateSettings settings)
    : mSettings(std::move(settings)),
      mRuntime(std::make_shared<LuaRuntime>(mEngine.getRegistryManager(), mSettings.runtime)),
      mApplication{mSettings.applicationName, Module::uuidFromName(mSettings.applicationName), Version(1, 0, 0)}
{
    if (mSettings.logAsserts)
    {
        mPreviousAssertHandler = Ovelith::Diagnostics::setAssertHandler(&logAssertAndContinue);
    }
    if (mSettings.watchdog.has_value())
    {
        mRuntime->enableWatchdog(*mSettings.watchdog);
    }
    mEngine.setRuntimeFactory([runtime = mRuntime](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                              { return runtime; });
    mEngine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
}

State::~State()
{
    mContext.reset();
    // Another State made later may have installed the handler since; only ours is taken back.
    if (mSettings.logAsserts && Ovelith::Diagnostics::getAssertHandler() == &logAssertAndContinue)
    {
        Ovelith::Diagnostics::setAssertHandler(mPreviousAssertHandler);
    }
}

Module& State::module(const std::string& name, std::optional<quv::UUID> uuid)
{
    for (const auto& module : mModules)
    {
        if (module->getName() == name)
        {
            return *module;
        }
    }
    return *mModules.emplace_back(std::make_unique<Module>(name, uuid.value_or(Module::uuidFromName(name))));
}

void State::addModule(std::unique_ptr<IModuleBindingFactory> factory, const Version& version)
{
    OV_ASSERT(factory != nullptr, "State::addModule was given no factory");
    if (factory == nullptr)
    {
        return;
    }
    const quv::UUID uuid = factory->getUUID();
    ModuleDescriptor requested{factory->getName(), uuid, version};
    const bool taken = mEngine.hasModuleBindingFactory(uuid);
    mEngine.addModuleBindingFactory(std::move(factory));
    if (!taken && mEngine.hasModuleBindingFactory(uuid))
    {
        mFactoryModules.push_back(std::move(requested));
    }
}

void State::reset()
{
    mContext.reset();
}

ScriptContext* State::context()
{
    if (mContext.has_value())
    {
        return &*mContext;
    }
    std::vector<ModuleDescriptor> requested;
    for (const auto& module : mModules)
    {
        // Made anew each time, so that a new context sees versions and members added since the last one.
        if (mEngine.hasModuleBindingFactory(module->getUUID()))
        {
            mEngine.removeModuleBindingFactory(module->getUUID());
        }
        mEngine.addModuleBindingFactory(module->makeFactory());
        requested.push_back(ModuleDescriptor{module->getName(), module->getUUID(), module->getRequestedVersion()});
    }
    requested.insert(requested.end(), mFactoryModules.begin(), mFactoryModules.end());
    ScriptContextResult made = mEngine.createScriptingContext(ContextConfig("lua", "", mApplication), mApplication,
                                                              requested, nullptr, nullptr);
    if (!made.context.has_value())
    {
        mFailure = mEngine.getFailureText(made);
        return nullptr;
    }
    mFailure.clear();
    mContext = std::move(made.context);
    return &*mContext;
}

ResultAny State::_noContext() const
{
    return Error("No script context could be made:" + Ovelith::Diagnostics::renderForTerminal(mFailure, false));
}

ResultAny State::_run(const std::string& source, const std::string& sourceName, const entt::meta_type& type)
{
    ScriptContext* made = context();
    return made != nullptr ? mRuntime->runScriptAs(made->getContextId(), source, sourceName, type) : _noContext();
}

ResultAny State::_call(const std::string& function, entt::meta_any* arguments, unsigned count,
                       const entt::meta_type& type)
{
    ScriptContext* made = context();
    return made != nullptr ? mRuntime->callFunction(made->getContextId(), function, arguments, count, type)
                           : _noContext();
}

ResultAny State::_get(const std::string& name, const entt::meta_type& type)
{
    ScriptContext* made = context();
    return made != nullptr ? mRuntime->getGlobal(made->getContextId(), name, type) : _noContext();
}

ResultAny State::_set(const std::string& name, const entt::meta_any& value)
{
    ScriptContext* made = context();
    return made != nullptr ? mRuntime->setGlobal(made->getContextId(), name, value) : _noContext();
}
} // namespace Scripting::Lua
