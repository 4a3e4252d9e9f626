#include "Scripting/BindingType/ArgumentBindingBuilder.h"
#include "Scripting/BindingType/ArgumentBindingBuilderValidator.h"
#include "Scripting/BindingType/InjectedTypes.h"
#include "Scripting/BindingType/PropertyBinding.h"
#include "Scripting/BindingType/internal/BuilderSupport.h"
#include "Scripting/BindingType/internal/FunctionAdders.h"
#include "Scripting/BindingType/internal/PropertyAdders.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/IFunction.h"
#include "Scripting/Reflection/IProperty.h"

#include "Diagnostics/Assert.h"

#include <string>

namespace Scripting
{
namespace internal
{
void checkDefaultArgumentOrder(const std::vector<ArgumentDetails>& details)
{
    if (details.size() < 2)
    {
        return;
    }
    bool seenRequired = false;
    for (auto entry = details.rbegin(); entry != details.rend(); ++entry)
    {
        if (!entry->defaultValue)
        {
            seenRequired = true;
        }
        else if (seenRequired)
        {
            OV_ASSERT(false, "Default arguments must appear at the end of the function. Check your argument bindings.");
        }
    }
}

bool fillArgumentBindings(FunctionBinding& binding, std::vector<ArgumentBinding>&& arguments)
{
    const uint32_t nativeCount = binding.function->getArgumentCount();
    size_t bound = 0;
    for (uint32_t index = 0; index < nativeCount && bound < arguments.size(); ++index)
    {
        const entt::meta_type type = binding.function->getArgumentType(index);
        if (isInjectedArgumentType(type))
        {
            continue;
        }
        const bool argumentTypesMatch = type == arguments[bound].type;
        OV_ASSERT(argumentTypesMatch, "Argument binding type does not match actual argument type");
        if (!argumentTypesMatch)
        {
            return false;
        }
        ++bound;
    }
    // Only surplus bindings show here: a native tail without bindings is not looked at.
    const bool argCountsMatch = bound == arguments.size();
    OV_ASSERT(argCountsMatch, "Argument binding length mismatch.  Binding argument count does not match actual "
                              "functions argument count");
    if (!argCountsMatch)
    {
        return false;
    }
    binding.arguments = std::move(arguments);
    return true;
}

std::shared_ptr<Reflection::IFunction> makeTableFunction(const void* table, Privilege privilege,
                                                         std::vector<ArgumentDetails>&& details)
{
    return std::make_shared<Reflection::internal::FunctionBase>(
        privilege, std::move(details), *static_cast<const Reflection::internal::CallableTable*>(table));
}

std::shared_ptr<Reflection::IPropertyGetter> makeGetter(Privilege privilege,
                                                        const Reflection::internal::GetterTable& table)
{
    return std::make_shared<Reflection::internal::GetterBase>(privilege, table);
}

std::shared_ptr<Reflection::IPropertySetter> makeSetter(Privilege privilege,
                                                        const Reflection::internal::SetterTable& table)
{
    return std::make_shared<Reflection::internal::SetterBase>(privilege, table);
}

PropertyBinding makePropertyBinding(const std::string& name, const entt::meta_type& type,
                                    std::shared_ptr<Reflection::IPropertyGetter>&& getter,
                                    std::shared_ptr<Reflection::IPropertySetter>&& setter)
{
    PropertyBinding binding;
    binding.name = name;
    binding.type = type;
    binding.setter = std::move(setter);
    binding.getter = std::move(getter);
    return binding;
}

FunctionBinding& addFunctionBinding(std::vector<FunctionBinding>& target, std::string&& name, FunctionKind kind,
                                    FunctionMaker maker, const void* state, Privilege privilege,
                                    ArgumentBinding* const* arguments, size_t count)
{
    std::vector<ArgumentDetails> details;
    details.reserve(count);
    for (size_t index = 0; index < count; ++index)
    {
        details.push_back(arguments[index]->details);
    }
    checkDefaultArgumentOrder(details);
    FunctionBinding binding;
    binding.name = std::move(name);
    binding.function = maker(state, privilege, std::move(details));
    std::vector<ArgumentBinding> described;
    described.reserve(count);
    for (size_t index = 0; index < count; ++index)
    {
        described.push_back(std::move(*arguments[index]));
    }
    const bool argumentsFilled = fillArgumentBindings(binding, std::move(described));
    return appendFunctionBinding(target, std::move(binding), argumentsFilled, kind);
}

bool checkMemberName(const char* ownerKind, const std::string& ownerName, const std::string& memberName,
                     const char* memberKind)
{
    OV_ASSERT(!memberName.empty(), "%s '%s' has a %s with an empty name; it is left out", ownerKind, ownerName.c_str(),
              memberKind);
    return !memberName.empty();
}

void checkOwnerName(const char* ownerKind, const std::string& ownerName, const entt::meta_type& type)
{
    OV_ASSERT(!ownerName.empty(), "%s binding of the native type '%s' needs a valid name", ownerKind,
              std::string(type.info().name()).c_str());
}

FunctionBinding& appendFunctionBinding(std::vector<FunctionBinding>& target, FunctionBinding&& binding,
                                       bool argumentsFilled, FunctionKind kind)
{
    if (argumentsFilled)
    {
        return target.emplace_back(std::move(binding));
    }
    switch (kind)
    {
    case FunctionKind::Method:
        OV_ASSERT(argumentsFilled, "Method arguments metadata mismatch with number of arguments it actually takes!");
        break;
    case FunctionKind::Function:
        OV_ASSERT(argumentsFilled, "Function arguments metadata mismatch with number of arguments it actually takes!");
        break;
    case FunctionKind::Constructor:
        OV_ASSERT(argumentsFilled,
                  "Constructor arguments metadata mismatch with number of arguments it actually takes!");
        break;
    }
    return droppedFunctionBinding();
}

FunctionBinding& droppedFunctionBinding()
{
    thread_local FunctionBinding sDropped;
    sDropped = FunctionBinding();
    return sDropped;
}

PropertyBinding& droppedPropertyBinding()
{
    thread_local PropertyBinding sDropped;
    sDropped = PropertyBinding();
    return sDropped;
}

ConstantFactory& droppedConstant()
{
    thread_local ConstantFactory sDropped;
    sDropped = ConstantFactory();
    return sDropped;
}
} // namespace internal

PropertyBinding::BoundsForm PropertyBinding::_boundsForm(const entt::meta_type& boundsType,
                                                         const entt::meta_type& optionalType,
                                                         const entt::meta_type& vectorType,
                                                         const entt::meta_type& optionalVectorType) const
{
    if (!setter)
    {
        OV_ASSERT(false, "Failed to set bounds on property '%s' due to property not having a setter", name.c_str());
        return BoundsForm::None;
    }
    if (type == boundsType || type == optionalType)
    {
        return BoundsForm::Scalar;
    }
    if (type == vectorType || type == optionalVectorType)
    {
        return BoundsForm::Vector;
    }
    OV_ASSERT(false,
              "Failed to set bounds on property '%s' due to property type and bounds type differing. Property type: "
              "'%s', bounds type: '%s'",
              name.c_str(), std::string(type.info().name()).c_str(), std::string(boundsType.info().name()).c_str());
    return BoundsForm::None;
}

void PropertyBinding::_setBounds(entt::meta_any min, entt::meta_any max,
                                 std::function<bool(const entt::meta_any&)> validator)
{
    minValue = std::move(min);
    maxValue = std::move(max);
    valueValidator = std::move(validator);
    setter->valueValidator = valueValidator;
}
} // namespace Scripting
