#pragma once

#include "Scripting/BindingType/TaggedBinding.h"

#include <entt/meta/meta.hpp>

#include <functional>
#include <string>

namespace Scripting
{
class WeakLifetimeScope;

// A named value that a context asks for when it needs it.
struct ConstantFactory : TaggedBinding
{
    std::string name;
    entt::meta_type type;
    bool isConstant = true;
    std::function<entt::meta_any(WeakLifetimeScope&)> factory;
};
} // namespace Scripting
