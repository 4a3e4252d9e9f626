#pragma once

#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/FunctionBinding.h"

#include <utility>
#include <vector>

namespace Scripting
{
namespace internal
{
// Matches the bindings against the callable's parameters, skipping injected ones, and stores them.
bool fillArgumentBindings(FunctionBinding& binding, std::vector<ArgumentBinding>&& arguments);
} // namespace internal

/** @brief Checks argument descriptions against a callable and stores them in its record. */
struct ArgumentBindingBuilderValidator
{
    /// `NativeArguments` names the function's whole parameter list; the check reads it through
    /// `binding.function`, which must be set, so that it is the same for every kind of callable.
    /// A count or type mismatch asserts and answers false.
    /// @tparam NativeArguments The callable's parameter list.
    /// @tparam Ts Types of the described arguments.
    /// @param binding Record whose function is set.
    /// @param builders The descriptions.
    /// @return Whether they fit and were stored.
    template <typename NativeArguments, typename... Ts>
    static bool fillArguments(FunctionBinding& binding, ArgumentBindingBuilder<Ts>&&... builders)
    {
        std::vector<ArgumentBinding> arguments;
        arguments.reserve(sizeof...(Ts));
        (arguments.push_back(static_cast<ArgumentBinding&&>(builders)), ...);
        return internal::fillArgumentBindings(binding, std::move(arguments));
    }
};
} // namespace Scripting
