#include "Scripting/BindingType/ModuleBindingBuilder.h"

#include "Scripting/Reflection/IFunction.h"

#include "Diagnostics/Assert.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <queue>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Scripting
{
namespace internal
{
// The names of one name space, sorted, so that a name found twice collides whichever records carry it and a
// build checks its names in n log n. Cleared between classes, the table keeps its storage.
class SymbolTable
{
public:
    template <typename Records>
    void add(const Records& records)
    {
        for (const auto& record : records)
        {
            mNames.emplace_back(record.name);
        }
        mSorted = false;
    }

    void clear()
    {
        mNames.clear();
        mSorted = false;
    }

    bool collides(const std::string& name)
    {
        if (!mSorted)
        {
            std::sort(mNames.begin(), mNames.end());
            mSorted = true;
        }
        const auto [first, last] = std::equal_range(mNames.begin(), mNames.end(), std::string_view(name));
        return last - first > 1;
    }

private:
    // Views into the records, which outlive every use of the table.
    std::vector<std::string_view> mNames;
    bool mSorted = false;
};
} // namespace internal

namespace
{
// Moves the records that pass into a new vector, in order, and filters the children of each survivor.
template <typename Record, typename Included, typename FilterChildren>
std::vector<Record> keepIncluded(std::vector<Record>& records, const Included& included,
                                 const FilterChildren& filterChildren)
{
    std::vector<Record> kept;
    for (Record& record : records)
    {
        if (included(record))
        {
            kept.push_back(std::move(record));
            filterChildren(kept.back());
        }
    }
    return kept;
}

template <typename Record, typename Included>
void eraseExcluded(std::vector<Record>& records, const Included& included)
{
    std::erase_if(records, [&](const Record& record) { return !included(record); });
}

const auto NO_CHILDREN = [](auto&) {};

std::vector<std::string> missingConditions(const std::vector<std::string>& required,
                                           const std::unordered_set<std::string_view>& offered)
{
    std::vector<std::string> missing;
    for (const std::string& condition : required)
    {
        if (!offered.contains(condition))
        {
            missing.push_back(condition);
        }
    }
    return missing;
}

// What a left-out object hands back, so that tags chained after the call land somewhere harmless.
ObjectFactoryBinding& droppedObjectFactory()
{
    thread_local ObjectFactoryBinding sDropped;
    sDropped = ObjectFactoryBinding();
    return sDropped;
}

void reportCollision(const std::string& name, const char* containerKind, const std::string& containerName)
{
    const std::string text =
        fmt::format("A member with the name '{}' already exists in {} '{}'", name, containerKind, containerName);
    OV_ASSERT(false, "%s", text.c_str());
}
} // namespace

ModuleBindingBuilder::ModuleBindingBuilder(quv::UUID uuid, const std::string& name, const Version& version,
                                           bool builderFlag)
{
    OV_ASSERT(!uuid.isEmpty(), "Module needs a valid UUID");
    OV_ASSERT(name.size(), "Module needs a valid name");
    mBuilderData.builderFlag = builderFlag;
    mBuilderData.descriptor = ModuleDescriptor{name, uuid, version, false};
}

ModuleBindingBuilder& ModuleBindingBuilder::dependency(const ModuleDependency& module)
{
    // Kept all the same: the resolver reports the cycle to whoever asked for the module.
    OV_ASSERT(mBuilderData.descriptor.uuid != module.uuid, "You can't take a dependency on yourself");
    const bool alreadyExists = std::find(mBuilderData.dependencies.begin(), mBuilderData.dependencies.end(), module) !=
                               mBuilderData.dependencies.end();
    OV_ASSERT(!alreadyExists, "A dependency with this name already exists on this module");
    if (!alreadyExists)
    {
        mBuilderData.dependencies.push_back(module);
    }
    return *this;
}

ModuleBindingBuilder& ModuleBindingBuilder::dependency(const std::vector<ModuleDependency>& modules)
{
    for (const ModuleDependency& module : modules)
    {
        dependency(module);
    }
    return *this;
}

ClassBinding& ModuleBindingBuilder::classBinding(ClassBinding binding)
{
    return mBuilderData.classBindings.emplace_back(std::move(binding));
}

InterfaceBinding& ModuleBindingBuilder::interfaceBinding(InterfaceBinding binding)
{
    return mBuilderData.interfaceBindings.emplace_back(std::move(binding));
}

ErrorBinding& ModuleBindingBuilder::errorBinding(ErrorBinding binding)
{
    return mBuilderData.errorBindings.emplace_back(std::move(binding));
}

EnumBinding& ModuleBindingBuilder::enumBinding(EnumBinding binding)
{
    return mBuilderData.enumBindings.emplace_back(std::move(binding));
}

FunctionBinding& ModuleBindingBuilder::functionBinding(FunctionBinding binding)
{
    return mBuilderData.functionBindings.emplace_back(std::move(binding));
}

ObjectFactoryBinding& ModuleBindingBuilder::objectFactory(ObjectFactoryBinding binding)
{
    return mBuilderData.objectFactories.emplace_back(std::move(binding));
}

ConstantFactory& ModuleBindingBuilder::constant(const std::string& name, entt::meta_type type, bool isConstant,
                                                std::function<entt::meta_any(WeakLifetimeScope&)> factory)
{
    ConstantFactory& constant = mBuilderData.constants.emplace_back();
    constant.name = name;
    constant.type = type;
    constant.isConstant = isConstant;
    constant.factory = std::move(factory);
    return constant;
}

ObjectFactoryBinding& ModuleBindingBuilder::_addObjectFactory(ObjectFactoryBinding&& binding)
{
    OV_ASSERT(!binding.name.empty(), "Module '%s' has an object with an empty name; it is left out",
              mBuilderData.descriptor.name.c_str());
    if (binding.name.empty())
    {
        return droppedObjectFactory();
    }
    const bool contextFillsEveryArgument =
        binding.function->injectedArgumentCount == binding.function->getArgumentCount();
    OV_ASSERT(contextFillsEveryArgument,
              "Object '%s' of module '%s' has a factory that takes script arguments; it is left out",
              binding.name.c_str(), mBuilderData.descriptor.name.c_str());
    if (!contextFillsEveryArgument)
    {
        return droppedObjectFactory();
    }
    return mBuilderData.objectFactories.emplace_back(std::move(binding));
}

ModuleBindingBuilder& ModuleBindingBuilder::scriptSource(std::string source)
{
    mBuilderData.scriptSource = std::move(source);
    return *this;
}

ModuleBinding ModuleBindingBuilder::build(bool allowUntagged, const std::vector<std::string>& enabledTags,
                                          const RuntimeConditions& conditions)
{
    const auto included = [&](const TaggedBinding& tag) { return _isIncludedInBuild(tag, allowUntagged, enabledTags); };

    // Records move out of the builder, which is spent by this call; the collections keep their sizes for the
    // script source check below.
    ModuleBinding module;
    module.typeMaps =
        keepIncluded(mBuilderData.typeMaps, included,
                     [&](TypeMapBinding& typeMap)
                     {
                         std::erase_if(typeMap.entries, [&](const TypeMapBindingEntry& entry)
                                       { return !included(entry.classTag) || !included(entry.constantTag); });
                     });
    module.constants = keepIncluded(mBuilderData.constants, included, NO_CHILDREN);
    module.objectFactories = keepIncluded(mBuilderData.objectFactories, included, NO_CHILDREN);
    module.functionBindings = keepIncluded(mBuilderData.functionBindings, included, NO_CHILDREN);
    module.enumBindings = keepIncluded(mBuilderData.enumBindings, included,
                                       [&](EnumBinding& enumBinding)
                                       {
                                           eraseExcluded(enumBinding.constants, included);
                                           std::unordered_set<std::string_view> kept;
                                           for (const ConstantFactory& constant : enumBinding.constants)
                                           {
                                               kept.insert(constant.name);
                                           }
                                           std::erase_if(enumBinding.values, [&](const EnumValueBinding& value)
                                                         { return !kept.contains(value.name); });
                                       });
    module.errorBindings = keepIncluded(mBuilderData.errorBindings, included,
                                        [&](ErrorBinding& error) { eraseExcluded(error.properties, included); });
    module.interfaceBindings =
        keepIncluded(mBuilderData.interfaceBindings, included,
                     [&](InterfaceBinding& interfaceBinding) { eraseExcluded(interfaceBinding.properties, included); });
    module.classBindings = keepIncluded(mBuilderData.classBindings, included,
                                        [&](ClassBinding& classBinding)
                                        {
                                            eraseExcluded(classBinding.constants, included);
                                            eraseExcluded(classBinding.properties, included);
                                            eraseExcluded(classBinding.functions, included);
                                            eraseExcluded(classBinding.constructors, included);
                                        });

    module.dependencies = std::move(mBuilderData.dependencies);
    module.descriptor.name = std::move(mBuilderData.descriptor.name);
    module.descriptor.uuid = mBuilderData.descriptor.uuid;
    module.descriptor.version = std::move(mBuilderData.descriptor.version);
    module.builderFlag = mBuilderData.builderFlag;

    if (!mBuilderData.scriptSource.empty())
    {
        module.scriptSource = mBuilderData.scriptSource;
        OV_ASSERT(mBuilderData.classBindings.size() == 0 && mBuilderData.interfaceBindings.size() == 0 &&
                      mBuilderData.errorBindings.size() == 0 && mBuilderData.enumBindings.size() == 0 &&
                      mBuilderData.functionBindings.size() == 0 && mBuilderData.objectFactories.size() == 0 &&
                      mBuilderData.constants.size() == 0 && mBuilderData.typeMaps.size() == 0,
                  "Module %s contains javascript and bindings, this is unsupported.", module.descriptor.name.c_str());
    }

    mBuilderData = ModuleBinding{};

    module.classBindings = _orderClassBindingsByDependency(module.classBindings);
    _reduceRuntimeConditions(module, conditions);
    _validateClassConstructors(module);
    _checkSymbols(module);
    return module;
}

bool ModuleBindingBuilder::_isIncludedInBuild(const TaggedBinding& tag, bool allowUntagged,
                                              const std::vector<std::string>& enabledTags) const
{
    if (tag.releases.empty())
    {
        return allowUntagged;
    }
    const Version& version = mBuilderData.descriptor.version;
    bool included = false;
    for (const Release& release : tag.releases)
    {
        // Checked before anything can have included the record, so that no later rule rescues it.
        if (release.comparison == ReleaseComparison::NotPreRelease)
        {
            if (version.hasPrerelease())
            {
                return false;
            }
            continue;
        }
        if (included)
        {
            continue;
        }
        included = release.satisfies(version);
        if (!included && release.comparison == ReleaseComparison::PreReleaseTag)
        {
            included = std::find(enabledTags.begin(), enabledTags.end(), release.inclusiveLowerVersion.Prerelease) !=
                       enabledTags.end();
        }
    }
    return included;
}

std::vector<ClassBinding>
ModuleBindingBuilder::_orderClassBindingsByDependency(std::vector<ClassBinding>& classBindings) const
{
    // The order is that of moving classes over in passes, each pass walking what is left in order and taking a
    // class whose base is unbound here or already taken. Rather than walking passes, each class gets the
    // (pass, position) at which that walk would take it: a class waits for the first class of its base type
    // to be taken, and follows it in the same pass when it stands behind it, in the next pass otherwise.
    // Taking classes in that order costs n log n however long the chain of bases is.
    struct TypeGroup
    {
        bool taken = false;
        std::vector<uint32_t> waiting;
    };
    using Slot = std::pair<uint64_t, uint32_t>; // pass, position
    const auto key = [](const entt::meta_type& type) { return type.info().hash(); };

    const auto count = static_cast<uint32_t>(classBindings.size());
    std::unordered_map<entt::id_type, TypeGroup> groups;
    for (const ClassBinding& classBinding : classBindings)
    {
        if (classBinding.type)
        {
            groups.try_emplace(key(classBinding.type));
        }
    }

    std::priority_queue<Slot, std::vector<Slot>, std::greater<>> ready;
    for (uint32_t position = 0; position < count; ++position)
    {
        const entt::meta_type& baseType = classBindings[position].baseType;
        const auto group = baseType ? groups.find(key(baseType)) : groups.end();
        if (group == groups.end())
        {
            ready.emplace(0, position);
        }
        else
        {
            group->second.waiting.push_back(position);
        }
    }

    std::vector<ClassBinding> ordered;
    ordered.reserve(count);
    while (!ready.empty())
    {
        const auto [pass, position] = ready.top();
        ready.pop();
        ClassBinding& classBinding = classBindings[position];
        if (classBinding.type)
        {
            TypeGroup& group = groups[key(classBinding.type)];
            if (!group.taken)
            {
                group.taken = true;
                for (const uint32_t waiting : group.waiting)
                {
                    ready.emplace(waiting > position ? pass : pass + 1, waiting);
                }
                group.waiting = {};
            }
        }
        ordered.push_back(std::move(classBinding));
    }

    if (ordered.size() != count)
    {
        // What waits on a base that is never taken is dropped with the report.
        OV_ASSERT(false, "Could not order class bindings, circular reference detected.");
    }
    return ordered;
}

void ModuleBindingBuilder::_reduceRuntimeConditions(ModuleBinding& module, const RuntimeConditions& conditions)
{
    const std::unordered_set<std::string_view> offered(conditions.names.begin(), conditions.names.end());
    for (ClassBinding& classBinding : module.classBindings)
    {
        classBinding.missingRuntimeConditions = missingConditions(classBinding.runtimeConditions, offered);
        for (const FunctionBinding& function : classBinding.functions)
        {
            if (function.function)
            {
                function.function->missingRuntimeConditions = missingConditions(function.runtimeConditions, offered);
            }
        }
    }
    for (InterfaceBinding& interfaceBinding : module.interfaceBindings)
    {
        interfaceBinding.missingRuntimeConditions = missingConditions(interfaceBinding.runtimeConditions, offered);
    }
}

void ModuleBindingBuilder::_validateClassConstructors(const ModuleBinding& module)
{
    for (const ClassBinding& classBinding : module.classBindings)
    {
        if (classBinding.constructors.size() >= 2)
        {
            const std::string text = fmt::format("Class '{}' has been registered with {} constructors",
                                                 classBinding.name, classBinding.constructors.size());
            OV_ASSERT(false, "%s", text.c_str());
        }
    }
}

void ModuleBindingBuilder::_checkSymbols(const ModuleBinding& module)
{
    internal::SymbolTable moduleSymbols;
    moduleSymbols.add(module.functionBindings);
    moduleSymbols.add(module.objectFactories);
    moduleSymbols.add(module.constants);
    moduleSymbols.add(module.enumBindings);
    moduleSymbols.add(module.classBindings);

    for (const FunctionBinding& function : module.functionBindings)
    {
        _assertModuleMemberSymbolDoNotExist(moduleSymbols, module, function.name);
    }
    for (const ConstantFactory& constant : module.constants)
    {
        _assertModuleMemberSymbolDoNotExist(moduleSymbols, module, constant.name);
    }
    internal::SymbolTable memberSymbols;
    for (const EnumBinding& enumBinding : module.enumBindings)
    {
        _assertModuleMemberSymbolDoNotExist(moduleSymbols, module, enumBinding.name);
        memberSymbols.clear();
        memberSymbols.add(enumBinding.constants);
        for (const ConstantFactory& constant : enumBinding.constants)
        {
            _assertEnumMemberSymbolDoNotExist(memberSymbols, enumBinding, constant.name);
        }
    }
    for (const ClassBinding& classBinding : module.classBindings)
    {
        _assertModuleMemberSymbolDoNotExist(moduleSymbols, module, classBinding.name);
        memberSymbols.clear();
        memberSymbols.add(classBinding.functions);
        memberSymbols.add(classBinding.properties);
        memberSymbols.add(classBinding.constants);
        for (const PropertyBinding& property : classBinding.properties)
        {
            _assertClassMemberSymbolDoNotExist(memberSymbols, classBinding, property.name);
        }
        for (const FunctionBinding& function : classBinding.functions)
        {
            _assertClassMemberSymbolDoNotExist(memberSymbols, classBinding, function.name);
        }
        for (const ConstantFactory& constant : classBinding.constants)
        {
            _assertClassMemberSymbolDoNotExist(memberSymbols, classBinding, constant.name);
        }
    }
    for (const ObjectFactoryBinding& objectFactory : module.objectFactories)
    {
        _assertModuleMemberSymbolDoNotExist(moduleSymbols, module, objectFactory.name);
    }
}

bool ModuleBindingBuilder::_assertModuleMemberSymbolDoNotExist(internal::SymbolTable& symbols,
                                                               const ModuleBinding& module, const std::string& name)
{
    // Interfaces and error types are not members of the module's name space.
    if (!symbols.collides(name))
    {
        return false;
    }
    reportCollision(name, "module", module.descriptor.name);
    return true;
}

bool ModuleBindingBuilder::_assertClassMemberSymbolDoNotExist(internal::SymbolTable& symbols,
                                                              const ClassBinding& classBinding, const std::string& name)
{
    if (!symbols.collides(name))
    {
        return false;
    }
    reportCollision(name, "class", classBinding.name);
    return true;
}

bool ModuleBindingBuilder::_assertEnumMemberSymbolDoNotExist(internal::SymbolTable& symbols,
                                                             const EnumBinding& enumBinding, const std::string& name)
{
    if (!symbols.collides(name))
    {
        return false;
    }
    reportCollision(name, "enum", enumBinding.name);
    return true;
}
} // namespace Scripting
