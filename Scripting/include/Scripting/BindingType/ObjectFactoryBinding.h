#pragma once

#include "Scripting/BindingType/TaggedBinding.h"

#include <entt/meta/meta.hpp>

#include <memory>
#include <string>

namespace Scripting
{
namespace Reflection
{
class IFunction;
}

/// A module-level object that a context makes on demand.
struct ObjectFactoryBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /// Makes the object; shared by every copy of the record.
    std::shared_ptr<Reflection::IFunction> function;
    /** @brief Type of the object made. */
    entt::meta_type type;
};
} // namespace Scripting
