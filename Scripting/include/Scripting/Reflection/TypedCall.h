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
    /// A result only: a `StrongObjectHandle`, typed or not, returned by value. It moves into the handle that
    /// the caller offers in TypedReturn::handle, with its reference.
    Handle,
};

/// One argument or result of a typed call. Integers travel widened to 64 bits (unsigned 64-bit ones as
/// `unsignedInteger`), floating point as `double`, text as a view that the caller keeps alive for the call.
/// Trivial on purpose: a call fills only what its kinds read, and clearing a block of them would cost more than
/// the call.
struct TypedValue
{
    union
    {
        /// For TypedKind::Bool.
        bool boolean;
        /// For the signed integer kinds and for UInt8 to UInt32.
        int64_t integer;
        /// For TypedKind::UInt64.
        uint64_t unsignedInteger;
        /// For TypedKind::Float and TypedKind::Double.
        double number;
        /// For TypedKind::Object: the address of the native object, not owned.
        void* object;
    };
    /// For TypedKind::String: the first character, not owned and not null-terminated.
    const char* textData;
    /// For TypedKind::String: the number of characters at `textData`.
    size_t textSize;
};

/// What a typed call hands back. A `std::string` returned by value is kept in `text`, and the value views it.
struct TypedReturn
{
    /// The result; a string returned by reference views the native string itself.
    TypedValue value;
    /// Storage for a string result that has no other owner; empty otherwise.
    std::string text;
    /// For TypedKind::Handle: a `StrongObjectHandle` of the caller's that receives the result; null drops it.
    void* handle = nullptr;
};

/// The typed road into one callable, fixed when the binding is made. `invoke` runs the native code with
/// arguments already converted and checked; native exceptions pass through to the runtime.
struct TypedCall
{
    /// `object` is the instance of a method or of an instanced function, null otherwise.
    using Invoke = void (*)(const IFunction& function, void* object, const TypedValue* arguments, TypedReturn& result);

    /// One kind per native parameter, injected ones included, the object of an instanced function excluded.
    const TypedKind* arguments = nullptr;
    /// Number of entries of `arguments`, and of the values `invoke` reads.
    uint32_t argumentCount = 0;
    /// Kind of the native result; TypedKind::Void for none.
    TypedKind result = TypedKind::None;
    /// Runs the call; `function` is the callable this TypedCall came from.
    Invoke invoke = nullptr;
};

/// The typed road of a property: a read and, for a writable property, a write of one value.
struct TypedPropertyGet
{
    /// Reads the property of `object`, an instance of the property's class, into `result`.
    using Invoke = void (*)(const IPropertyGetter& getter, void* object, TypedReturn& result);

    /// Kind of the value read.
    TypedKind kind = TypedKind::None;
    /// Runs the read; `getter` is the getter this TypedPropertyGet came from.
    Invoke invoke = nullptr;
};

/// The typed write of a property. Like IPropertySetter::set it checks no bounds.
struct TypedPropertySet
{
    /// Writes `value` into the property of `object`, an instance of the property's class.
    using Invoke = void (*)(const IPropertySetter& setter, void* object, const TypedValue& value);

    /// Kind of the value written.
    TypedKind kind = TypedKind::None;
    /// Runs the write; `setter` is the setter this TypedPropertySet came from.
    Invoke invoke = nullptr;
};

/// A call of a script function on the typed road: one kind per argument, and the kind of the result.
struct TypedClosureCall
{
    /// The arguments, kept alive by the caller for the call.
    const TypedValue* arguments = nullptr;
    /// One kind per argument: a number, a boolean or a string, never an object.
    const TypedKind* kinds = nullptr;
    /// Number of entries of `arguments` and of `kinds`.
    uint32_t count = 0;
    /// Kind of the result the caller takes; TypedKind::Void for none.
    TypedKind result = TypedKind::Void;
};

/// What a runtime found out about a closure on its first typed call, kept with the closure value so that the
/// next calls need not find it again. Only the runtime that filled it reads it; all zero means nothing known.
struct TypedClosureCache
{
    /// The runtime's mark of the context the function was found in; 0 while nothing is known.
    uint64_t owner = 0;
    /// The runtime's count of script values let go in that context, when the function was found.
    uint64_t epoch = 0;
    /// Where the runtime keeps the function.
    int64_t slot = 0;
};

/// How a call of a script function on the typed road ended.
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
