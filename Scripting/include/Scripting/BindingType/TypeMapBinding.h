#pragma once

#include "Scripting/BindingType/TaggedBinding.h"

#include <string>
#include <vector>

namespace Scripting
{
// One class of a type map: the value of its key constant and its script name. It exists in a build only when
// both the class and the constant do.
struct TypeMapBindingEntry
{
    std::string key;
    std::string mappedName;
    TaggedBinding classTag;
    TaggedBinding constantTag;
};

struct TypeMapBinding : TaggedBinding
{
    std::string name;
    // In the order of the module's classes.
    std::vector<TypeMapBindingEntry> entries;
};
} // namespace Scripting
