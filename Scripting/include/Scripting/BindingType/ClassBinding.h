#pragma once

#include "Scripting/BindingType/ConstantFactory.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/PropertyBinding.h"

#include <entt/meta/meta.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Scripting
{
/** @brief A native class as scripts see it, with its members; made by ClassBindingBuilder. */
struct ClassBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /** @brief The native type. */
    entt::meta_type type;
    /// Invalid for a class without a bound base.
    entt::meta_type baseType;
    /// At most one may survive a build.
    std::vector<FunctionBinding> constructors;
    /// Carried along by copies; nothing in the library sets it.
    std::shared_ptr<void> classExtra;
    /// Methods and static functions, properties and constants, each in order of declaration.
    std::vector<FunctionBinding> functions;
    /** @brief Properties, in order of declaration. */
    std::vector<PropertyBinding> properties;
    /** @brief Class constants, in order of declaration. */
    std::vector<ConstantFactory> constants;
    /** @brief Conditions the runtime must offer for the class. */
    std::vector<std::string> runtimeConditions;
    /** @brief The conditions the last build found missing; the class stays, the runtime refuses it. */
    std::vector<std::string> missingRuntimeConditions;

    /// @brief Copied, moved and destroyed out of line: a function that describes many records calls these
    /// instead of expanding every member's.
    ///@{
    ClassBinding();
    ClassBinding(const ClassBinding&);
    ClassBinding(ClassBinding&&) noexcept;
    ClassBinding& operator=(const ClassBinding&);
    ClassBinding& operator=(ClassBinding&&) noexcept;
    ~ClassBinding();
    ///@}
};
} // namespace Scripting
