#pragma once

#include "Scripting/Reflection/Reflection.h"
#include "Scripting/Reflection/ValueAdapters.h"

namespace Scripting::Lua
{
/// The name this runtime gave the vector adapter before the core library held it.
using SequenceAdapter = Reflection::SequenceAdapter;
/// The name this runtime gave the optional adapter before the core library held it.
using OptionalAdapter = Reflection::OptionalAdapter;

/// Makes a std::vector or std::optional type, and the ones nested in it, convertible to and from Lua values:
/// a vector is a sequence table, an optional is nil or its value. Bindings need not call it: the binding of a
/// function, property or argument of such a type does the same. It is for a value whose type no binding names, such
/// as one a native function hands over inside a type-erased result. Element types convert as the runtime converts
/// them on their own (primitives, bound classes, enums, interfaces).
/// @tparam T A std::vector or std::optional type.
template <typename T>
void registerValueType()
{
    static_cast<void>(Reflection::resolve<T>());
}
} // namespace Scripting::Lua
