#pragma once

#include <string>
#include <type_traits>

namespace Scripting::PrimitiveHelper
{
/// A primitive of the binding layer travels to a script by value: numbers, bool and text.
/// @tparam T Any type; references and cv-qualifiers are ignored.
template <typename T>
inline constexpr bool isPrimitive =
    std::is_arithmetic_v<std::remove_cvref_t<T>> || std::is_same_v<std::remove_cvref_t<T>, std::string>;
} // namespace Scripting::PrimitiveHelper
