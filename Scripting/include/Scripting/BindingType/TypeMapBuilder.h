#pragma once

#include "Scripting/BindingType/TaggedBinding.h"
#include "Scripting/BindingType/TypeMapBinding.h"

#include <entt/meta/meta.hpp>

#include <string>

namespace Scripting
{
// Declares that every class derived from `baseType` names itself through a constant `keyConstantName`.
// ModuleBindingBuilder::createTypeMap collects the pairs from the module's classes. Tags on the builder tag the
// map as a whole.
class TypeMapBuilder : public TaggedBinding
{
public:
    TypeMapBuilder(const std::string& typeMapName_, const std::string& keyConstantName_,
                   const entt::meta_type& baseType_);

    // The entry exists in exactly the versions that hold both the class and its key constant.
    void addMapping(const std::string& key, const std::string& mappedName, const TaggedBinding& classTag,
                    const TaggedBinding& constantTag);

    // Hands over the map with the builder's tags; the builder is spent.
    TypeMapBinding build();

    std::string keyConstantName;
    entt::meta_type baseType;

private:
    TypeMapBinding mTypeMapBinding;
};
} // namespace Scripting
