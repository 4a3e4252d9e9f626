#pragma once

#include "Scripting/BindingType/ConstantFactory.h"

#include <entt/meta/meta.hpp>

#include <string>
#include <vector>

namespace Scripting
{
struct EnumValueBinding
{
    std::string name;
    // What stands for the member on the script side; the name unless overridden.
    std::string scriptValue;
    // The native enum value.
    entt::meta_any value;
};

struct EnumBinding : TaggedBinding
{
    std::string name;
    entt::meta_type type;
    bool enumFlag = false;
    // One per value, tagged per member.
    std::vector<ConstantFactory> constants;
    std::vector<EnumValueBinding> values;
};
} // namespace Scripting
