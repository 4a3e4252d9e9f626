#pragma once

#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/ModuleBinding.h"
#include "Scripting/BindingType/TypeMapBuilder.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Version.h"

#include "UUID.h"

#include <entt/meta/meta.hpp>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Scripting
{
class WeakLifetimeScope;

namespace internal
{
class SymbolTable;
}

/// Collects everything that the versions of one module show, then builds one version of it. Nothing is
/// decided while adding: `build` keeps what the release tags allow for the builder's version, orders the
/// classes and reports names that collide within that version only, so one description can hold two records
/// of one name for different versions.
class ModuleBindingBuilder
{
public:
    /**
     * @brief Starts a module version; an empty UUID or name asserts.
     * @param uuid Module identity.
     * @param name Module name.
     * @param version The version build() makes.
     * @param builderFlag Carried into the ModuleBinding.
     */
    ModuleBindingBuilder(quv::UUID uuid, const std::string& name, const Version& version, bool builderFlag);
    ModuleBindingBuilder(const ModuleBindingBuilder&) = delete;
    ModuleBindingBuilder& operator=(const ModuleBindingBuilder&) = delete;

    /// A dependency on the module itself is reported and kept, for the resolver to fail on; one equal to a
    /// dependency already there (same UUID and versions) is reported and dropped.
    /// @param module The dependency.
    /// @return This builder.
    ModuleBindingBuilder& dependency(const ModuleDependency& module);
    /**
     * @brief Adds each dependency as the single form does.
     * @param modules The dependencies.
     * @return This builder.
     */
    ModuleBindingBuilder& dependency(const std::vector<ModuleDependency>& modules);

    /// A module-level free or static function. Argument builders come in native order, injected parameters left
    /// out. A mismatch with the native signature is reported and the function left out.
    /// @tparam nativeFunction Pointer to the function.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Args Types of the described arguments.
    /// @param name Script name.
    /// @param arguments Descriptions of the leading arguments; optional.
    /// @return The added record, for tags.
    template <auto nativeFunction, Privilege privilege = Privilege::None, typename... Args>
    requires internal::FunctionPointer<nativeFunction> FunctionBinding&
    function(const std::string& name, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::StaticFunction<nativeFunction, false>;
        return _addFunction<Wrapper>(name, internal::MakeWrapper<Wrapper>{privilege}, std::move(arguments)...);
    }

    /// A module-level lambda.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Lambda Type of the callable.
    /// @tparam Args Types of the described arguments.
    /// @param name Script name.
    /// @param lambda The callable, copied into the record.
    /// @param arguments Descriptions of the leading arguments; optional.
    /// @return The added record, for tags.
    template <Privilege privilege = Privilege::None, typename Lambda, typename... Args>
    FunctionBinding& function(const std::string& name, Lambda lambda, ArgumentBindingBuilder<Args>&&... arguments)
    {
        using Wrapper = Reflection::LambdaFunction<Lambda, false>;
        return _addFunction<Wrapper>(name, internal::MakeLambdaWrapper<Wrapper, Lambda>{privilege, lambda},
                                     std::move(arguments)...);
    }

    /// A value made anew, by copy, whenever a context asks for it.
    /// @tparam V Type of the value.
    /// @param name Script name.
    /// @param value The value.
    /// @return The added record, for tags.
    template <typename V>
    ConstantFactory& constant(const std::string& name, V value)
    {
        return constant(name, Reflection::resolve<V>(), true, internal::ConstantValue<V>{std::move(value)});
    }

    /// An object of type `T` that a context makes on demand with `factory`. The factory can take only what the
    /// context fills in (WeakLifetimeScope& and the other injected types); one that wants script arguments is
    /// reported and left out.
    /// @tparam T Type of the object made.
    /// @tparam privilege Carried for the runtime.
    /// @tparam Lambda Type of the factory.
    /// @param name Script name.
    /// @param factory Makes the object.
    /// @return The added record, for tags.
    template <typename T, Privilege privilege = Privilege::ReadOnly, typename Lambda>
    ObjectFactoryBinding& object(const std::string& name, Lambda factory)
    {
        ObjectFactoryBinding binding;
        binding.name = name;
        binding.type = Reflection::resolve<T>();
        binding.function = std::make_shared<Reflection::LambdaFunction<Lambda, false>>(privilege, std::move(factory),
                                                                                       std::vector<ArgumentDetails>{});
        return _addObjectFactory(std::move(binding));
    }

    /// Each adder returns the record it appended, for tagging; it stays valid until the next addition of its
    /// kind.
    /// @param binding A class, from ClassBindingBuilder::finish().
    /// @return The record.
    ClassBinding& classBinding(ClassBinding binding);
    /**
     * @brief Adds an interface.
     * @param binding From InterfaceBindingBuilder::finish().
     * @return The record.
     */
    InterfaceBinding& interfaceBinding(InterfaceBinding binding);
    /**
     * @brief Adds an error type.
     * @param binding The error.
     * @return The record.
     */
    ErrorBinding& errorBinding(ErrorBinding binding);
    /**
     * @brief Adds an enum.
     * @param binding From EnumBindingBuilder::finish().
     * @return The record.
     */
    EnumBinding& enumBinding(EnumBinding binding);
    /**
     * @brief Adds a finished function record.
     * @param binding The function.
     * @return The record.
     */
    FunctionBinding& functionBinding(FunctionBinding binding);
    /**
     * @brief Adds a finished object factory record.
     * @param binding The factory.
     * @return The record.
     */
    ObjectFactoryBinding& objectFactory(ObjectFactoryBinding binding);

    /**
     * @brief A constant made by a factory function.
     * @param name Script name.
     * @param type Type of the value.
     * @param isConstant Whether the value never changes.
     * @param factory Makes the value, given the context's scope.
     * @return The added record, for tags.
     */
    ConstantFactory& constant(const std::string& name, entt::meta_type type, bool isConstant,
                              std::function<entt::meta_any(WeakLifetimeScope&)> factory);

    /// A module made of script text holds no bindings.
    /// @param source Script text run as the module.
    /// @return This builder.
    ModuleBindingBuilder& scriptSource(std::string source);

    /// Maps the key constant of every class added so far that derives from the map's base.
    /// @param typeMap The map.
    /// @return This builder.
    ModuleBindingBuilder& createTypeMap(TypeMapBuilder& typeMap);

    /// The version of the builder, with what its tags allow. Untagged records are in when `allowUntagged`;
    /// `enabledTags` lets records tagged for those prereleases in. The builder is empty afterwards.
    /// Names that collide within the version assert; the records stay.
    /// @param allowUntagged Whether untagged records are in.
    /// @param enabledTags Prerelease tags whose records are in whatever the version.
    /// @param conditions What the runtime offers; records needing others stay, with their missing conditions.
    /// @return The module version.
    ModuleBinding build(bool allowUntagged, const std::vector<std::string>& enabledTags,
                        const RuntimeConditions& conditions);

private:
    template <typename Wrapper, typename Make, typename... Args>
    FunctionBinding& _addFunction(const std::string& name, const Make& makeWrapper,
                                  ArgumentBindingBuilder<Args>&&... arguments)
    {
        if (!internal::checkMemberName(OWNER, mBuilderData.descriptor.name, name, "function"))
        {
            return internal::droppedFunctionBinding();
        }
        return internal::addFunction<Wrapper>(mBuilderData.functionBindings, name, internal::FunctionKind::Function,
                                              makeWrapper, std::move(arguments)...);
    }
    ObjectFactoryBinding& _addObjectFactory(ObjectFactoryBinding&& binding);

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

    static constexpr const char* OWNER = "Module";

    // Everything added so far, for every version, in the shape of the binding that a build makes of it.
    ModuleBinding mBuilderData;
};
} // namespace Scripting
