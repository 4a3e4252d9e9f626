#include "Scripting/Reflection/Reflection.h"

#include <fmt/format.h>

namespace Scripting::Reflection
{
bool HasBaseType(const entt::meta_type& baseType, const entt::meta_type& type)
{
    if (!baseType || !type)
    {
        return false;
    }
    // Depth first, in registration order. The class tree of a compiled program has no cycles.
    for (auto&& [id, base] : type.base())
    {
        if (base == baseType || HasBaseType(baseType, base))
        {
            return true;
        }
    }
    return false;
}

std::string toString(ReturnPolicy policy)
{
    return fmt::format("{}::{}", "ReturnPolicy", static_cast<int>(policy));
}
} // namespace Scripting::Reflection
