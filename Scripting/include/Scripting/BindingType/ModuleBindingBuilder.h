#pragma once

#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/ModuleBinding.h"
#include "Scripting/BindingType/TypeMapBuilder.h"
#include "Scripting/Version.h"

#include "UUID.h"

#include <entt/meta/meta.hpp>

#include <functional>
#include <string>
#include <vector>

namespace Scripting
{
class WeakLifetimeScope;

namespace internal
{
class SymbolTable;
}

// Collects everything that the versions of one module show, then builds one version of it. Nothing is
// decided while adding: `build` keeps what the release tags allow for the builder's version, orders the
// classes and reports names that collide within that version only, so one description can hold two records
// of one name for different versions.
class ModuleBindingBuilder
{
public:
    ModuleBindingBuilder(quv::UUID uuid, const std::string& name, const Version& version, bool builderFlag);
    ModuleBindingBuilder(const ModuleBindingBuilder&) = delete;
    ModuleBindingBuilder& operator=(const ModuleBindingBuilder&) = delete;

    // A dependency on the module itself is reported and kept, for the resolver to fail on; one equal to a
    // dependency already there (same UUID and versions) is reported and dropped.
    ModuleBindingBuilder& dependency(const ModuleDependency& module);
    ModuleBindingBuilder& dependency(const std::vector<ModuleDependency>& modules);

    // Each adder returns the record it appended, for tagging; it stays valid until the next addition of its
    // kind.
    ClassBinding& classBinding(ClassBinding binding);
    InterfaceBinding& interfaceBinding(InterfaceBinding binding);
    ErrorBinding& errorBinding(ErrorBinding binding);
    EnumBinding& enumBinding(EnumBinding binding);
    FunctionBinding& functionBinding(FunctionBinding binding);
    ObjectFactoryBinding& objectFactory(ObjectFactoryBinding binding);

    ConstantFactory& constant(const std::string& name, entt::meta_type type, bool isConstant,
                              std::function<entt::meta_any(WeakLifetimeScope&)> factory);

    // A module made of script text holds no bindings.
    ModuleBindingBuilder& scriptSource(std::string source);

    // Maps the key constant of every class added so far that derives from the map's base.
    ModuleBindingBuilder& createTypeMap(TypeMapBuilder& typeMap);

    // The version of the builder, with what its tags allow. Untagged records are in when `allowUntagged`;
    // `enabledTags` lets records tagged for those prereleases in. The builder is empty afterwards.
    ModuleBinding build(bool allowUntagged, const std::vector<std::string>& enabledTags,
                        const RuntimeConditions& conditions);

private:
    struct BuilderData
    {
        bool builderFlag = false;
        ModuleDescriptor descriptor;
        std::vector<ModuleDependency> dependencies;
        std::vector<ClassBinding> classBindings;
        std::vector<InterfaceBinding> interfaceBindings;
        std::vector<ErrorBinding> errorBindings;
        std::vector<EnumBinding> enumBindings;
        std::vector<FunctionBinding> functionBindings;
        std::vector<ObjectFactoryBinding> objectFactories;
        std::vector<ConstantFactory> constants;
        std::vector<TypeMapBinding> typeMaps;
        std::string scriptSource;
    };

    bool _isIncludedInBuild(const TaggedBinding& tag, bool allowUntagged,
                            const std::vector<std::string>& enabledTags) const;
    // Bases before their derived classes, otherwise in the given order. Classes caught in a cycle of bases
    // are reported and left out.
    std::vector<ClassBinding> _orderClassBindingsByDependency(std::vector<ClassBinding>& classBindings) const;
    static void _validateClassConstructors(const ModuleBinding& module);
    static void _reduceRuntimeConditions(ModuleBinding& module, const RuntimeConditions& conditions);
    static void _checkSymbols(const ModuleBinding& module);
    // Each reports and returns true when another record of the container has the name.
    static bool _assertModuleMemberSymbolDoNotExist(internal::SymbolTable& symbols, const ModuleBinding& module,
                                                    const std::string& name);
    static bool _assertClassMemberSymbolDoNotExist(internal::SymbolTable& symbols, const ClassBinding& classBinding,
                                                   const std::string& name);
    static bool _assertEnumMemberSymbolDoNotExist(internal::SymbolTable& symbols, const EnumBinding& enumBinding,
                                                  const std::string& name);

    BuilderData mBuilderData;
};
} // namespace Scripting
