#pragma once

#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ArgumentBindingBuilderValidator.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/Privilege.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"

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

// Makes the callable of a function record from the details of its arguments.
template <typename Wrapper>
struct MakeWrapper
{
    Privilege privilege;

    std::shared_ptr<Wrapper> operator()(std::vector<ArgumentDetails>&& details) const
    {
        return std::make_shared<Wrapper>(privilege, std::move(details));
    }
};

template <typename Wrapper, typename Lambda>
struct MakeLambdaWrapper
{
    Privilege privilege;
    Lambda& lambda;

    std::shared_ptr<Wrapper> operator()(std::vector<ArgumentDetails>&& details) const
    {
        return std::make_shared<Wrapper>(privilege, std::move(lambda), std::move(details));
    }
};

// Makes the callable with the builders' details, fills the argument records and appends the function, or
// reports and drops it.
template <typename Wrapper, typename Make, typename... Args>
FunctionBinding& addFunction(std::vector<FunctionBinding>& target, std::string name, FunctionKind kind,
                             const Make& makeWrapper, ArgumentBindingBuilder<Args>&&... arguments)
{
    FunctionBinding binding;
    binding.name = std::move(name);
    binding.function = makeWrapper(ArgumentBindingHelper::getArgumentDetails(arguments...));
    const bool argumentsFilled = ArgumentBindingBuilderValidator::fillArguments<typename Wrapper::NativeArguments>(
        binding, std::move(arguments)...);
    return appendFunctionBinding(target, std::move(binding), argumentsFilled, kind);
}
} // namespace internal
} // namespace Scripting
