#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Scripting::Reflection
{
class IFunction;
class IPropertyGetter;
class IPropertySetter;

/// The kinds of value that a typed call passes without a meta_any. A runtime converts each of them directly.
enum class TypedKind : uint8_t
{
    /// Not passable on the typed road; a callable with such a parameter or result has no typed call.
    None,
    Void,
    Bool,
    Int8,
    UInt8,
    Int16,
    UInt16,
    Int32,
    UInt32,
    Int64,
    UInt64,
    Float,
    Double,
    /// A `std::string` by value or by const reference.
    String,
    /// A class object by value or by reference; the runtime checks its exact type before it passes the address.
    Object,
};

/// One argument or result of a typed call. Integers travel widened to 64 bits (unsigned 64-bit ones as
/// `unsignedInteger`), floating point as `double`, text as a view that the caller keeps alive for the call.
/// Trivial on purpose: a call fills only what its kinds read, and clearing a block of them would cost more than
/// the call.
struct TypedValue
{
    union
    {
        bool boolean;
        int64_t integer;
        uint64_t unsignedInteger;
        double number;
        void* object;
    };
    const char* textData;
    size_t textSize;
};

/// What a typed call hands back. A `std::string` returned by value is kept in `text`, and the value views it.
struct TypedReturn
{
    TypedValue value;
    std::string text;
};

/// The typed road into one callable, fixed when the binding is made. `invoke` runs the native code with
/// arguments already converted and checked; native exceptions pass through to the runtime.
struct TypedCall
{
    /// `object` is the instance of a method or of an instanced function, null otherwise.
    using Invoke = void (*)(const IFunction& function, void* object, const TypedValue* arguments, TypedReturn& result);

    /// One kind per native parameter, injected ones included, the object of an instanced function excluded.
    const TypedKind* arguments = nullptr;
    uint32_t argumentCount = 0;
    TypedKind result = TypedKind::None;
    Invoke invoke = nullptr;
};

/// The typed road of a property: a read and, for a writable property, a write of one value.
struct TypedPropertyGet
{
    using Invoke = void (*)(const IPropertyGetter& getter, void* object, TypedReturn& result);

    TypedKind kind = TypedKind::None;
    Invoke invoke = nullptr;
};

struct TypedPropertySet
{
    using Invoke = void (*)(const IPropertySetter& setter, void* object, const TypedValue& value);

    TypedKind kind = TypedKind::None;
    Invoke invoke = nullptr;
};
/// A call of a script function on the typed road: one kind per argument, and the kind of the result.
struct TypedClosureCall
{
    const TypedValue* arguments = nullptr;
    const TypedKind* kinds = nullptr;
    uint32_t count = 0;
    TypedKind result = TypedKind::Void;
};

enum class TypedClosureStatus : uint8_t
{
    /// The script function ran and its result is in the TypedReturn.
    Done,
    /// The call failed; the error is in the failure given.
    Failed,
    /// Nothing ran: the caller takes the general road.
    Unsupported,
};
} // namespace Scripting::Reflection
