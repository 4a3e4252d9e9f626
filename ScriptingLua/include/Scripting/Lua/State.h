#pragma once

#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Runtime/Result.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include "Diagnostics/Assert.h"

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Scripting::Lua
{
namespace internal
{
// A class builder kept open until a context is made, so that members can still be added to it.
class IClassDescription
{
public:
    virtual ~IClassDescription() = default;
    // The record as the builder describes it now; the builder stays usable.
    virtual ClassBinding snapshot() const = 0;
};

template <typename T>
class ClassDescription final : public IClassDescription
{
public:
    explicit ClassDescription(const std::string& name) : builder(name) {}

    ClassBinding snapshot() const override
    {
        ClassBindingBuilder<T> copy = builder;
        return copy.finish();
    }

    ClassBindingBuilder<T> builder;
};

// Strings given as literals travel as std::string, the type scripts' strings become.
template <typename A>
using ArgumentValue =
    std::conditional_t<std::is_convertible_v<A, std::string_view> && !std::is_same_v<std::decay_t<A>, std::string>,
                       std::string, std::decay_t<A>>;
} // namespace internal

/// @brief A module described by name for State: its classes and functions, the versions it exists in.
///
/// The members are added with the library's builders and tagged as with them, so `.release(Version(1, 1, 0))`
/// on a member keeps it out of version 1.0.0. Everything stays open until State makes its context.
class Module
{
public:
    /// @brief A module in version 1.0.0 only.
    /// @param name The name scripts `require`.
    /// @param uuid The module's identity.
    Module(std::string name, quv::UUID uuid);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /// @brief The identity derived from a module name when none is given: two FNV-1a hashes of it.
    /// @param name The module's name.
    /// @return The same UUID for the same name, in every process.
    static quv::UUID uuidFromName(std::string_view name);

    /// @brief The name scripts `require`.
    /// @return The name.
    const std::string& getName() const { return mName; }
    /// @brief The module's identity.
    /// @return The UUID.
    const quv::UUID& getUUID() const { return mUuid; }

    /// @brief Offers the module in one more version; a version offered already is left as it is.
    /// @param version The version; members tagged for later versions stay out of it.
    /// @return This module.
    Module& version(const Version& version);
    /// @brief The versions offered, ascending.
    /// @return The versions.
    const std::vector<Version>& getVersions() const { return mVersions; }

    /// @brief Makes State's context ask for this version rather than the newest one offered.
    /// @param version The version asked for; a version not offered fails the context, naming those that are.
    /// @return This module.
    Module& request(const Version& version);
    /// @brief The version State's context asks for.
    /// @return The requested version, the newest offered by default.
    Version getRequestedVersion() const;

    /// @brief A class of the module, described with the class builder it returns.
    /// @tparam T The native class.
    /// @param name The name scripts see.
    /// @return The builder; it stays valid as long as the module.
    template <typename T>
    ClassBindingBuilder<T>& classBinding(const std::string& name)
    {
        auto description = std::make_unique<internal::ClassDescription<T>>(name);
        ClassBindingBuilder<T>& builder = description->builder;
        mClasses.push_back(std::move(description));
        return builder;
    }

    /// @brief A module-level free or static function; argument descriptions are optional.
    /// @tparam nativeFunction The function.
    /// @tparam privilege What a script may do with it, as for ModuleBindingBuilder::function.
    /// @tparam Args The described arguments' types.
    /// @param name The name scripts see.
    /// @param arguments Descriptions of the arguments, in native order.
    /// @return The function's record, for tagging, good until the next function is added.
    template <auto nativeFunction, Privilege privilege = Privilege::None, typename... Args>
    requires Scripting::internal::FunctionPointer<nativeFunction> FunctionBinding&
    function(const std::string& name, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::StaticFunction<nativeFunction, false>;
        return _addFunction<Wrapper>(name, Scripting::internal::MakeWrapper<Wrapper>{privilege},
                                     std::move(arguments)...);
    }

    /// @brief A module-level lambda; argument descriptions are optional.
    /// @tparam privilege What a script may do with it, as for ModuleBindingBuilder::function.
    /// @tparam Lambda The callable's type.
    /// @tparam Args The described arguments' types.
    /// @param name The name scripts see.
    /// @param lambda The callable.
    /// @param arguments Descriptions of the arguments, in native order.
    /// @return The function's record, for tagging, good until the next function is added.
    template <Privilege privilege = Privilege::None, typename Lambda, typename... Args>
    FunctionBinding& function(const std::string& name, Lambda lambda, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::LambdaFunction<Lambda, false>;
        return _addFunction<Wrapper>(name, Scripting::internal::MakeLambdaWrapper<Wrapper, Lambda>{privilege, lambda},
                                     std::move(arguments)...);
    }

    /// @brief Anything else the module builder offers (enums, interfaces, errors, constants, dependencies),
    /// added to the builder of each version when it is built.
    /// @param step Adds records to the builder; it runs once per built version.
    /// @return This module.
    Module& describe(std::function<void(ModuleBindingBuilder&)> step);

    /// @brief The module as a factory of the versioned machinery, holding a copy of what is described now.
    /// @return A factory for any ScriptEngine; each version depends on the latest common module.
    std::unique_ptr<GenericModuleBindingFactory> makeFactory() const;

private:
    template <typename Wrapper, typename Make, typename... Args>
    FunctionBinding& _addFunction(const std::string& name, const Make& makeWrapper,
                                  ArgumentBindingBuilder<Args>&&... arguments)
    {
        if (!Scripting::internal::checkMemberName("Module", mName, name, "function"))
        {
            return Scripting::internal::droppedFunctionBinding();
        }
        return Scripting::internal::addFunction<Wrapper>(mFunctions, name, Scripting::internal::FunctionKind::Function,
                                                         makeWrapper, std::move(arguments)...);
    }

    std::string mName;
    quv::UUID mUuid;
    std::vector<Version> mVersions;
    std::optional<Version> mRequested;
    std::vector<std::unique_ptr<internal::IClassDescription>> mClasses;
    std::vector<FunctionBinding> mFunctions;
    std::vector<std::function<void(ModuleBindingBuilder&)>> mSteps;
};

/// @brief How State sets up its runtime.
struct StateSettings
{
    /// Memory limit and print handler of the Lua runtime.
    LuaRuntimeSettings runtime;
    /// The budget of one entry into the script; none when empty. By default a script stops after 10 s.
    std::optional<WatchdogSettings> watchdog = WatchdogSettings{10000, 0};
    /// The name of the module that asks for the others, as failures name it.
    std::string applicationName = "application";
    /// While the State lives, library misuse is logged and the library carries on
    /// (Scripting::logAssertAndContinue) instead of throwing.
    bool logAsserts = true;
};

/// @brief The short way in: an engine, a sandboxed Lua runtime and the common module in one object, modules
/// made by name, and one script context that runs scripts, calls their functions and reads their globals.
///
/// The context is made on first use from the modules described until then; reset() closes it, and the next
/// use makes a new one from the descriptions as they are then. Everything here is built on ScriptEngine,
/// LuaRuntime and GenericModuleBindingFactory, which getEngine(), getRuntime() and Module::makeFactory() reach.
class State
{
public:
    /// @brief An engine with the common module and a Lua runtime with the default settings, no module of the
    /// application yet.
    State();
    /// @brief The same with settings of the caller's.
    /// @param settings The runtime's settings.
    explicit State(StateSettings settings);
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State();

    /// @brief The module of that name, made on first call in version 1.0.0.
    /// @param name The name scripts `require`.
    /// @param uuid The identity; derived from the name when not given. Ignored once the module exists.
    /// @return The module, valid as long as the State.
    Module& module(const std::string& name, std::optional<quv::UUID> uuid = std::nullopt);

    /// @brief A module of the application's own factory, asked for in `version` by every context made from now.
    /// @param factory The module in all its versions; the engine takes it over. One whose UUID or name is taken
    /// asserts and is dropped, as ScriptEngine::addModuleBindingFactory does.
    /// @param version The version the context asks for.
    void addModule(std::unique_ptr<IModuleBindingFactory> factory, const Version& version);

    /// @brief Runs Lua source text in the context.
    /// @tparam R The native type wanted of what the script returns; void drops it.
    /// @param source The script.
    /// @param sourceName The name that errors and stacks show for it.
    /// @return The value, or an error value: the script failed, returned what does not convert to `R`, or
    /// there is no context (the error says why).
    template <typename R = void>
    Result<R> run(const std::string& source, const std::string& sourceName = "script")
    {
        return _typed<R>(_run(source, sourceName, Reflection::resolve<R>()));
    }

    /// @brief Calls a global script function with native arguments.
    /// @tparam R The native type wanted of its first result; void drops it.
    /// @tparam A The native arguments' types; string literals travel as std::string.
    /// @param function The name of the global that holds the function.
    /// @param arguments Native values, converted as native results are.
    /// @return The result, or an error value.
    template <typename R = void, typename... A>
    Result<R> call(const std::string& function, A&&... arguments)
    {
        std::array<entt::meta_any, sizeof...(A)> values{
            entt::meta_any{Reflection::context(), internal::ArgumentValue<A>(std::forward<A>(arguments))}...};
        return _typed<R>(
            _call(function, values.data(), static_cast<unsigned>(values.size()), Reflection::resolve<R>()));
    }

    /// @brief Reads a global variable.
    /// @tparam T The native type wanted; std::optional<T> takes nil.
    /// @param name The variable.
    /// @return Its value, or an error value when it does not convert.
    template <typename T>
    Result<T> get(const std::string& name)
    {
        return _typed<T>(_get(name, Reflection::resolve<T>()));
    }

    /// @brief Sets a global variable.
    /// @tparam T The native value's type; a string literal travels as std::string.
    /// @param name The variable.
    /// @param value A native value, converted as native results are.
    /// @return Nothing, or an error value.
    template <typename T>
    Result<void> set(const std::string& name, T&& value)
    {
        return Result<void>::fromResultAny(
            _set(name, entt::meta_any{Reflection::context(), internal::ArgumentValue<T>(std::forward<T>(value))}));
    }

    /// @brief Closes the context, destroying what scripts made; the next use makes a new one.
    void reset();

    /// @brief The context, made now if there is none.
    /// @return The context, or null when it cannot be made; contextFailure() says why.
    ScriptContext* context();
    /// @brief Why the last attempt to make the context failed, with the library's colour markup.
    /// @return The text; empty when it did not fail.
    const std::string& contextFailure() const { return mFailure; }

    /// @brief The engine, for what the short way does not offer.
    /// @return The engine.
    ScriptEngine& getEngine() { return mEngine; }
    /// @brief The runtime.
    /// @return The runtime.
    LuaRuntime& getRuntime() { return *mRuntime; }

private:
    ResultAny _run(const std::string& source, const std::string& sourceName, const entt::meta_type& type);
    ResultAny _call(const std::string& function, entt::meta_any* arguments, unsigned count,
                    const entt::meta_type& type);
    ResultAny _get(const std::string& name, const entt::meta_type& type);
    ResultAny _set(const std::string& name, const entt::meta_any& value);
    // The error every entry answers with when there is no context.
    ResultAny _noContext() const;

    template <typename R>
    static Result<R> _typed(ResultAny&& result)
    {
        if constexpr (std::is_void_v<R>)
        {
            return Result<void>::fromResultAny(std::move(result));
        }
        else
        {
            if (result.isError())
            {
                return Result<R>::fromResultAny(std::move(result));
            }
            // A copy of its own: the value must not depend on the Lua value it came from.
            if constexpr (std::is_copy_constructible_v<R>)
            {
                if (const R* value = result.any().template try_cast<const R>())
                {
                    return Result<R>::makeResult(*value);
                }
            }
            else if (result.any().type() == Reflection::resolve<R>())
            {
                return Result<R>::fromResultAny(std::move(result));
            }
            return Error("The script's value did not become the native type asked for");
        }
    }

    StateSettings mSettings;
    Ovelith::Diagnostics::AssertHandler mPreviousAssertHandler = nullptr;
    ScriptEngine mEngine;
    std::shared_ptr<LuaRuntime> mRuntime;
    ModuleDescriptor mApplication;
    std::vector<std::unique_ptr<Module>> mModules;
    // Modules of factories the application made itself, as the context asks for them.
    std::vector<ModuleDescriptor> mFactoryModules;
    std::optional<ScriptContext> mContext;
    std::string mFailure;
};
} // namespace Scripting::Lua
