#include "Scripting/BindingType/TypeMapBuilder.h"

#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/Reflection.h"

#include "Diagnostics/Assert.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Scripting
{
namespace
{
// The text of a key constant's value; nothing for a value of another type or a null C string.
std::optional<std::string> keyText(entt::meta_any value)
{
    if (const auto* text = value.try_cast<const std::string>())
    {
        return *text;
    }
    if (value.allow_cast<const char*>())
    {
        if (const char* text = value.cast<const char*>())
        {
            return std::string(text);
        }
    }
    return std::nullopt;
}
} // namespace

TypeMapBuilder::TypeMapBuilder(const std::string& typeMapName_, const std::string& keyConstantName_,
                               const entt::meta_type& baseType_)
    : keyConstantName(keyConstantName_), baseType(baseType_)
{
    OV_ASSERT(typeMapName_.size(), "Type Map needs a valid name");
    OV_ASSERT(keyConstantName_.size(), "Type Map needs a valid key name");
    mTypeMapBinding.name = typeMapName_;
}

void TypeMapBuilder::addMapping(const std::string& key, const std::string& mappedName, const TaggedBinding& classTag,
                                const TaggedBinding& constantTag)
{
    mTypeMapBinding.entries.push_back(TypeMapBindingEntry{key, mappedName, classTag, constantTag});
}

TypeMapBinding TypeMapBuilder::build()
{
    mTypeMapBinding.releases = std::move(releases);
    releases.clear();
    return std::exchange(mTypeMapBinding, TypeMapBinding{});
}

ModuleBindingBuilder& ModuleBindingBuilder::createTypeMap(TypeMapBuilder& typeMap)
{
    // Key constants ignore the scope they are made in.
    WeakLifetimeScope scope;
    for (const ClassBinding& classBinding : mBuilderData.classBindings)
    {
        // The base itself has no entry, even with the key; a derived class without one leaves its own derived
        // classes to stand for themselves.
        if (classBinding.type == typeMap.baseType || !Reflection::HasBaseType(typeMap.baseType, classBinding.type))
        {
            continue;
        }
        const auto constant =
            std::find_if(classBinding.constants.begin(), classBinding.constants.end(),
                         [&](const ConstantFactory& candidate) { return candidate.name == typeMap.keyConstantName; });
        if (constant == classBinding.constants.end())
        {
            continue;
        }
        std::optional<std::string> key = constant->factory ? keyText(constant->factory(scope)) : std::nullopt;
        if (!key)
        {
            OV_ASSERT(false, "Type map keys must be of string type, %s constant %s is not a string.",
                      classBinding.name.c_str(), typeMap.keyConstantName.c_str());
            continue;
        }
        typeMap.addMapping(*key, classBinding.name, classBinding, *constant);
    }
    mBuilderData.typeMaps.push_back(typeMap.build());
    return *this;
}
} // namespace Scripting
