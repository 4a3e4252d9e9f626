#pragma once

#include "Scripting/Reflection/TypedCall.h"

#include <entt/core/type_traits.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

namespace Scripting
{
class StrongObjectHandle;
}

namespace Scripting::Reflection::internal
{
template <typename V>
consteval TypedKind typedNumberKind()
{
    if constexpr (std::is_same_v<V, bool>)
    {
        return TypedKind::Bool;
    }
    else if constexpr (std::is_same_v<V, float>)
    {
        return TypedKind::Float;
    }
    else if constexpr (std::is_same_v<V, double>)
    {
        return TypedKind::Double;
    }
    else if constexpr (std::is_integral_v<V> && !std::is_same_v<V, char> && !std::is_same_v<V, wchar_t> &&
                       !std::is_same_v<V, char8_t> && !std::is_same_v<V, char16_t> && !std::is_same_v<V, char32_t>)
    {
        constexpr bool SIGNED = std::is_signed_v<V>;
        switch (sizeof(V))
        {
        case 1:
            return SIGNED ? TypedKind::Int8 : TypedKind::UInt8;
        case 2:
            return SIGNED ? TypedKind::Int16 : TypedKind::UInt16;
        case 4:
            return SIGNED ? TypedKind::Int32 : TypedKind::UInt32;
        default:
            return SIGNED ? TypedKind::Int64 : TypedKind::UInt64;
        }
    }
    else
    {
        return TypedKind::None;
    }
}

// A parameter: numbers and strings by value or const reference, class objects by value or by reference.
// Pointers, rvalue references, enums and a non-const reference to a number or a string keep the general path.
template <typename P>
consteval TypedKind typedParameterKind()
{
    using V = std::remove_cvref_t<P>;
    if constexpr (std::is_pointer_v<V> || std::is_rvalue_reference_v<P> || std::is_enum_v<V>)
    {
        return TypedKind::None;
    }
    else if constexpr (std::is_arithmetic_v<V> || std::is_same_v<V, std::string>)
    {
        constexpr bool MUTABLE_REFERENCE =
            std::is_lvalue_reference_v<P> && !std::is_const_v<std::remove_reference_t<P>>;
        if constexpr (MUTABLE_REFERENCE)
        {
            return TypedKind::None;
        }
        else if constexpr (std::is_same_v<V, std::string>)
        {
            return TypedKind::String;
        }
        else
        {
            return typedNumberKind<V>();
        }
    }
    else if constexpr (std::is_class_v<V> && (std::is_reference_v<P> || std::is_copy_constructible_v<V>))
    {
        return TypedKind::Object;
    }
    else
    {
        return TypedKind::None;
    }
}

// A result: void, a number or a string, by value or by reference.
template <typename R>
consteval TypedKind typedResultKind()
{
    using V = std::remove_cvref_t<R>;
    if constexpr (std::is_void_v<R>)
    {
        return TypedKind::Void;
    }
    else if constexpr (std::is_same_v<V, std::string>)
    {
        return TypedKind::String;
    }
    else if constexpr (std::is_arithmetic_v<V>)
    {
        return typedNumberKind<V>();
    }
    else if constexpr (std::is_class_v<V> && !std::is_reference_v<R> && std::is_base_of_v<StrongObjectHandle, V>)
    {
        // By value only: a handle returned by reference belongs to someone else and cannot give its reference.
        return TypedKind::Handle;
    }
    else
    {
        return TypedKind::None;
    }
}

// The handle a handle result moves into; named through the result's type so that it is complete by then.
template <typename V>
struct HandleSlot
{
    using type = StrongObjectHandle;
};

template <typename... P>
consteval bool allTyped(entt::type_list<P...>)
{
    return ((typedParameterKind<P>() != TypedKind::None) && ...);
}

// The kinds of a parameter list; a list of no parameters still has an address to hand out.
template <typename List>
struct TypedKinds;
template <typename... P>
struct TypedKinds<entt::type_list<P...>>
{
    static constexpr TypedKind VALUES[sizeof...(P) + 1] = {typedParameterKind<P>()..., TypedKind::None};
};

template <typename P>
decltype(auto) typedArgument(const TypedValue& value)
{
    using V = std::remove_cvref_t<P>;
    if constexpr (std::is_same_v<V, bool>)
    {
        return static_cast<bool>(value.boolean);
    }
    else if constexpr (std::is_integral_v<V> && std::is_unsigned_v<V> && sizeof(V) == sizeof(uint64_t))
    {
        return static_cast<V>(value.unsignedInteger);
    }
    else if constexpr (std::is_integral_v<V>)
    {
        return static_cast<V>(value.integer);
    }
    else if constexpr (std::is_floating_point_v<V>)
    {
        return static_cast<V>(value.number);
    }
    else if constexpr (std::is_same_v<V, std::string>)
    {
        return std::string(value.textData, value.textSize);
    }
    else if constexpr (std::is_lvalue_reference_v<P> && !std::is_const_v<std::remove_reference_t<P>>)
    {
        return *static_cast<V*>(value.object);
    }
    else
    {
        return static_cast<const V&>(*static_cast<const V*>(value.object));
    }
}

template <typename R, typename Value>
void storeTypedResult(Value&& value, TypedReturn& result)
{
    using V = std::remove_cvref_t<R>;
    if constexpr (typedResultKind<R>() == TypedKind::Handle)
    {
        if (result.handle != nullptr)
        {
            *static_cast<typename HandleSlot<V>::type*>(result.handle) = std::forward<Value>(value);
        }
    }
    else if constexpr (std::is_same_v<V, std::string>)
    {
        if constexpr (std::is_reference_v<R>)
        {
            result.value.textData = value.data();
            result.value.textSize = value.size();
        }
        else
        {
            result.text = std::forward<Value>(value);
            result.value.textData = result.text.data();
            result.value.textSize = result.text.size();
        }
    }
    else if constexpr (std::is_same_v<V, bool>)
    {
        result.value.boolean = value;
    }
    else if constexpr (std::is_integral_v<V> && std::is_unsigned_v<V> && sizeof(V) == sizeof(uint64_t))
    {
        result.value.unsignedInteger = value;
    }
    else if constexpr (std::is_integral_v<V>)
    {
        result.value.integer = static_cast<int64_t>(value);
    }
    else
    {
        result.value.number = static_cast<double>(value);
    }
}

// Calls `native` with `leading` (the object, if any) and the converted arguments, and keeps what it gives.
template <typename R, typename... P, std::size_t... I, typename Native, typename... Leading>
void invokeTyped(const TypedValue* arguments, TypedReturn& result, entt::type_list<P...>, std::index_sequence<I...>,
                 const Native& native, Leading&&... leading)
{
    if constexpr (std::is_void_v<R>)
    {
        std::invoke(native, std::forward<Leading>(leading)..., typedArgument<P>(arguments[I])...);
    }
    else
    {
        storeTypedResult<R>(std::invoke(native, std::forward<Leading>(leading)..., typedArgument<P>(arguments[I])...),
                            result);
    }
    static_cast<void>(arguments);
    static_cast<void>(result);
}

template <typename R, typename... P, typename Native, typename... Leading>
void invokeTyped(const TypedValue* arguments, TypedReturn& result, entt::type_list<P...> list, const Native& native,
                 Leading&&... leading)
{
    invokeTyped<R>(arguments, result, list, std::index_sequence_for<P...>{}, native, std::forward<Leading>(leading)...);
}

// A value that a script function takes or gives on the typed road: a number, a boolean or a string.
template <typename T>
consteval bool isTypedScriptValue()
{
    if constexpr (std::is_void_v<T>)
    {
        return false;
    }
    else
    {
        constexpr TypedKind KIND = typedParameterKind<const std::remove_cvref_t<T>&>();
        return KIND != TypedKind::None && KIND != TypedKind::Object;
    }
}

template <typename T>
inline constexpr bool IS_TYPED_SCRIPT_VALUE = isTypedScriptValue<T>();

template <typename T>
TypedValue toTypedValue(const T& value)
{
    TypedValue typed{};
    if constexpr (std::is_same_v<T, std::string>)
    {
        typed.textData = value.data();
        typed.textSize = value.size();
    }
    else if constexpr (std::is_same_v<T, bool>)
    {
        typed.boolean = value;
    }
    else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> && sizeof(T) == sizeof(uint64_t))
    {
        typed.unsignedInteger = value;
    }
    else if constexpr (std::is_integral_v<T>)
    {
        typed.integer = static_cast<int64_t>(value);
    }
    else
    {
        typed.number = static_cast<double>(value);
    }
    return typed;
}

// Whether a callable of this signature takes the typed road.
template <typename R, typename Arguments>
inline constexpr bool HAS_TYPED_CALL = typedResultKind<R>() != TypedKind::None&& allTyped(Arguments{});

// The typed call of a wrapper whose static `typedInvoke` does the work. A constant, so that a wrapper's table
// can point at it without a function to instantiate per callable.
template <typename Wrapper, typename R, typename Arguments>
inline constexpr TypedCall TYPED_CALL{TypedKinds<Arguments>::VALUES, static_cast<uint32_t>(Arguments::size),
                                      typedResultKind<R>(), &Wrapper::typedInvoke};

// The address of the typed call; null when the signature does not fit.
template <typename Wrapper, typename R, typename Arguments>
consteval const TypedCall* typedCallOf()
{
    if constexpr (HAS_TYPED_CALL<R, Arguments>)
    {
        return &TYPED_CALL<Wrapper, R, Arguments>;
    }
    else
    {
        return nullptr;
    }
}
} // namespace Scripting::Reflection::internal
