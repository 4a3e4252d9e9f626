#pragma once

#include "Scripting/BindingType/TaggedBinding.h"

#include <entt/meta/meta.hpp>

#include <functional>
#include <string>

namespace Scripting
{
class WeakLifetimeScope;

/// A named value that a context asks for when it needs it.
struct ConstantFactory : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /** @brief Type of the value. */
    entt::meta_type type;
    /** @brief Whether the value never changes; true for every builder's constants. */
    bool isConstant = true;
    /** @brief Makes the value, given the context's scope. */
    std::function<entt::meta_any(WeakLifetimeScope&)> factory;
};
} // namespace Scripting
