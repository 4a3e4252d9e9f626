#pragma once

#include "Scripting/BindingType/TaggedBinding.h"

#include <string>
#include <vector>

namespace Scripting
{
/// One class of a type map: the value of its key constant and its script name. It exists in a build only when
/// both the class and the constant do.
struct TypeMapBindingEntry
{
    /** @brief Value of the class's key constant. */
    std::string key;
    /** @brief Script name of the class. */
    std::string mappedName;
    /** @brief Versions of the class. */
    TaggedBinding classTag;
    /** @brief Versions of the key constant. */
    TaggedBinding constantTag;
};

/** @brief A named map from key to class, for scripts that pick a class by a key; made by TypeMapBuilder. */
struct TypeMapBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /// In the order of the module's classes.
    std::vector<TypeMapBindingEntry> entries;
};
} // namespace Scripting
