#pragma once

#include "Scripting/BindingType/TaggedBinding.h"
#include "Scripting/BindingType/TypeMapBinding.h"

#include <entt/meta/meta.hpp>

#include <string>

namespace Scripting
{
/// Declares that every class derived from `baseType` names itself through a constant `keyConstantName`.
/// ModuleBindingBuilder::createTypeMap collects the pairs from the module's classes. Tags on the builder tag the
/// map as a whole.
class TypeMapBuilder : public TaggedBinding
{
public:
    /**
     * @brief Starts a map.
     * @param typeMapName_ Script name of the map.
     * @param keyConstantName_ Name of the class constant that holds each class's key.
     * @param baseType_ Base of the mapped classes.
     */
    TypeMapBuilder(const std::string& typeMapName_, const std::string& keyConstantName_,
                   const entt::meta_type& baseType_);

    /// The entry exists in exactly the versions that hold both the class and its key constant.
    /// @param key The key.
    /// @param mappedName Script name of the class.
    /// @param classTag Versions of the class.
    /// @param constantTag Versions of the key constant.
    void addMapping(const std::string& key, const std::string& mappedName, const TaggedBinding& classTag,
                    const TaggedBinding& constantTag);

    /// Hands over the map with the builder's tags; the builder is spent.
    /// @return The map.
    TypeMapBinding build();

    /** @brief Name of the class constant that holds each class's key. */
    std::string keyConstantName;
    /** @brief Base of the mapped classes. */
    entt::meta_type baseType;

private:
    TypeMapBinding mTypeMapBinding;
};
} // namespace Scripting
