#pragma once

#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Reflection/internal/TypedInvoke.h"
#include "Scripting/Runtime/Result.h"
#include "Scripting/Runtime/RuntimeTypes.h"
#include "Scripting/Runtime/ScriptValue.h"

#include <entt/meta/meta.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <type_traits>

namespace Scripting
{
/// The component of the registry object that stands for a script function. It carries no meaning, but a
/// registry keeps only objects with a state of their own, so it holds one unused byte.
struct ClosureType
{
    /** @brief Unused. */
    uint8_t unused = 0;
};

/// A script function handed to native code, called back through its runtime.
/// Copies share the script function (one more strong reference each). Once the context, its runtime or the
/// function is gone, call() answers an Error and calls nothing.
class ClosureAny : public internal::InspectedScriptObjectValue
{
public:
    /** @brief Message of the Error a call of an invalid closure answers. */
    static constexpr const char* INVALID_CALL_MESSAGE = "Script Closure is not valid, failed to call function.";
    /** @brief Message of the Error a typed call answers when the runtime gave another type. */
    static constexpr const char* WRONG_RETURN_TYPE_MESSAGE =
        "Script Closure returned a value of another type than it declares.";

    /** @brief An invalid closure. */
    ClosureAny() = default;
    /// Takes over the reference of `handle`.
    /// @param runtime The context's runtime, not owned.
    /// @param contextId The context.
    /// @param scope Scope of the context's registry.
    /// @param handle The runtime's object of the function.
    /// @param inspector The runtime's inspector, not owned; may be null.
    ClosureAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, StrongObjectHandle&& handle,
               IObjectInspector* inspector)
        : InspectedScriptObjectValue(runtime, contextId, std::move(scope), std::move(handle), inspector)
    {
    }

    /**
     * @brief Whether a call can reach the function.
     * @return False once the context, the runtime or the function is gone.
     */
    bool valid() const { return _isUsable(); }
    /**
     * @brief Same script function, as the runtime's inspector sees it.
     * @param other Another closure.
     * @return False without an inspector, even for the closure itself.
     */
    bool operator==(const ClosureAny& other) const { return _isSameObject(other); }
    /**
     * @brief Handle of the runtime's object.
     * @return The handle, or empty for a default or moved-from closure.
     */
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    /// The runtime reads `count` arguments from `arguments`. An invalid closure calls nothing and returns an
    /// error.
    /// @param arguments Array of count arguments.
    /// @param count Number of arguments.
    /// @param returnType Native type of the result; an empty type for none.
    /// @param option Passed through to the runtime.
    /// @return The result, or an Error.
    ResultAny call(entt::meta_any* arguments, unsigned count, const entt::meta_type& returnType,
                   RunOption option) const;

protected:
    /**
     * @brief Offers a call to the runtime's typed road, which skips meta_any.
     * @param call The arguments, their kinds and the kind of the result.
     * @param returnType Native type of the result, which an error about a result of another type names.
     * @param result Receives the result when the call is Done.
     * @param failure Receives the error when the call Failed.
     * @return Done, Failed, or Unsupported: nothing ran and call() is to be used. An unusable closure answers
     * Unsupported too, so that call() gives its error.
     */
    Reflection::TypedClosureStatus _callTyped(const Reflection::TypedClosureCall& call,
                                              const entt::meta_type& returnType, Reflection::TypedReturn& result,
                                              ResultAny& failure) const;

private:
    // What the runtime found about the function on the last typed call. Copies and moves take it with the
    // handle, so it always describes this value's function; the runtime empties it when that stops holding.
    mutable Reflection::TypedClosureCache mTypedCache;
};

/// A script function with its native signature.
/// @tparam R Native result type.
/// @tparam Args Native argument types.
template <typename R, typename... Args>
class Closure : public ClosureAny
{
public:
    /** @brief An invalid closure. */
    Closure() : mReturnType(Reflection::resolve<R>()) {}
    /**
     * @brief Takes over the reference of `handle`.
     * @param runtime The context's runtime, not owned.
     * @param contextId The context.
     * @param scope Scope of the context's registry.
     * @param handle The runtime's object of the function.
     * @param inspector The runtime's inspector, not owned; may be null.
     */
    Closure(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, StrongObjectHandle&& handle,
            IObjectInspector* inspector)
        : ClosureAny(runtime, contextId, std::move(scope), std::move(handle), inspector),
          mReturnType(Reflection::resolve<R>())
    {
    }

    /// The arguments travel as anys that refer to them, in an array on the stack: a reference parameter
    /// reaches the script as that reference, and nothing is allocated for the call.
    /// @param args The arguments.
    /// @return The result as an `R`, or an Error (invalid closure, script error, result of another type).
    Result<R> operator()(Args... args) const
    {
        constexpr unsigned COUNT = sizeof...(Args);
        if constexpr (TYPED)
        {
            // Numbers, booleans and strings cross without meta_any when the runtime offers the road.
            const Reflection::TypedValue values[COUNT + 1] = {Reflection::internal::toTypedValue(args)...,
                                                              Reflection::TypedValue{}};
            static constexpr Reflection::TypedKind KINDS[COUNT + 1] = {
                Reflection::internal::typedParameterKind<const std::remove_cvref_t<Args>&>()...,
                Reflection::TypedKind::None};
            const Reflection::TypedClosureCall typedCall{values, KINDS, COUNT,
                                                         Reflection::internal::typedResultKind<R>()};
            Reflection::TypedReturn typed;
            ResultAny failure;
            switch (_callTyped(typedCall, mReturnType, typed, failure))
            {
            case Reflection::TypedClosureStatus::Done:
                return _fromTyped(typed);
            case Reflection::TypedClosureStatus::Failed:
                return _toResult(std::move(failure));
            case Reflection::TypedClosureStatus::Unsupported:
                break;
            }
        }
        if constexpr (COUNT == 0)
        {
            std::array<entt::meta_any, 1> arguments{entt::meta_any{entt::meta_ctx_arg, Reflection::context()}};
            return _toResult(call(arguments.data(), 0, mReturnType, std::nullopt));
        }
        else
        {
            std::array<entt::meta_any, COUNT> arguments{entt::forward_as_meta(Reflection::context(), args)...};
            return _toResult(call(arguments.data(), COUNT, mReturnType, std::nullopt));
        }
    }

private:
    static constexpr bool TYPED = (std::is_void_v<R> || Reflection::internal::IS_TYPED_SCRIPT_VALUE<R>)&&(
        Reflection::internal::IS_TYPED_SCRIPT_VALUE<Args> && ...);

    static Result<R> _fromTyped(const Reflection::TypedReturn& typed)
    {
        if constexpr (std::is_void_v<R>)
        {
            static_cast<void>(typed);
            return Result<R>();
        }
        else
        {
            return Result<R>(Reflection::internal::typedArgument<R>(typed.value));
        }
    }

    // A runtime is asked for the declared type; one that answers with another must not make this a
    // result of the wrong type, nor end the caller.
    Result<R> _toResult(ResultAny&& result) const
    {
        if constexpr (!std::is_void_v<R>)
        {
            if (!result.isError() && result.any().type() != mReturnType)
            {
                return Error(WRONG_RETURN_TYPE_MESSAGE);
            }
        }
        return Result<R>::fromResultAny(std::move(result));
    }

    entt::meta_type mReturnType;
};

/// The name bindings use: `Closure<int (*)(int)>`.
template <typename R, typename... Args>
class Closure<R (*)(Args...)> : public Closure<R, Args...>
{
public:
    using Closure<R, Args...>::Closure;
};
} // namespace Scripting
