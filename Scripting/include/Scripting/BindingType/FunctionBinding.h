#pragma once

#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/BindingType/TaggedBinding.h"

#include <memory>
#include <string>
#include <vector>

namespace Scripting
{
namespace Reflection
{
class IFunction;
}

/** @brief A bound callable: free function, method, static function or constructor. */
struct FunctionBinding : TaggedBinding
{
    /// "constructor" for every constructor.
    std::string name;
    /// Described arguments in native order, injected ones left out.
    std::vector<ArgumentBinding> arguments;
    /// Shared by every copy of the record.
    std::shared_ptr<Reflection::IFunction> function;
    /** @brief Conditions the runtime must offer for the call. */
    std::vector<std::string> runtimeConditions;

    /// @brief Copied, moved and destroyed out of line: a function that describes many records calls these
    /// instead of expanding every member's.
    ///@{
    FunctionBinding();
    FunctionBinding(const FunctionBinding&);
    FunctionBinding(FunctionBinding&&) noexcept;
    FunctionBinding& operator=(const FunctionBinding&);
    FunctionBinding& operator=(FunctionBinding&&) noexcept;
    ~FunctionBinding();
    ///@}
};
} // namespace Scripting
