#pragma once

#include "Scripting/BindingType/ConstantFactory.h"

#include <entt/meta/meta.hpp>

#include <string>
#include <vector>

namespace Scripting
{
/** @brief One member of an enum. */
struct EnumValueBinding
{
    /** @brief Member name. */
    std::string name;
    /// What stands for the member on the script side; the name unless overridden.
    std::string scriptValue;
    /// The native enum value.
    entt::meta_any value;
};

/** @brief A native enum as scripts see it; made by EnumBindingBuilder. */
struct EnumBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /** @brief The native enum type. */
    entt::meta_type type;
    /** @brief For the runtime; no builder sets it. */
    bool enumFlag = false;
    /// One per value, tagged per member.
    std::vector<ConstantFactory> constants;
    /** @brief The members, in order of declaration. */
    std::vector<EnumValueBinding> values;
};
} // namespace Scripting
