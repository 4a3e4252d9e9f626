#pragma once

#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ArgumentBindingBuilderValidator.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/Privilege.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"
#include "Scripting/Reflection/Function.h"

#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Scripting
{
namespace internal
{
template <auto function>
concept FunctionPointer =
    std::is_pointer_v<decltype(function)> && std::is_function_v<std::remove_pointer_t<decltype(function)>>;

// Makes the callable of a record from the details of its arguments; `state` is what the maker was given.
using FunctionMaker = std::shared_ptr<Reflection::IFunction> (*)(const void* state, Privilege privilege,
                                                                 std::vector<ArgumentDetails>&& details);

// A function pointer or a method needs nothing but its table: every one of them is the one wrapper class, made
// by this maker with the table as its state.
std::shared_ptr<Reflection::IFunction> makeTableFunction(const void* table, Privilege privilege,
                                                         std::vector<ArgumentDetails>&& details);

template <typename Wrapper>
struct MakeWrapper
{
    Privilege privilege;

    FunctionMaker maker() const { return &makeTableFunction; }
    const void* state() const { return &Wrapper::table(); }
};

// A lambda needs a class of its own to hold it; the owner's bookkeeping does not.
template <typename Wrapper, typename Lambda>
struct MakeLambdaWrapper
{
    Privilege privilege;
    Lambda& lambda;

    static std::shared_ptr<Reflection::IFunction> make(const void* state, Privilege privilege,
                                                       std::vector<ArgumentDetails>&& details)
    {
        Lambda& lambda = *static_cast<Lambda*>(const_cast<void*>(state));
        return std::shared_ptr<Reflection::IFunction>(
            std::unique_ptr<Reflection::IFunction>(new Wrapper(privilege, std::move(lambda), std::move(details))));
    }
    FunctionMaker maker() const { return &make; }
    const void* state() const { return &lambda; }
};

// Makes the callable with the details of `arguments`, fills the argument records and appends the function, or
// reports and drops it. The builders are moved from.
FunctionBinding& addFunctionBinding(std::vector<FunctionBinding>& target, std::string&& name, FunctionKind kind,
                                    FunctionMaker maker, const void* state, Privilege privilege,
                                    ArgumentBinding* const* arguments, size_t count);

// Makes the callable with the builders' details, fills the argument records and appends the function, or
// reports and drops it.
template <typename Wrapper, typename Make, typename... Args>
FunctionBinding& addFunction(std::vector<FunctionBinding>& target, std::string name, FunctionKind kind,
                             const Make& makeWrapper, ArgumentBindingBuilder<Args>&&... arguments)
{
    ArgumentBinding* const described[sizeof...(Args) + 1] = {static_cast<ArgumentBinding*>(&arguments)..., nullptr};
    return addFunctionBinding(target, std::move(name), kind, makeWrapper.maker(), makeWrapper.state(),
                              makeWrapper.privilege, described, sizeof...(Args));
}
} // namespace internal
} // namespace Scripting
