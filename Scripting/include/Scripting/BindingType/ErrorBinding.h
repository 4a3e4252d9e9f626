#pragma once

#include "Scripting/BindingType/PropertyBinding.h"

#include <entt/meta/meta.hpp>

#include <string>
#include <vector>

namespace Scripting
{
/// A native error type as scripts see it.
struct ErrorBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /** @brief The native error type. */
    entt::meta_type type;
    /** @brief Fields scripts can read, besides name and message. */
    std::vector<PropertyBinding> properties;
};
} // namespace Scripting
